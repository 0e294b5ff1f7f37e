#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include "ids.h"
#include "sources/clean_private.h"
#include "sources/location.h"
#include "xmlstream.h"

using namespace nxclean;

std::vector<bool> IXmlCleanStreamSource::s_xmlByteCharsToEscape;

namespace nxclean {

std::vector<bool> BuildPassThrough(bool extendTo127, bool passHigh) {
  // The shape every table has always been built in: the C0 block closed
  // but for TAB, LF and CR, then the format's own ranges.
  std::vector<bool> table;
  table.reserve(static_cast<std::size_t>(IXmlCleanStreamSource::LIMIT));
  table.resize(32, false);
  table[9] = true;
  table[13] = true;
  table[10] = true;
  if (extendTo127) {
    table.resize(127, true);
    table[38] = false;
    table.resize(256, false);
  } else if (passHigh) {
    table.resize(256, true);
    table[38] = false;
  } else {
    table.resize(128, true);
    table.resize(256, false);
  }
  return table;
}

}  // namespace nxclean

namespace {

void FillEscapeTable() {
  std::vector<bool>& table = IXmlCleanStreamSource::s_xmlByteCharsToEscape;
  table.assign(static_cast<std::size_t>(IXmlCleanStreamSource::LIMIT), false);
  for (int c : {9, 10, 13, 34, 38, 39, 60, 62}) table[static_cast<std::size_t>(c)] = true;  // TAB LF CR " & ' < >
}

}  // namespace

// ---------------------------------------------------------------------------
// ByteBuffer

ByteBuffer::ByteBuffer(long size) {
  m_pBufStart = new char[static_cast<std::size_t>(size) + 1];
  m_pBufEnd = m_pBufStart + size;
  m_pDataStart = m_pDataEnd = m_pBufStart;
  *m_pDataEnd = 0;
}

ByteBuffer::~ByteBuffer() { delete[] m_pBufStart; }

long ByteBuffer::FillBuffer(IXmlStreamSource* source) {
  if (m_pDataStart > m_pBufStart) {
    const long size = DataSize();
    std::memmove(m_pBufStart, m_pDataStart, static_cast<std::size_t>(size));
    m_pDataStart = m_pBufStart;
    m_pDataEnd = m_pBufStart + size;
    AD_ASSERT_TEXT(m_pDataStart <= m_pDataEnd, "m_pDataStart<=m_pDataEnd", kUnit);
  }
  long total = 0;
  while (!source->eof() && m_pDataEnd < m_pBufEnd) {
    const long got = source->read(m_pDataEnd, static_cast<long>(m_pBufEnd - m_pDataEnd));
    // A source with nothing to give now is not waited on: the repair step
    // then meets the end of the data and says so, where a loop would hang.
    if (got <= 0) break;
    m_pDataEnd += got;
    total += got;
    AD_ASSERT_TEXT(m_pDataStart <= m_pDataEnd, "m_pDataStart<=m_pDataEnd", kUnit);
  }
  *m_pDataEnd = 0;
  return total;
}

unsigned char ByteBuffer::CurrentByte() const {
  AD_ASSERT_TEXT(DataSize() > 0, "DataSize() > 0", kUnit);
  return static_cast<unsigned char>(*m_pDataStart);
}

unsigned char ByteBuffer::ByteAt(long offset) const {
  AD_ASSERT_TEXT(DataSize() > offset, "DataSize() > offset", kUnit);
  return static_cast<unsigned char>(m_pDataStart[offset]);
}

void ByteBuffer::ConsumeBytes(long n) {
  AD_ASSERT_TEXT(0 < n && n <= DataSize(), "0 < bytesToConsume && bytesToConsume <= DataSize()", kUnit);
  m_pDataStart += n;
}

// ---------------------------------------------------------------------------
// IXmlCleanStreamSource

// The code-page bytes of the last repaired character and their UTF-8: a
// packet repeats its characters, and the conversion goes through ICU and
// the heap. Tied to the charset it was made with, since the locale may
// change between two reads.
struct IXmlCleanStreamSource::ConversionCache {
  const AdCharset* charset = nullptr;
  struct Entry {
    unsigned char key[4];
    int keySize = 0;
    char utf8[8];
    int utf8Size = 0;
  };
  Entry entries[256];
};

