// How a failure met while parsing becomes an error token, and how the
// stream names a place.
//
// The one path: whatever goes wrong while expat parses becomes one XmlError
// at the tail of the token queue (XmlTokenQueue::PushError), its text the
// whole report with the place in it, and nothing is raised then. A reader
// raises it when it reaches it (NeedTokenType), so errors arrive in document
// order, after every token before them. Three producers make the report:
//   QueueParseError         expat's own failure: the code's name, expat's
//                           text, the place and an excerpt of the input;
//   AddErrorTokensToStream  a message exception a handler caught (bytes that
//                           do not decode): its messages, then the place;
//   RefuseAndStop           input the stream refuses (too deep, too long,
//                           cut off inside elements): the message, and the
//                           parse ends there.
// What a handler does not catch (an assertion, markup the library does not
// accept) is not a token: the handler's guard keeps it and the stream
// rethrows it once expat has returned (see handlers.cpp).
#include <expat.h>
#include <unicode/utf8.h>

#include "ids.h"
#include "input/queue.h"

using namespace nxmsg;

namespace {

XML_Parser Parser(void* p) { return static_cast<XML_Parser>(p); }

const char* const kErrorNames[] = {"NONE",
                                   "NO_MEMORY",
                                   "SYNTAX",
                                   "NO_ELEMENTS",
                                   "INVALID_TOKEN",
                                   "UNCLOSED_TOKEN",
                                   "PARTIAL_CHAR",
                                   "TAG_MISMATCH",
                                   "DUPLICATE_ATTRIBUTE",
                                   "JUNK_AFTER_DOC_ELEMENT",
                                   "PARAM_ENTITY_REF",
                                   "UNDEFINED_ENTITY",
                                   "RECURSIVE_ENTITY_REF",
                                   "ASYNC_ENTITY",
                                   "BAD_CHAR_REF",
                                   "BINARY_ENTITY_REF",
                                   "ATTRIBUTE_EXTERNAL_ENTITY_REF",
                                   "MISPLACED_XML_PI",
                                   "UNKNOWN_ENCODING",
                                   "INCORRECT_ENCODING",
                                   "UNCLOSED_CDATA_SECTION",
                                   "EXTERNAL_ENTITY_HANDLING",
                                   "NOT_STANDALONE"};

Obx_String ErrorName(int code) {
  if (code >= 0 && code < static_cast<int>(sizeof kErrorNames / sizeof kErrorNames[0]))
    return Obx_String::FromUtf8(kErrorNames[code]);
  return Obx_String::Format("UNKNOWN CODE = %d", code);
}

// The bytes of [begin, end) cut to whole UTF-8 characters: leading
// continuation bytes are skipped, and the excerpt stops before the first
// ill-formed character or a zero byte, so it always decodes cleanly.
void TrimToCharacters(const char* buf, int begin, int end, int& from, int& to) {
  const unsigned char* b = reinterpret_cast<const unsigned char*>(buf);
  int i = begin;
  while (i < end && b[i] != 0 && b[i] >= 0x80 && !(b[i] >= 0xC0 && b[i] <= 0xFD)) ++i;
  from = i;
  while (i < end && b[i] != 0) {
    int next = i;
    UChar32 c;
    U8_NEXT(b, next, end, c);
    if (c < 0) break;
    i = next;
  }
  to = i;
}

}  // namespace

Obx_String IXmlStream::RenderCurrentLocation() const {
  AD_ASSERT_TEXT(m_source != nullptr, "m_source != __null", kStreamUnit);
  return m_source->RenderCurrentLocation();
}

Obx_String IXmlStream::RenderSourceLocation(const XmlSourceLocation& loc) const {
  AD_ASSERT_TEXT(m_source != nullptr, "m_source != __null", kStreamUnit);
  return m_source->RenderSourceLocation(loc);
}

void IXmlStream::QueueParseError(const char* buf, int n, long long start) {
  XML_Parser parser = Parser(m_parser.get());
  const int code = static_cast<int>(XML_GetErrorCode(parser));
  Obx_String report(NX_U16(u"*** Fatal error from XML_parse(): "));
  report.Append(ErrorName(code));

  Obx_String excerpt;
  const long long offset = static_cast<long long>(XML_GetCurrentByteIndex(parser)) - start;
  if (buf && offset >= 0 && offset < n) {
    const int failing = static_cast<int>(offset);
    const int before = failing < 15 ? failing : 15;
    const int after = n - failing < 15 ? n - failing : 15;
    int from = 0, to = 0;
    TrimToCharacters(buf, failing - before, failing + after, from, to);
    unsigned short* wide = nullptr;
    int size = 0;
    bool endsWithEscape = false;
    if (to > from) {
      UTF82UTF16(false, buf + from, to - from, false, false, wide, size, endsWithEscape);
      std::unique_ptr<unsigned short[]> owner(wide);
      AD_ASSERT_TEXT(wide != nullptr || size == 0, "encodedData != __null || encodedDataSize == 0", kStreamUnit);
      excerpt = Obx_String(wide, size);
    }
  }
  const Obx_String errorText = UTF82CString(XML_ErrorString(XML_GetErrorCode(parser)), false, false);
  report.Append(Obx_String::Format(kParseErrorDetailMsgId, errorText, RenderCurrentLocation(), excerpt));
  m_tokens->PushError(report);
}

void IXmlStream::AddErrorTokensToStream(QmMsgException* e) {
  // Freed however this ends.
  struct Free {
    QmMsgException* e;
    ~Free() { e->Delete(); }
  } free{e};
  AD_ASSERT_TEXT(m_source != nullptr, "stream->m_source != __null", kStreamUnit);
  Obx_String trailer;
  trailer.LoadString(kRaisedWhileParsingMsgId);
  trailer.Append(RenderCurrentLocation());
  Obx_String text;
  for (int k = 0; k < e->GetMessageCount(); ++k) text.Append(e->GetMessage(k).FullMsg());
  text.Append(trailer);
  m_tokens->PushError(text);
}

void IXmlStream::RefuseAndStop(long id, long long arg, const XmlSourceLocation* at) {
  QmMessage message(id);
  message.SetParam("%_ARG1_%", AdStr(arg));
  message.SetParam("%_LOCATION_%", at ? RenderSourceLocation(*at) : RenderCurrentLocation());
  m_tokens->PushError(message.FullMsg());
  m_parseStopped = true;
  // Called from a handler, this stops expat inside XML_Parse; between two
  // calls, the flag alone keeps any further byte from it.
  XML_ParsingStatus status;
  XML_GetParsingStatus(Parser(m_parser.get()), &status);
  if (status.parsing == XML_PARSING) XML_StopParser(Parser(m_parser.get()), XML_FALSE);
}
