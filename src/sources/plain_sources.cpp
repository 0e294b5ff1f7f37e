// The plain byte sources: the base with its locations, a caller's file or
// string stream, and a list of files read as one input.
#include <expat.h>

#include <cerrno>
#include <cstring>

#include "ids.h"
#include "input/handlers.h"
#include "sources/location.h"
#include "xmlstream.h"

using namespace nxmsg;

namespace {

// Reads n bytes from in. A stream that delivers nothing without reaching
// its end has failed (a directory, an I/O error, a stream that was never
// opened): that is raised with the system's reason, since the caller would
// otherwise take it for the end of the input or wait for bytes that never come.
long ReadOrRaise(std::istream& in, char* buf, long n, const Obx_String& name) {
  errno = 0;
  in.read(buf, n);
  const long got = static_cast<long>(in.gcount());
  if (got == 0 && n > 0 && !in.eof()) {
    const int reason = errno;
    QmMessage message(kCannotReadMsgId);
    message.SetParam("%_ARG1_%", name);
    message.SetParam("%_ARG2_%", Obx_String::FromUtf8(reason ? std::strerror(reason) : "the stream is not readable"));
    AdThrowMsgExcept(message, "", kStreamUnit, __LINE__);
  }
  return got;
}

Obx_String CallersStreamName() { return Obx_String::FromUtf8("(the caller's stream)"); }

}  // namespace

Obx_String RenderSrcLocGeneral(const XmlSourceLocation& loc, bool, const Obx_String& label, const Obx_String& name) {
  // An unset location renders the numbers it holds, like a set one.
  long long line = 0, column = 0, byteIndex = 0;
  loc.Position(line, column, byteIndex);
  Obx_String format;
  format.LoadString(kLocationFormatMsgId);
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
  long long line = 0, column = 0, byteIndex = 0;
  StoreParserPlace(parser, line, column, byteIndex);
  loc.SetPosition(line, column, byteIndex);
}

Obx_String IXmlStreamSource::RenderSourceLocation(const XmlSourceLocation& loc) const {
  return RenderSrcLocGeneral(loc, false, Obx_String(), Obx_String());
}


bool IXmlStreamFileSource::eof() { return !m_stream || m_stream->eof(); }

long IXmlStreamFileSource::read(char* buf, long n) {
  if (!m_stream) return 0;
  return ReadOrRaise(*m_stream, buf, n, CallersStreamName());
}

bool IXmlStreamStringSource::eof() { return !m_stream || m_stream->eof(); }

long IXmlStreamStringSource::read(char* buf, long n) {
  if (!m_stream) return 0;
  return ReadOrRaise(*m_stream, buf, n, CallersStreamName());
}

IXmlStreamSource* XmlStringSourceFactory(std::istringstream& in) { return new IXmlStreamStringSource(in); }

IXmlStreamMultiFileSource::IXmlStreamMultiFileSource(CStringArray& fileNames) {
  for (int k = 0; k < fileNames.GetSize(); ++k) m_fileNames.Add(fileNames.GetAt(k));
}

IXmlStreamMultiFileSource::~IXmlStreamMultiFileSource() { delete m_currentFile; }

long IXmlStreamMultiFileSource::readInternal(char* buf, long n) {
  if (m_currentFile && !m_currentFile->eof())
    return ReadOrRaise(*m_currentFile, buf, n, m_fileNames.GetAt(m_filesOpened - 1));
  if (m_currentFile) {
    m_currentFile->close();
    delete m_currentFile;
    m_currentFile = nullptr;
  }
  if (m_filesOpened < m_fileNames.GetSize()) {
    const Obx_String& name = m_fileNames.GetAt(m_filesOpened++);
    errno = 0;
    m_currentFile = new std::ifstream(MbcsFileName(name).getData(), std::ios::in | std::ios::binary);
    if (!m_currentFile->good()) {
      const int reason = errno;
      delete m_currentFile;
      m_currentFile = nullptr;
      QmMessage message(kCannotOpenMsgId);
      message.SetParam("%_ARG1_%", name);
      message.SetParam("%_ARG2_%", Obx_String::FromUtf8(reason ? std::strerror(reason) : "unknown reason"));
      AdThrowMsgExcept(message, "", kStreamUnit, __LINE__);
    }
    return ReadOrRaise(*m_currentFile, buf, n, name);
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
  long long line = 0, column = 0, byteIndex = 0;
  StoreParserPlace(parser, line, column, byteIndex);
  loc.SetPosition(line - m_lineBase, column - m_columnBase, byteIndex - m_byteBase, m_filesOpened - 1);
}

Obx_String IXmlStreamMultiFileSource::RenderSourceLocation(const XmlSourceLocation& loc) const {
  Obx_String label;
  label.LoadString(kFileLabelMsgId);
  int fileIndex = 0;
  if (!loc.Index(fileIndex) || fileIndex < 0 || fileIndex >= m_fileNames.GetSize())
    AdThrowMsgExcept(AdGetBadValue0MsgID(), "IndexIsValid", kStreamUnit, __LINE__);
  return RenderSrcLocGeneral(loc, true, label, m_fileNames.GetAt(fileIndex));
}