IXmlCleanStreamSource::IXmlCleanStreamSource(IXmlStreamSource* pDirty)
    : m_pDirtyStream(pDirty), m_buffer(new ByteBuffer(DEFAULTBUFSIZE)) {
  if (!pDirty) {
    // Nothing to own: the caller keeps what it gave.
    m_pDirtyStream.release();
    AdThrowMsgExcept(AdGetBadValue0MsgID(), "pDirty != __null", kUnit, __LINE__);
  }
  // Filled once, whichever thread builds the first repairing source.
  static std::once_flag filled;
  std::call_once(filled, FillEscapeTable);
}

IXmlCleanStreamSource::~IXmlCleanStreamSource() {
  if (m_deferred) m_deferred->Delete();
}

bool IXmlCleanStreamSource::eof() {
  if (m_utf8CharSize != 0 || m_buffer->DataSize() > 0 || m_deferred) return false;
  return m_pDirtyStream->eof();
}

void IXmlCleanStreamSource::StoreSourceLocation(XmlSourceLocation& loc) const {
  m_pDirtyStream->StoreSourceLocation(loc);
}

void IXmlCleanStreamSource::SetXmlParser(void* parser) {
  m_parser = parser;
  m_pDirtyStream->SetXmlParser(parser);
}

void IXmlCleanStreamSource::RaiseDeferred() {
  if (!m_deferred) return;
  QmMsgException* e = m_deferred;
  m_deferred = nullptr;
  throw e;
}

long IXmlCleanStreamSource::read(char* pOutput, long bytes) {
  AD_ASSERT_TEXT(pOutput != nullptr, "pOutput != __null", kUnit);
  AD_ASSERT_TEXT(bytes > 0, "bytes > 0", kUnit);
  RaiseDeferred();
  long total = 0;
  try {
    for (;;) {
      if (m_utf8CharSize > 0) {
        AD_ASSERT_TEXT(0 <= m_utf8CharIndex, "0 <= m_utf8CharIndex", kUnit);
        AD_ASSERT_TEXT(m_utf8CharIndex < m_utf8CharSize, "m_utf8CharIndex < m_utf8CharSize", kUnit);
        AD_ASSERT_TEXT(m_utf8CharSize <= static_cast<int>(sizeof m_utf8Char), "m_utf8CharSize <= sizeof m_utf8Char",
                       kUnit);
        while (m_utf8CharIndex < m_utf8CharSize && total < bytes) pOutput[total++] = m_utf8Char[m_utf8CharIndex++];
        if (m_utf8CharIndex == m_utf8CharSize) m_utf8CharSize = 0;
        if (total == bytes) return total;
      }
      total += CopyNormal(pOutput + total, bytes - total);
      if (total == bytes || eof()) return total;
      if (m_buffer->DataSize() < MINBUFSIZE) m_buffer->FillBuffer(m_pDirtyStream.get());
      Repair();
    }
  } catch (QmMsgException* e) {
    // What was repaired before the failure reaches the reader; the failure
    // comes with the next read.
    if (total == 0) throw;
    m_deferred = e;
    return total;
  }
}

void IXmlCleanStreamSource::Repair() {
  const long long line = m_line, column = m_column, byteIndex = m_byteIndex;
  try {
    GetUtf8FromSource();
  } catch (QmMsgException* e) {
    XmlSourceLocation place;
    place.SetPosition(line, column, byteIndex);
    QmMessage where(nxmsg::kCannotRepairMsgId);
    where.SetParam("%_LOCATION_%", RenderSrcLocGeneral(place, false, Obx_String(), Obx_String()));
    e->AddMessage(where);
    throw;
  }
}

void IXmlCleanStreamSource::Consume(long n) {
  const char* p = m_buffer->Data();
  m_buffer->ConsumeBytes(n);
  // Lines and columns of the packet, for the place of a failed repair.
  const char* end = p + n;
  const char* lastLine = nullptr;
  for (const char* q = p; (q = static_cast<const char*>(std::memchr(q, '\n', static_cast<std::size_t>(end - q))));
       ++q) {
    ++m_line;
    lastLine = q;
  }
  m_column = lastLine ? end - lastLine - 1 : m_column + n;
  m_byteIndex += n;
}

long IXmlCleanStreamSource::CopyNormal(char* pOutput, long outputBytes) {
  AD_ASSERT_TEXT(pOutput != nullptr && outputBytes > 0, "pOutput != __null && outputBytes > 0", kUnit);
  AD_ASSERT_TEXT(m_utf8CharSize == 0, "m_utf8CharSize == 0", kUnit);
  if (m_buffer->DataSize() == 0 && m_buffer->FillBuffer(m_pDirtyStream.get()) == 0) return 0;
  const std::vector<bool>& pass = *m_passThrough;
  long total = 0;
  for (;;) {
    const long span = std::min(m_buffer->DataSize(), outputBytes);
    const unsigned char* data = reinterpret_cast<const unsigned char*>(m_buffer->Data());
    long count = 0;
    while (count < span && pass[data[count]]) ++count;
    if (count == 0) return total;
    std::memcpy(pOutput, data, static_cast<std::size_t>(count));
    Consume(count);
    total += count;
    if (count < span || count == outputBytes) return total;
    pOutput += count;
    outputBytes -= count;
    if (m_buffer->DataSize() == 0 && m_buffer->FillBuffer(m_pDirtyStream.get()) == 0) return total;
  }
}

