// Size-limited output: the series of files N, N_2, N_3... cut at a byte
// limit, and the limit of in-memory and caller's streams.
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>

#include "xmlstream.h"

namespace {

const char* const kUnit = "xmlstream";

const long kCannotOpenMsgId = 27304;  // the first file of a series cannot be opened: %_ARG1_% name, %_ARG2_% reason

// The name of file k of the series: the base name itself, then base_k.
Obx_String SeriesFileName(const Obx_String& base, unsigned int k) {
  if (k <= 1) return base;
  return Obx_String::Format(NX_U16(u"%s_%d"), base, k);
}

// A failed open leaves the stream failed; the first write then reports it.
std::ofstream* OpenForOutput(const Obx_String& name) {
  return new std::ofstream(MbcsFileName(name).getData(), std::ios::out | std::ios::trunc | std::ios::binary);
}

}  // namespace

OXmlStream::OXmlStream(const unsigned short* fileName, long long maxSize, int maxFiles)
    : m_isStrstream(0), m_fileName(fileName), m_maxSize(maxSize), m_maxFiles(static_cast<unsigned int>(maxFiles)) {
  errno = 0;
  std::unique_ptr<std::ofstream> file(OpenForOutput(m_fileName));
  if (!file->good()) {
    const int reason = errno;
    QmMessage message(kCannotOpenMsgId);
    message.SetParam("%_ARG1_%", m_fileName);
    message.SetParam("%_ARG2_%", Obx_String::FromUtf8(reason ? std::strerror(reason) : "unknown reason"));
    AdThrowMsgExcept(message, "", kUnit, __LINE__);
  }
  m_fileCount = 1;
  m_fileStream = file.release();
  m_stream = m_fileStream;
}

void OXmlStream::write_internal(const char* bytes, long n) {
  if (m_maxSize <= 0) {
    do_write(bytes, n);
    return;
  }
  // One file after the other: a loop rather than a call for each file, so
  // that a write many times the limit cannot exhaust the stack.
  for (;;) {
    // Taken on 32 bits on purpose: limits are meant to stay below 2 GiB.
    int32_t room = static_cast<int32_t>(static_cast<uint32_t>(m_maxSize) - static_cast<uint32_t>(m_bytesWritten));
    if (room < 0) room = 0;

    long chunk;
    if (n < room && n > 0) {
      chunk = n;
      do_write(bytes, chunk);
    } else if (n >= room && room > 0) {
      chunk = room;
      do_write(bytes, chunk);
    } else if (n > 0 && m_maxFiles != 0 && m_fileCount >= m_maxFiles && m_allowOverflow == 1) {
      // The last file allowed is exactly full and overflow is allowed: it
      // takes the whole write rather than the series growing by one more.
      chunk = n;
      do_write(bytes, chunk);
    } else {
      chunk = n > 0 ? 0 : n;
    }

    const long rest = n - chunk;
    if (rest <= 0) return;
    if (m_fileName.IsEmpty()) throw new XmlException();
    // A limit whose low 32 bits leave no room takes nothing even in a fresh
    // file: rolling over would only make empty files without end.
    if (chunk == 0 && m_bytesWritten == 0) throw new XmlException();
    if (m_maxFiles != 0 && m_fileCount >= m_maxFiles && !m_allowOverflow) throw new XmlException();

    Close();
    ++m_fileCount;
    const Obx_String name = SeriesFileName(m_fileName, m_fileCount);
    AD_ASSERT_TEXT(m_stream == nullptr, "m_stream == __null", kUnit);
    m_fileStream = OpenForOutput(name);
    m_stream = m_fileStream;
    bytes += chunk;
    n = rest;
  }
}

int OXmlStream::Overflowed() const {
  if (m_isStrstream || !m_allowOverflow || m_fileName.IsEmpty() || m_maxFiles == 0 || m_maxSize == 0) return 0;
  if (m_fileCount > m_maxFiles) return 1;
  return m_fileCount == m_maxFiles && m_bytesWritten > m_maxSize ? 1 : 0;
}

double OXmlStream::Get_Created_Files(CStringArray& files) {
  files.RemoveAll();
  double total = 0;
  for (unsigned int k = 1; k <= m_fileCount; ++k) {
    const Obx_String name = SeriesFileName(m_fileName, k);
    files.Add(name);
    total += static_cast<double>(CFile(name, CFile::modeRead).GetLength());
  }
  return total;
}

void OXmlStream::Delete_Created_Files(unsigned int keep) {
  while (m_fileCount > keep) {
    const Obx_String name = SeriesFileName(m_fileName, m_fileCount);
    --m_fileCount;
    _tunlink(name);
  }
}
