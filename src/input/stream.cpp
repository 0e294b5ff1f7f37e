// The input stream's driver: it owns the source, the parser, the converter
// and the token queue, feeds the source's bytes to expat chunk by chunk
// until the queue answers the reader, and hands whole tokens out and back.
#include <expat.h>

#include <memory>
#include <optional>

#include "ids.h"
#include "input/handlers.h"
#include "input/queue.h"
#include "xmlstream.h"

using namespace nxmsg;

namespace {

XML_Parser Parser(void* p) { return static_cast<XML_Parser>(p); }

// The artificial root of embedded mode: what the source holds becomes its
// content, so the source may hold any number of top-level elements.
const char kLabelBegin[] = "<queazy>";
const char kLabelEnd[] = "</queazy>";

}  // namespace

void IXmlStream::FreeParser::operator()(void* parser) const noexcept { XML_ParserFree(Parser(parser)); }

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
  // Owned from the first line: a constructor that raises never runs the
  // destructor, but the members free what they hold, the source included.
  m_source.reset(source);
  m_converter.reset(new XmlConverter);
  m_tokens.reset(new XmlTokenQueue);
  m_asciiOnly = asciiOnly;
  m_lenientDecoding = lenientDecoding;
  BuildParser();
}

IXmlStream::~IXmlStream() { Close(); }

void IXmlStream::BuildParser() {
  // The document encoding is always UTF-8, whatever the document declares.
  XML_Parser parser = XML_ParserCreate("UTF-8");
  if (!parser) throw std::bad_alloc();
  m_parser.reset(parser);
  InstallHandlers(parser, *this);
  if (m_source) m_source->SetXmlParser(parser);
}

int IXmlStream::ParseBytes(const char* data, int length, int isFinal) {
  // Expat chooses the input's encoding on its first two bytes, before any
  // event: the handlers' count of places holds for UTF-8 only.
  if (m_bytesParsed < 2 && length > 0) {
    const int first = m_bytesParsed == 0 ? static_cast<unsigned char>(data[0]) : m_firstByte;
    if (m_bytesParsed + length < 2) {
      m_firstByte = first;
    } else {
      const int second = static_cast<unsigned char>(data[m_bytesParsed == 0 ? 1 : 0]);
      m_countPlaces = first != 0 && second != 0 && !(first == 0xFE && second == 0xFF) &&
                      !(first == 0xFF && second == 0xFE);
    }
  }
  const XML_Status status = XML_Parse(Parser(m_parser.get()), data, length, isFinal);
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
  XML_Parser parser = Parser(m_parser.get());
  XML_SetReparseDeferralEnabled(parser, XML_FALSE);
  if (XML_ParseBuffer(parser, 0, XML_FALSE) == XML_STATUS_ERROR && !m_pending && !m_parseStopped)
    QueueParseError(nullptr, 0, m_bytesParsed);
  RethrowPending();
#endif
}