long IXmlCleanStreamSource::ParseNumericCharRef(long offset, unsigned char& value, bool& isHex) {
  if (m_buffer->DataSize() - offset < 4) {
    if (m_pDirtyStream->eof()) return 0;
    AdThrowMsgExcept(AdGetBadValue0MsgID(), "m_pDirtyStream->eof()", kUnit, __LINE__);
  }
  const char* ref = m_buffer->Data() + offset;
  if (ref[0] != '&' || ref[1] != '#') return 0;
  isHex = ref[2] == 'x';
  const char* digits = ref + (isHex ? 3 : 2);
  // strtoul's own rules, white space, sign and "0x" included; the zero
  // after the data ends the number at the latest.
  char* end = nullptr;
  errno = 0;
  const unsigned long number = std::strtoul(digits, &end, isHex ? 16 : 10);
  if (number == ULONG_MAX || end == digits || *end != ';' || number > 255) return 0;
  value = static_cast<unsigned char>(number);
  return static_cast<long>(end - ref) + 1;
}

bool IXmlCleanStreamSource::LookingAt(const char* str) {
  const char* pOrig = str;
  const char* data = m_buffer->Data();
  const long size = m_buffer->DataSize();
  const char* pStr = str;
  for (long k = 0; *pStr; ++pStr, ++k) {
    if (k == size) {
      AD_ASSERT_TEXT(pStr - pOrig <= MINBUFSIZE, "pStr - pOrig <= MINBUFSIZE", kUnit);
      if (m_pDirtyStream->eof()) return false;
      AdThrowMsgExcept(AdGetBadValue0MsgID(), "m_pDirtyStream->eof()", kUnit, __LINE__);
    }
    if (data[k] != *pStr) return false;
  }
  return true;
}

void IXmlCleanStreamSource::OutputCurrentByte() {
  m_utf8Char[0] = static_cast<char>(m_buffer->CurrentByte());
  m_utf8CharSize = 1;
  m_utf8CharIndex = 0;
  Consume(1);
}

void IXmlCleanStreamSource::ACP2UTF8(char* bytes, int count, int bytesToConsume) {
  const AdCharset& charset = AdCharset::getDefaultCharset();
  if (!m_cache) m_cache.reset(new ConversionCache);
  if (m_cache->charset != &charset) {
    for (ConversionCache::Entry& entry : m_cache->entries) entry.keySize = 0;
    m_cache->charset = &charset;
  }
  ConversionCache::Entry* entry = nullptr;
  if (count >= 1 && count <= 4) {
    unsigned hash = static_cast<unsigned char>(bytes[0]);
    for (int k = 1; k < count; ++k) hash = hash * 31 + static_cast<unsigned char>(bytes[k]);
    entry = &m_cache->entries[(hash ^ (hash >> 8)) & 255];
    if (entry->keySize == count && std::memcmp(entry->key, bytes, static_cast<std::size_t>(count)) == 0) {
      std::memcpy(m_utf8Char, entry->utf8, static_cast<std::size_t>(entry->utf8Size));
      m_utf8CharSize = entry->utf8Size;
      m_utf8CharIndex = 0;
      Consume(bytesToConsume);
      return;
    }
  }
  char* converted = nullptr;
  int size = 0;
  ::ACP2UTF8(bytes, count, converted, size, 1);
  std::unique_ptr<char[]> owner(converted);
  AD_ASSERT_TEXT(size <= static_cast<int>(sizeof m_utf8Char), "m_utf8CharSize <= sizeof m_utf8Char", kUnit);
  if (size > 0) std::memcpy(m_utf8Char, converted, static_cast<std::size_t>(size));
  if (entry) {
    std::memcpy(entry->key, bytes, static_cast<std::size_t>(count));
    entry->keySize = count;
    if (size > 0) std::memcpy(entry->utf8, converted, static_cast<std::size_t>(size));
    entry->utf8Size = size;
  }
  m_utf8CharSize = size;
  m_utf8CharIndex = 0;
  Consume(bytesToConsume);
}
