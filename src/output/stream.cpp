// What the output stream writes: UTF-16 text, tokens and trees rendered
// straight to UTF-8, numbers, another stream's bytes; and its in-memory
// result.
#include <cstring>

#include "ids.h"
#include "output/utf8_sink.h"
#include "xmlstream.h"

using namespace nxmsg;

void OXmlStream::write(const char* bytes, long n) {
  AD_ASSERT_TEXT(bytes != nullptr || n <= 0, "bytes != __null || n <= 0", kStreamUnit);
  write_internal(bytes, n);
}

void OXmlStream::write(const unsigned short* wideChars, long n) {
  AD_ASSERT_TEXT(wideChars != nullptr, "wideChars != __null", kStreamUnit);
  const std::size_t length = static_cast<std::size_t>(n < 1 ? _tcslen(wideChars) : n);
  Utf8Sink sink(m_buffer, m_bufferCapacity, m_escapeControlChars);
  sink.Text(wideChars, length, XmlEscape::RAW);
  sink.Finish();
  write_internal(sink.Data(), static_cast<long>(sink.Size()));
}

std::string OXmlStream::Str() {
  if (!m_isStrstream) return std::string();
  Close();
  return m_strstream ? m_strstream->str() : std::string();
}

void OXmlStream::GetBlob(NxBlob& blob) {
  const std::string bytes = Str();
  blob.Empty();
  blob.Append(bytes.c_str(), static_cast<unsigned int>(std::strlen(bytes.c_str())));
}

void OXmlStream::SetConverter(XmlConverter* converter, int owns) {
  // The present converter goes unless it is the one installed again.
  if (m_ownedConverter.get() == converter) m_ownedConverter.release();
  if (!converter) {
    converter = new XmlConverter;
    owns = 1;
  }
  m_ownedConverter.reset(owns ? converter : nullptr);
  m_converter = converter;
}

OXmlStream& operator<<(OXmlStream& out, const unsigned short* text) {
  out.write(text, 0);
  return out;
}

OXmlStream& operator<<(OXmlStream& out, long value) {
  if (!out.m_stream) out.RaiseWriteError();
  *out.m_stream << value;
  return out;
}

OXmlStream& operator<<(OXmlStream& out, const XmlToken& token) {
  out.WriteImage(token, OXmlStream::VIRTUAL);
  return out;
}

OXmlStream& operator<<(OXmlStream& out, const XmlElement& element) {
  out.WriteImage(element, OXmlStream::VIRTUAL);
  return out;
}

OXmlStream& operator<<(OXmlStream& out, const XmlCharData& text) {
  out.WriteImage(text, OXmlStream::VIRTUAL);
  return out;
}

OXmlStream& operator<<(OXmlStream& out, const XmlETag& tag) {
  out.WriteImage(tag, OXmlStream::END_TAG);
  return out;
}

OXmlStream& operator<<(OXmlStream& out, const XmlSTag& tag) {
  out.WriteImage(tag, OXmlStream::START_TAG);
  return out;
}

OXmlStream& operator<<(OXmlStream& lhs, OXmlStream& rhs) {
  AD_ASSERT_TEXT(&lhs != &rhs, "&lhs != &rhs", kStreamUnit);
  AD_ASSERT_TEXT(rhs.GetIsStrstream(), "rhs.GetIsStrstream()", kStreamUnit);
  const std::string bytes = rhs.Str();
  lhs.write_internal(bytes.c_str(), static_cast<long>(std::strlen(bytes.c_str())));
  return lhs;
}
