#include <expat.h>
#include <unicode/utf8.h>

#include <cstring>
#include <memory>
#include <typeinfo>

#include "ids.h"
#include "input/helper.h"
#include "xmlstream.h"

namespace {

const char* const kUnit = "xmlstream";

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

// Whether a token is character data (or an error, which is made as such):
// the tags the parser makes are told apart without a cast through the
// hierarchy, which this test runs for nearly every token read.
// The type records are compared by address: the library's own classes have
// one record each, and comparing them by value would compare their names
// whenever the addresses differ, which for a tag is every time. Any other
// class is left to the cast.
bool IsText(XmlToken* token) {
  const std::type_info* type = &typeid(*token);
  if (type == &typeid(XmlSTag) || type == &typeid(XmlETag)) return false;
  if (type == &typeid(XmlCharData)) return true;
  return dynamic_cast<XmlCharData*>(token) != nullptr;
}

// Whether the queue already answers the reader, whatever is still to come.
bool QueueAnswers(const std::deque<XmlToken*>& tokens, int accumulate) {
  const std::size_t count = tokens.size();
  return count > 1 || (count == 1 && !(accumulate && IsText(tokens.back())));
}

}  // namespace

IXmlStream::IXmlStream(IXmlStreamSource* source, bool asciiOnly, bool lenientDecoding) {
  Init(source, asciiOnly, lenientDecoding);
}

IXmlStream::IXmlStream(std::istringstream& in, bool asciiOnly, bool lenientDecoding) {
  Init(new IXmlStreamStringSource(in), asciiOnly, lenientDecoding);
}

IXmlStream::IXmlStream(std::ifstream& in, bool asciiOnly, bool lenientDecoding) {
  Init(new IXmlStreamFileSource(in), asciiOnly, lenientDecoding);
}

IXmlStream::IXmlStream(CStringArray& fileNames, bool asciiOnly, bool lenientDecoding) {
  Init(new IXmlStreamMultiFileSource(fileNames), asciiOnly, lenientDecoding);
}

void IXmlStream::Init(IXmlStreamSource* source, bool asciiOnly, bool lenientDecoding) {
  // A constructor that raises never runs the destructor: what is owned so
  // far is freed here, the source included, since the stream took it.
  std::unique_ptr<IXmlStreamSource> ownedSource(source);
  std::unique_ptr<XmlConverter> converter(new XmlConverter);
  m_accumulate = 0;
  m_newlineStripped = 0;
  m_lastCharDataEndedWithEscape = false;
  m_asciiOnly = asciiOnly;
  m_lenientDecoding = lenientDecoding;
  m_source = ownedSource.get();
  try {
    BuildParser();
  } catch (...) {
    m_source = nullptr;
    throw;
  }
  m_converter = converter.release();
  ownedSource.release();
}

IXmlStream::~IXmlStream() { Close(); }

void IXmlStream::BuildParser() {
  XML_Parser parser = XML_ParserCreate("UTF-8");
  if (!parser) throw std::bad_alloc();
  m_parser = parser;
  XML_SetElementHandler(parser, XmlHelper::STagHandler, XmlHelper::ETagHandler);
  XML_SetCdataSectionHandler(parser, XmlHelper::StartCdataHandler, XmlHelper::EndCdataHandler);
  XML_SetCharacterDataHandler(parser, XmlHelper::CharDataHandler);
  XML_SetDefaultHandler(parser, XmlHelper::DefaultHandler);
  XML_SetUserData(parser, this);
  XML_SetDoctypeDeclHandler(parser, XmlHelper::StartDoctypeDeclHandler, XmlHelper::EndDoctypeDeclHandler);
  if (m_source) m_source->SetXmlParser(parser);
}

int IXmlStream::ParseBytes(const char* data, int length, int isFinal) {
  const XML_Status status = XML_Parse(Parser(m_parser), data, length, isFinal);
  m_bytesParsed += length;
  RethrowPending();
  return status == XML_STATUS_OK;
}

void IXmlStream::RethrowPending() {
  if (!m_pending) return;
  std::exception_ptr pending = m_pending;
  m_pending = nullptr;
  std::rethrow_exception(pending);
}

