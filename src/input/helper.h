// The expat callbacks of the input stream.
#pragma once

#include <memory>

#include "xmlstream.h"

class XmlHelper {
 public:
  static void STagHandler(void* userData, const char* name, const char** atts);
  static void ETagHandler(void* userData, const char* name);
  static void CharDataHandler(void* userData, const char* s, int len);
  static void DefaultHandler(void* userData, const char* s, int len);
  static void StartCdataHandler(void* userData);
  static void EndCdataHandler(void* userData);
  static void StartDoctypeDeclHandler(void* userData, const char* doctypeName, const char* sysid,
                                      const char* pubid, int hasInternalSubset);
  static void EndDoctypeDeclHandler(void* userData);
  // Turns a caught message exception into an error token at the tail of the
  // queue, so that the reader meets it in document order. Frees e.
  static void AddErrorTokensToStream(QmMsgException* e, IXmlStream* stream);

  // Raised by the readers when the head token is of the wrong type, or is a
  // queued error (expected XT_ILLEGAL accepts any other type).
  static void NeedTokenType(XmlToken* token, XmlToken_t expected);

  // Runs a handler's body so that no C++ exception crosses expat's C frames:
  // an exception the handler does not turn into a token is kept on the
  // stream, the parser is stopped, and the stream rethrows it once XML_Parse
  // has returned, so the reader meets it exactly where it arose.
  template <class Body>
  static void Guarded(IXmlStream* stream, Body body) {
    if (stream->m_parseStopped) return;
    try {
      body();
    } catch (...) {
      stream->m_pending = std::current_exception();
      StopParse(stream);
    }
  }
  static void StopParse(IXmlStream* stream);
  // Fills a new tag and queues it at the parser's place; a decoding error
  // queues an error token in its stead.
  template <class Tag, class Fill>
  static void QueueTag(IXmlStream* stream, Tag* raw, Fill fill) {
    std::unique_ptr<Tag> tag(raw);
    try {
      fill(*tag);
    } catch (QmMsgException* e) {
      AddErrorTokensToStream(e, stream);
      return;
    }
    stream->m_source->StoreSourceLocation(tag->m_location);
    stream->m_tokens.push_back(tag.get());
    tag.release();
    stream->m_newlineStripped = 0;
  }
  static void RaiseUnreached(void* userData);

  // Reads the text at the head into a new character-data item at the end
  // of element, as extracting it into element.AddCharData(u"") does.
  static void ExtractCharDataItem(IXmlStream& in, XmlElement& element);

  // Parse_More when the queue does not answer: reads and parses input
  // until it does or the input ends.
  [[gnu::noinline]] static int ReadMore(IXmlStream& s);

  static std::deque<XmlToken*>& Tokens(IXmlStream& s) { return s.m_tokens; }
  static XmlConverter* Converter(IXmlStream& s) { return s.m_converter; }
  static int& Accumulate(IXmlStream& s) { return s.m_accumulate; }
  static long long& Consumed(IXmlStream& s) { return s.m_consumed; }
  static void* Parser(IXmlStream& s) { return s.m_parser; }
  static long long MaxTokenSize(IXmlStream& s) { return s.m_maxTokenSize; }
  static void Refuse(IXmlStream& s, long id, long long arg) { s.RefuseAndStop(id, arg); }
  static int ParseBytes(IXmlStream& s, const char* data, int length, int isFinal) {
    return s.ParseBytes(data, length, isFinal);
  }
};
