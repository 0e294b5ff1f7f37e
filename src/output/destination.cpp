// Where the output stream's bytes go: its destinations, each with one owner,
// and every byte's one way out, do_write, with the size limit beside it that
// cuts the output and rolls a series over to its next file.
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "ids.h"
#include "output/series.h"
#include "xmlstream.h"

using namespace nxmsg;

XmlException::~XmlException() = default;

OXmlStream::OXmlStream(std::ostream& os, long long maxSize) : m_stream(&os), m_maxSize(maxSize) {}

OXmlStream::OXmlStream(std::ostringstream& os, long long maxSize)
    : m_stream(&os), m_strstream(&os), m_maxSize(maxSize) {}

OXmlStream::OXmlStream(std::ofstream& os, long long maxSize)
    : m_stream(&os), m_fileStream(&os), m_isStrstream(0), m_maxSize(maxSize) {
  if (!os.good()) AdThrowMsgExcept(QmMessage(kStreamNotReadyMsgId), "", kStreamUnit, __LINE__);
}

OXmlStream::OXmlStream(long long maxSize)
    : m_memory(new std::ostringstream(std::ios::out | std::ios::binary)), m_maxSize(maxSize) {
  m_stream = m_memory.get();
  m_strstream = m_memory.get();
}

OXmlStream::OXmlStream(const unsigned short* fileName, long long maxSize, int maxFiles)
    : m_series(new OXmlFileSeries(Obx_String(fileName), static_cast<unsigned int>(maxFiles))),
      m_isStrstream(0),
      m_maxSize(maxSize) {
  m_fileStream = &m_series->OpenFirst();
  m_stream = m_fileStream;
}

OXmlStream::~OXmlStream() {
  Close();
  std::free(m_buffer);
}

void OXmlStream::RaiseWriteError() {
  ++m_writeErrors;
  AdThrowMsgExcept(QmMessage(kWriteFailedMsgId), "", kStreamUnit, __LINE__);
}

void OXmlStream::do_write(const char* bytes, long n) {
  // A file series closed for good has no stream left: writing to it fails
  // as a write to a closed file does.
  if (!m_stream) RaiseWriteError();
  // A negative count would put the stream into a failed state for good.
  if (n > 0) m_stream->write(bytes, n);
  // String-backed streams are never tested.
  if (!m_isStrstream && m_stream->fail()) RaiseWriteError();
  if (n > 0) m_bytesWritten += n;
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
    } else if (n > 0 && m_series && m_series->AllMade() && m_allowOverflow == 1) {
      // The last file allowed is exactly full and overflow is allowed: it
      // takes the whole write rather than the series growing by one more.
      chunk = n;
      do_write(bytes, chunk);
    } else {
      chunk = n > 0 ? 0 : n;
    }

    const long rest = n - chunk;
    if (rest <= 0) return;
    // Memory and a caller's stream or file have nowhere to roll over to.
    if (!m_series) throw new XmlException();
    // A limit whose low 32 bits leave no room takes nothing even in a fresh
    // file: rolling over would only make empty files without end.
    if (chunk == 0 && m_bytesWritten == 0) throw new XmlException();
    // With overflow allowed, one file more than the maximum is opened.
    if (m_series->AllMade() && !m_allowOverflow) throw new XmlException();

    Close();
    m_fileStream = &m_series->OpenNext();
    m_stream = m_fileStream;
    bytes += chunk;
    n = rest;
  }
}

int OXmlStream::Overflowed() const {
  if (!m_series || !m_allowOverflow || m_series->MaxFiles() == 0 || m_maxSize == 0) return 0;
  if (m_series->Count() > m_series->MaxFiles()) return 1;
  return m_series->Count() == m_series->MaxFiles() && m_bytesWritten > m_maxSize ? 1 : 0;
}

void OXmlStream::Close() {
  if (!m_stream) return;
  if (m_isStrstream) {
    m_closed = 1;
    return;
  }
  // Bytes still buffered reach the file only here: a failure now is a
  // failed write too, though Close() itself raises nothing.
  // File output always writes to m_fileStream.
  const bool wasGood = !m_stream->fail();
  m_stream->flush();
  m_fileStream->close();
  if (wasGood && m_stream->fail()) ++m_writeErrors;
  m_bytesWritten = 0;
  // A series' file is done with; a caller's file stays the caller's.
  if (m_series) {
    m_series->Release();
    m_stream = nullptr;
    m_fileStream = nullptr;
  }
}

double OXmlStream::Get_Created_Files(CStringArray& files) {
  if (!m_series) {
    files.RemoveAll();
    return 0;
  }
  return m_series->List(files);
}

void OXmlStream::Delete_Created_Files(unsigned int keep) {
  if (m_series) m_series->Delete(keep);
}