void IXmlStream::FlushHeldBack() {
#ifdef NXXML_HAVE_REPARSE_DEFERRAL
  // While reading, expat holds back a large partial token until enough new
  // input has come, which keeps huge tokens linear to parse. At the end of
  // the input nothing more will come: let it parse what it holds, without
  // telling it that the input has ended.
  // Before the first byte expat has no buffer to parse again, and nothing
  // to hold back.
  if (m_heldBackFlushed || m_parseStopped || !m_parser || m_bytesParsed == 0) return;
  m_heldBackFlushed = true;
  XML_Parser parser = Parser(m_parser);
  XML_SetReparseDeferralEnabled(parser, XML_FALSE);
  if (XML_ParseBuffer(parser, 0, XML_FALSE) == XML_STATUS_ERROR && !m_pending && !m_parseStopped)
    QueueParseError(nullptr, 0, m_bytesParsed);
  RethrowPending();
#endif
}

void IXmlStream::QueueParseError(const char* buf, int n, long long start) {
  XML_Parser parser = Parser(m_parser);
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
      AD_ASSERT_TEXT(wide != nullptr || size == 0, "encodedData != __null || encodedDataSize == 0", kUnit);
      excerpt = Obx_String(wide, size);
      delete[] wide;
    }
  }
  const Obx_String errorText = UTF82CString(XML_ErrorString(XML_GetErrorCode(parser)), false, false);
  report.Append(Obx_String::Format(27313L, errorText, RenderCurrentLocation(), excerpt));
  m_tokens.push_back(new XmlError(report));
}

void IXmlStream::ReadAndParse(char* buf, unsigned int bufSize) {
  AD_ASSERT_TEXT(buf != nullptr && bufSize > 1, "buf != __null && bufSize > 1", kUnit);
  const long n = m_source->read(buf, static_cast<long>(bufSize) - 1);
  if (n < 1) {
    AD_ASSERT_TEXT(m_source->eof(), "m_source->eof()", kUnit);
    FlushHeldBack();
    return;
  }
  buf[n] = 0;
  const long long start = m_bytesParsed;
  // The final flag is never given: the readers meet the end of the input
  // themselves, so an unclosed root is not an error here.
  if (!ParseBytes(buf, static_cast<int>(n), 0)) {
    if (!m_parseStopped) QueueParseError(buf, static_cast<int>(n), start);
    return;
  }
  CheckHeldBack();
  if (m_source->eof()) FlushHeldBack();
}

void IXmlStream::CheckHeldBack() {
  if (m_parseStopped || m_bytesParsed - m_consumed <= m_maxTokenSize) return;
#ifdef NXXML_HAVE_REPARSE_DEFERRAL
  // Deferral may hold finished tokens behind an unfinished one: have expat
  // parse what it holds before judging what is left.
  XML_Parser parser = Parser(m_parser);
  XML_SetReparseDeferralEnabled(parser, XML_FALSE);
  const XML_Status status = XML_ParseBuffer(parser, 0, XML_FALSE);
  if (!m_heldBackFlushed) XML_SetReparseDeferralEnabled(parser, XML_TRUE);
  RethrowPending();
  if (status == XML_STATUS_ERROR) {
    if (!m_parseStopped) QueueParseError(nullptr, 0, m_bytesParsed);
    return;
  }
  if (m_parseStopped || m_bytesParsed - m_consumed <= m_maxTokenSize) return;
#endif
  RefuseAndStop(nxmsg::kTokenTooLongMsgId, m_maxTokenSize);
}

void IXmlStream::RefuseAndStop(long id, long long arg, const XmlSourceLocation* at) {
  QmMessage message(id);
  message.SetParam("%_ARG1_%", AdStr(arg));
  message.SetParam("%_LOCATION_%", at ? RenderSourceLocation(*at) : RenderCurrentLocation());
  m_tokens.push_back(new XmlError(message.FullMsg()));
  m_parseStopped = true;
  // Called from a handler, this stops expat inside XML_Parse; between two
  // calls, the flag alone keeps any further byte from it.
  XML_ParsingStatus status;
  XML_GetParsingStatus(Parser(m_parser), &status);
  if (status.parsing == XML_PARSING) XML_StopParser(Parser(m_parser), XML_FALSE);
}

int IXmlStream::FillTokenBuffer(char* buf, unsigned int bufSize, int accumulate) {
  // The queue is asked first: when it already holds what the reader needs
  // the answer is the same whether the input has ended or not.
  for (;;) {
    if (QueueAnswers(m_tokens, accumulate)) return 1;
    if (m_source->eof() || m_parseStopped) return m_tokens.empty() ? 0 : 1;
    ReadAndParse(buf, bufSize);
  }
}