void IXmlStream::ReadAndParse(char* buf, unsigned int bufSize) {
  AD_ASSERT_TEXT(buf != nullptr && bufSize > 1, "buf != __null && bufSize > 1", kStreamUnit);
  const long n = m_source->read(buf, static_cast<long>(bufSize) - 1);
  if (n < 1) {
    AD_ASSERT_TEXT(m_source->eof(), "m_source->eof()", kStreamUnit);
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
  XML_Parser parser = Parser(m_parser.get());
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
  RefuseAndStop(kTokenTooLongMsgId, m_maxTokenSize);
}

int IXmlStream::FillTokenBuffer(char* buf, unsigned int bufSize, int accumulate) {
  // The queue is asked first: when it already holds what the reader needs
  // the answer is the same whether the input has ended or not.
  std::optional<XmlTokenQueue::WholeText> whole;
  if (accumulate) whole.emplace(*m_tokens);
  for (;;) {
    if (m_tokens->Answers()) return 1;
    if (m_source->eof() || m_parseStopped) return m_tokens->Empty() ? 0 : 1;
    ReadAndParse(buf, bufSize);
  }
}

int IXmlStream::Parse_More() {
  // Nearly every call is answered by the queue: the input buffer (whose
  // size makes the compiler probe the stack for it) is set up only when
  // there is something to read.
  if (m_tokens->Answers()) return 1;
  return ReadMore();
}

int IXmlStream::ReadMore() {
  char buf[4097];
  // The queue's own wish for whole text stands; nothing is added to it.
  return FillTokenBuffer(buf, sizeof buf, 0);
}

int IXmlStream::Parse_First() {
  char buf[2];
#ifdef NXXML_HAVE_REPARSE_DEFERRAL
  // Fed one byte at a time, expat would defer a partial token until its
  // buffer doubled, and so read past the first token's end.
  XML_Parser parser = Parser(m_parser.get());
  XML_SetReparseDeferralEnabled(parser, XML_FALSE);
  struct Restore {
    IXmlStream& s;
    ~Restore() {
      if (s.m_parser && !s.m_heldBackFlushed) XML_SetReparseDeferralEnabled(Parser(s.m_parser.get()), XML_TRUE);
    }
  } restore{*this};
#endif
  return FillTokenBuffer(buf, sizeof buf, 0);
}

XmlToken* IXmlStream::GetNextToken() {
  XmlTokenQueue::WholeText whole(*m_tokens);
  if (!Parse_More()) return nullptr;
  m_tokens->NeedHeadType(XT_ILLEGAL);
  return m_tokens->Pop();
}

int IXmlStream::SkipToken() {
  if (!Parse_More()) return 0;
  m_tokens->NeedHeadType(XT_ILLEGAL);
  m_tokens->DropHead();
  return 1;
}

void IXmlStream::PushXmlToken(XmlToken* token) { m_tokens->PushFront(std::unique_ptr<XmlToken>(token)); }

bool IXmlStream::End() { return !Parse_More(); }

bool IXmlStream::Finish() {
  if (!m_finished && m_parser && m_source) {
    m_finished = true;
    XML_Parser parser = Parser(m_parser.get());
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
          RefuseAndStop(kEndsInsideMsgId, m_depth);
      }
    }
    // Nothing more is read, whatever happened.
    m_parseStopped = true;
  }
  if (m_tokens->Empty()) return false;
  m_tokens->NeedHeadType(XT_ILLEGAL);
  return true;
}

void IXmlStream::OpenEmbeddedRoot() {
  // The artificial root goes to expat ahead of anything from the source.
  ParseBytes(kLabelBegin, 8, 0);
  m_embedded = true;
}

void IXmlStream::CloseEmbeddedRoot() {
  m_finished = true;
  m_embedded = false;
  // Expat is told here that the input has ended; what that reveals (a cut
  // last element) is raised by the read that follows, at its place.
  const long long start = m_bytesParsed;
  if (!ParseBytes(kLabelEnd, 9, 1) && !m_parseStopped) QueueParseError(kLabelEnd, 9, start);
  m_parseStopped = true;
}

void IXmlStream::CloseEmbedded() {
  m_embedded = false;
  // An element left open would only meet the artificial end tag: say what
  // it is instead of reporting a mismatch with a tag the input never had.
  if (m_depth > 1) {
    RefuseAndStop(kEndsInsideMsgId, m_depth - 1);
    return;
  }
  // A failure here lies in what the input left unfinished, never in the
  // artificial end tag: no excerpt of that tag is shown.
  if (!ParseBytes(kLabelEnd, 9, 1)) {
    if (!m_parseStopped) QueueParseError(nullptr, 0, m_bytesParsed);
    return;
  }
  // The artificial end tag is the last token; the reader never sees it.
  if (!m_tokens->Empty() && m_tokens->Tail()->GetType() == XT_ETAG) m_tokens->DropTail();
}

void IXmlStream::Close() {
  m_parser.reset();
  m_converter.reset();
  m_source.reset();
  m_tokens->Clear();
}

void IXmlStream::SetConverter(XmlConverter* converter) {
  if (converter && converter == m_converter.get()) return;
  m_converter.reset(converter ? converter : new XmlConverter);
}
