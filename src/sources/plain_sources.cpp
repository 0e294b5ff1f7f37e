#include <expat.h>

#include "sources/location.h"
#include "xmlstream.h"

namespace {
const char* const kUnit = "xmlstream";
}

Obx_String RenderSrcLocGeneral(const XmlSourceLocation& loc, bool, const Obx_String& label, const Obx_String& name) {
  if (!loc.HasBeenSet()) {
    // The catalogue's text for an unset location is loaded and dropped: an
    // unset location renders its numbers like a set one.
    Obx_String unused;
    unused.LoadString(27321);
  }
  int line = 0, column = 0, byteIndex = 0, fileIndex = 0;
  bool hasFileIndex = false;
  loc.Values(line, column, byteIndex, hasFileIndex, fileIndex);
  Obx_String format;
  format.LoadString(27310);
  format.Append(label);
  return Obx_String::Format(format.GetData(), line, column, byteIndex, name);
}

IXmlStreamSource::~IXmlStreamSource() = default;

Obx_String IXmlStreamSource::RenderCurrentLocation() const {
  XmlSourceLocation loc;
  StoreSourceLocation(loc);
  return RenderSourceLocation(loc);
}

void IXmlStreamSource::StoreSourceLocation(XmlSourceLocation& loc) const {
  XML_Parser parser = static_cast<XML_Parser>(m_parser);
  if (!parser) {
    loc.Unset();
    return;
  }
  loc.Set(static_cast<int>(XML_GetCurrentLineNumber(parser)), static_cast<int>(XML_GetCurrentColumnNumber(parser)),
          static_cast<int>(XML_GetCurrentByteIndex(parser)));
}

Obx_String IXmlStreamSource::RenderSourceLocation(const XmlSourceLocation& loc) const {
  return RenderSrcLocGeneral(loc, false, Obx_String(), Obx_String());
}

// File and string sources report only the end-of-file bit: a stream that
// failed otherwise reads as 0 bytes and is left to the stream's check.
bool IXmlStreamFileSource::eof() { return !m_stream || m_stream->eof(); }

long IXmlStreamFileSource::read(char* buf, long n) {
  if (!m_stream) return 0;
  m_stream->read(buf, n);
  return static_cast<long>(m_stream->gcount());
}

bool IXmlStreamStringSource::eof() { return !m_stream || m_stream->eof(); }

long IXmlStreamStringSource::read(char* buf, long n) {
  if (!m_stream) return 0;
  m_stream->read(buf, n);
  return static_cast<long>(m_stream->gcount());
}

IXmlStreamSource* XmlStringSourceFactory(std::istringstream& in) { return new IXmlStreamStringSource(in); }

IXmlStreamMultiFileSource::IXmlStreamMultiFileSource(CStringArray& fileNames) {
  for (int k = 0; k < fileNames.GetSize(); ++k) m_fileNames.Add(fileNames.GetAt(k));
}

IXmlStreamMultiFileSource::~IXmlStreamMultiFileSource() { delete m_currentFile; }

long IXmlStreamMultiFileSource::readInternal(char* buf, long n) {
  if (m_currentFile && !m_currentFile->eof()) {
    m_currentFile->read(buf, n);
    return static_cast<long>(m_currentFile->gcount());
  }
  if (m_currentFile) {
    m_currentFile->close();
    delete m_currentFile;
    m_currentFile = nullptr;
  }
  if (m_filesOpened < m_fileNames.GetSize()) {
    const Obx_String& name = m_fileNames.GetAt(m_filesOpened++);
    m_currentFile = new std::ifstream(MbcsFileName(name).getData(), std::ios::in | std::ios::binary);
    if (!m_currentFile->good()) {
      delete m_currentFile;
      m_currentFile = nullptr;
      QmMessage message(27309);
      message.SetParam("%_ARG1_%", name);
      AdThrowMsgExcept(message, "", kUnit, __LINE__);
    }
    m_currentFile->read(buf, n);
    return static_cast<long>(m_currentFile->gcount());
  }
  return 0;
}

long IXmlStreamMultiFileSource::read(char* buf, long n) {
  // A step that returns nothing has closed a used-up file or opened an empty
  // one, so this ends after at most two steps a file. Stopping earlier would
  // hand the stream a zero read before the end of the input, which it
  // rightly takes for a broken source.
  long got = readInternal(buf, n);
  while (got == 0 && !eof()) got = readInternal(buf, n);
  return got;
}

bool IXmlStreamMultiFileSource::eof() {
  if (m_filesOpened < m_fileNames.GetSize()) return false;
  return !m_currentFile || m_currentFile->eof();
}

void IXmlStreamMultiFileSource::StoreSourceLocation(XmlSourceLocation& loc) const {
  XML_Parser parser = static_cast<XML_Parser>(m_parser);
  // After the last file was closed the parser may still be working through
  // what it held back of it: the place is still in that file.
  if (m_filesOpened == 0 || !parser) {
    loc.Unset();
    return;
  }
  loc.Set(static_cast<int>(XML_GetCurrentLineNumber(parser)) - m_lineBase,
          static_cast<int>(XML_GetCurrentColumnNumber(parser)) - m_columnBase,
          static_cast<int>(XML_GetCurrentByteIndex(parser)) - m_byteBase, m_filesOpened - 1);
}

Obx_String IXmlStreamMultiFileSource::RenderSourceLocation(const XmlSourceLocation& loc) const {
  if (!loc.HasBeenSet()) {
    Obx_String unused;
    unused.LoadString(27321);
  }
  Obx_String label;
  label.LoadString(27311);
  int fileIndex = 0;
  if (!loc.Index(fileIndex) || fileIndex < 0 || fileIndex >= m_fileNames.GetSize())
    AdThrowMsgExcept(AdGetBadValue0MsgID(), "IndexIsValid", kUnit, __LINE__);
  return RenderSrcLocGeneral(loc, true, label, m_fileNames.GetAt(fileIndex));
}
