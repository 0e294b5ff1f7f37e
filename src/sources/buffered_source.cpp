#include <algorithm>
#include <cstring>
#include <string>

#include "xmlstream.h"

namespace {

const char* const kUnit = "xmlstream";

// The lines these conditions have always been reported with: tools of the
// application match on them.
const int kNullSourceLine = 3758;
const int kSelfSourceLine = 3759;
const int kPushBackByteLine = 3897;
const int kNextLineLine = 3918;

void Require(bool cond, const char* text, int line) {
  if (!cond) AdThrowMsgExcept(AdGetBadValue0MsgID(), text, kUnit, line);
}

// Checked before anything is taken over, so that a refused source stays
// the caller's.
IXmlStreamSource* Checked(IXmlStreamSource* source, const IXmlStreamSource* self) {
  Require(source != nullptr, "source != __null", kNullSourceLine);
  Require(source != self, "source != this", kSelfSourceLine);
  return source;
}

}  // namespace

IXmlBufferedStreamSource::IXmlBufferedStreamSource(IXmlStreamSource* source) : m_Source(Checked(source, this)) {
  m_parser = source->GetXmlParser();
}

IXmlBufferedStreamSource::~IXmlBufferedStreamSource() = default;

bool IXmlBufferedStreamSource::eof() { return m_BufCount == 0 && m_Source->eof(); }

long IXmlBufferedStreamSource::read(char* buf, long n) {
  if (m_BufCount < 1) return m_Source->read(buf, n);
  if (n > m_BufCount) {
    const long copied = m_BufCount;
    std::memcpy(buf, m_Buf.get() + m_BufPtr, static_cast<std::size_t>(copied));
    m_BufCount = 0;
    return copied + m_Source->read(buf + copied, n - copied);
  }
  std::memcpy(buf, m_Buf.get() + m_BufPtr, static_cast<std::size_t>(n));
  m_BufCount -= static_cast<int>(n);
  m_BufPtr += static_cast<int>(n);
  return n;
}

void IXmlBufferedStreamSource::PushBack(char* bytes, long n) {
  if (!m_Buf) {
    m_BufSize = static_cast<int>(std::max(n, s_BufferSizeIncr));
    m_Buf.reset(new char[static_cast<std::size_t>(m_BufSize)]);
    if (n > 0) std::memcpy(m_Buf.get(), bytes, static_cast<std::size_t>(n));
    m_BufPtr = 0;
    m_BufCount = static_cast<int>(n);
    return;
  }
  if (m_BufSize < m_BufCount + n) {
    // Exactly what is needed: push-backs are rare and small.
    const int size = static_cast<int>(m_BufCount + n);
    std::unique_ptr<char[]> grown(new char[static_cast<std::size_t>(size)]);
    std::memcpy(grown.get(), bytes, static_cast<std::size_t>(n));
    if (m_BufCount > 0)
      std::memcpy(grown.get() + n, m_Buf.get() + m_BufPtr, static_cast<std::size_t>(m_BufCount));
    m_Buf = std::move(grown);
    m_BufSize = size;
  } else {
    if (m_BufCount > 0 && m_BufPtr != n)
      std::memmove(m_Buf.get() + n, m_Buf.get() + m_BufPtr, static_cast<std::size_t>(m_BufCount));
    if (n > 0) std::memcpy(m_Buf.get(), bytes, static_cast<std::size_t>(n));
  }
  m_BufPtr = 0;
  m_BufCount += static_cast<int>(n);
}

void IXmlBufferedStreamSource::PushBackByte() {
  Require(m_BufPtr > 0, "m_BufPtr > 0", kPushBackByteLine);
  ++m_BufCount;
  --m_BufPtr;
}

char IXmlBufferedStreamSource::NextByte() {
  if (m_BufCount == 0) {
    char ahead[100];
    const long got = read(ahead, sizeof ahead);
    PushBack(ahead, got);
  }
  char ch = 0;
  read(&ch, 1);
  return ch;
}

Obx_String IXmlBufferedStreamSource::NextLine() {
  std::string line;
  while (!eof()) {
    const char ch = NextByte();
    if (ch == '\n') break;
    // A char holds at most 127: a negative one is a byte of 128 or more.
    Require(ch >= 0, "((ch >= 0) && (ch <= 127))", kNextLineLine);
    line.push_back(ch);
  }
  AdUTF16String wide;
  wide.cvtFromMBCS(AdCharset::getUTF8Charset(), line.data(), static_cast<int>(line.size()));
  return wide.getString();
}

void IXmlBufferedStreamSource::StoreSourceLocation(XmlSourceLocation& loc) const { m_Source->StoreSourceLocation(loc); }

void IXmlBufferedStreamSource::SetXmlParser(void* parser) {
  m_parser = parser;
  m_Source->SetXmlParser(parser);
}
