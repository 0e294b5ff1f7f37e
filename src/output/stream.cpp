#include <cstdlib>
#include <cstring>
#include <memory>

#include "output/render.h"
#include "xmlstream.h"

namespace {

const char* const kUnit = "xmlstream";

const long kStreamNotReadyMsgId = 27303;  // a caller's file stream is not good
const long kWriteFailedMsgId = 27320;     // a write to a file failed

}  // namespace

XmlException::~XmlException() = default;

void OXmlStream::Init(std::ostream* stream, int isStrstream, long long maxSize) {
  m_stream = stream;
  m_isStrstream = isStrstream;
  m_maxSize = maxSize;
}

OXmlStream::OXmlStream(std::ostream& os, long long maxSize) { Init(&os, 1, maxSize); }

OXmlStream::OXmlStream(std::ostringstream& os, long long maxSize) {
  Init(&os, 1, maxSize);
  m_strstream = &os;
}

OXmlStream::OXmlStream(std::ofstream& os, long long maxSize) {
  if (!os.good()) AdThrowMsgExcept(QmMessage(kStreamNotReadyMsgId), "", kUnit, __LINE__);
  Init(&os, 0, maxSize);
  m_fileStream = &os;
}

OXmlStream::OXmlStream(long long maxSize) {
  std::unique_ptr<std::ostringstream> memory(new std::ostringstream(std::ios::out | std::ios::binary));
  Init(memory.get(), 1, maxSize);
  m_strstream = memory.get();
  m_ownedStream = memory.release();
}

OXmlStream::~OXmlStream() {
  Close();
  if (m_ownsConverter) delete m_converter;
  delete m_ownedStream;
  std::free(m_buffer);
}

void OXmlStream::write(const char* bytes, long n) {
  AD_ASSERT_TEXT(bytes != nullptr || n <= 0, "bytes != __null || n <= 0", kUnit);
  write_internal(bytes, n);
}

void OXmlStream::write(const unsigned short* wideChars, long n) {
  AD_ASSERT_TEXT(wideChars != nullptr, "wideChars != __null", kUnit);
  const std::size_t length = static_cast<std::size_t>(n < 1 ? _tcslen(wideChars) : n);
  Utf8Sink sink(m_buffer, m_bufferCapacity, m_escapeControlChars);
  sink.Text(wideChars, length, Utf8Sink::RAW);
  sink.Finish();
  write_internal(sink.Data(), static_cast<long>(sink.Size()));
}

void OXmlStream::WriteImage(const XmlToken& token, int how) {
  Utf8Sink sink(m_buffer, m_bufferCapacity, m_escapeControlChars);
  ImageRender(sink, m_converter).Token(token, static_cast<ImageRender::Image>(how));
  sink.Finish();
  write_internal(sink.Data(), static_cast<long>(sink.Size()));
}

void OXmlStream::RaiseWriteError() {
  ++m_writeErrors;
  AdThrowMsgExcept(QmMessage(kWriteFailedMsgId), "", kUnit, __LINE__);
}

void OXmlStream::do_write(const char* bytes, long n) {
  // A file series closed for good has no stream left: writing to it fails
  // as a write to a closed file does.
  if (!m_stream) RaiseWriteError();
  // A negative count would put the stream into a failed state for good.
  if (n > 0) m_stream->write(bytes, n);
  if (!m_isStrstream && m_stream->fail()) RaiseWriteError();
  if (n > 0) m_bytesWritten += n;
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
  if (m_ownsConverter && m_converter && m_converter != converter) delete m_converter;
  m_converter = converter;
  m_ownsConverter = owns ? 1 : 0;
  if (!m_converter) {
    m_converter = new XmlConverter;
    m_ownsConverter = 1;
  }
}

void OXmlStream::Close() {
  if (!m_stream) return;
  if (m_isStrstream) {
    m_closed = 1;
    return;
  }
  // Bytes still buffered reach the file only here: a failure now is a
  // failed write too, though Close() itself raises nothing.
  const bool wasGood = !m_stream->fail();
  m_stream->flush();
  if (m_fileStream) m_fileStream->close();
  if (wasGood && m_stream->fail()) ++m_writeErrors;
  m_bytesWritten = 0;
  if (!m_fileName.IsEmpty()) {
    delete m_fileStream;
    m_stream = nullptr;
    m_fileStream = nullptr;
  }
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
  OXmlStreamHelper::WriteImage(out, token, ImageRender::VIRTUAL);
  return out;
}

OXmlStream& operator<<(OXmlStream& out, const XmlElement& element) {
  OXmlStreamHelper::WriteImage(out, element, ImageRender::VIRTUAL);
  return out;
}

OXmlStream& operator<<(OXmlStream& out, const XmlCharData& text) {
  OXmlStreamHelper::WriteImage(out, text, ImageRender::VIRTUAL);
  return out;
}

OXmlStream& operator<<(OXmlStream& out, const XmlETag& tag) {
  OXmlStreamHelper::WriteImage(out, tag, ImageRender::END_TAG);
  return out;
}

OXmlStream& operator<<(OXmlStream& out, const XmlSTag& tag) {
  OXmlStreamHelper::WriteImage(out, tag, ImageRender::START_TAG);
  return out;
}

OXmlStream& operator<<(OXmlStream& lhs, OXmlStream& rhs) {
  AD_ASSERT_TEXT(&lhs != &rhs, "&lhs != &rhs", kUnit);
  AD_ASSERT_TEXT(rhs.GetIsStrstream(), "rhs.GetIsStrstream()", kUnit);
  const std::string bytes = rhs.Str();
  lhs.write_internal(bytes.c_str(), static_cast<long>(std::strlen(bytes.c_str())));
  return lhs;
}