int IXmlStream::Parse_More() {
  // Nearly every call is answered by the queue: the input buffer (whose
  // size makes the compiler probe the stack for it) is set up only when
  // there is something to read.
  if (QueueAnswers(m_tokens, m_accumulate)) return 1;
  return XmlHelper::ReadMore(*this);
}

int XmlHelper::ReadMore(IXmlStream& s) {
  char buf[4097];
  return s.FillTokenBuffer(buf, sizeof buf, s.m_accumulate);
}

int IXmlStream::Parse_First() {
  char buf[2];
#ifdef NXXML_HAVE_REPARSE_DEFERRAL
  // Fed one byte at a time, expat would defer a partial token until its
  // buffer doubled, and so read past the first token's end.
  XML_Parser parser = Parser(m_parser);
  XML_SetReparseDeferralEnabled(parser, XML_FALSE);
  struct Restore {
    IXmlStream& s;
    ~Restore() {
      if (s.m_parser && !s.m_heldBackFlushed) XML_SetReparseDeferralEnabled(Parser(s.m_parser), XML_TRUE);
    }
  } restore{*this};
#endif
  return FillTokenBuffer(buf, sizeof buf, 0);
}

XmlToken* IXmlStream::GetNextToken() {
  m_accumulate = 1;
  if (!Parse_More()) {
    m_accumulate = 0;
    return nullptr;
  }
  XmlToken* head = Head();
  XmlHelper::NeedTokenType(head, XT_ILLEGAL);
  PopHead();
  m_accumulate = 0;
  return head;
}

int IXmlStream::SkipToken() {
  if (!Parse_More()) return 0;
  XmlToken* head = Head();
  XmlHelper::NeedTokenType(head, XT_ILLEGAL);
  PopHead();
  delete head;
  return 1;
}

void IXmlStream::PushXmlToken(XmlToken* token) { m_tokens.push_front(token); }

bool IXmlStream::End() { return !Parse_More(); }

bool IXmlStream::Finish() {
  if (!m_finished && m_parser && m_source) {
    m_finished = true;
    XML_Parser parser = Parser(m_parser);
    // What the reader left unread is judged too, up to the first error.
    {
      char buf[4097];
      while (!m_parseStopped && !m_source->eof() && XML_GetErrorCode(parser) == XML_ERROR_NONE)
        ReadAndParse(buf, sizeof buf);
    }
    if (!m_parseStopped && XML_GetErrorCode(parser) == XML_ERROR_NONE) {
      if (m_embedded) {
        CloseEmbedded();
      } else if (!ParseBytes("", 0, 1) && !m_parseStopped) {
        // No element at all is for the reader to judge: an empty input is
        // just an input at its end.
        if (XML_GetErrorCode(parser) != XML_ERROR_NO_ELEMENTS)
          QueueParseError(nullptr, 0, m_bytesParsed);
        else if (m_depth > 0)
          RefuseAndStop(nxmsg::kEndsInsideMsgId, m_depth);
      }
    }
    // Nothing more is read, whatever happened.
    m_parseStopped = true;
  }
  if (m_tokens.empty()) return false;
  XmlHelper::NeedTokenType(Head(), XT_ILLEGAL);
  return true;
}

void IXmlStream::Close() {
  if (m_parser) {
    XML_ParserFree(Parser(m_parser));
    m_parser = nullptr;
  }
  delete m_converter;
  m_converter = nullptr;
  delete m_source;
  m_source = nullptr;
  for (XmlToken* token : m_tokens) delete token;
  m_tokens.clear();
}

void IXmlStream::SetConverter(XmlConverter* converter) {
  delete m_converter;
  m_converter = converter ? converter : new XmlConverter;
}

Obx_String IXmlStream::RenderCurrentLocation() const {
  AD_ASSERT_TEXT(m_source != nullptr, "m_source != __null", kUnit);
  return m_source->RenderCurrentLocation();
}

Obx_String IXmlStream::RenderSourceLocation(const XmlSourceLocation& loc) const {
  AD_ASSERT_TEXT(m_source != nullptr, "m_source != __null", kUnit);
  return m_source->RenderSourceLocation(loc);
}
