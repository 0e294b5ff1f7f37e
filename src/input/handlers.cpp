// The expat callbacks: each turns what expat reports (UTF-8) into tokens of
// the content model (UTF-16), stamped with their place, at the tail of the
// stream's queue, and refuses the XML the library does not accept.
#include "input/handlers.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "ids.h"
#include "input/decode.h"
#include "input/queue.h"
#include "sanitizer.h"

using namespace nxmsg;

namespace {

#if defined(__SSE2__)
// The characters that start among the bytes of v picked by the lanes of
// inside: every byte but those that continue one (10xxxxxx, the signed
// bytes below -64).
inline long long CharactersIn(__m128i v, __m128i inside) {
  const __m128i trails = _mm_and_si128(_mm_cmplt_epi8(v, _mm_set1_epi8(static_cast<char>(0xC0))), inside);
  const __m128i counts = _mm_sad_epu8(_mm_sub_epi8(_mm_setzero_si128(), trails), _mm_setzero_si128());
  const __m128i picked = _mm_sad_epu8(_mm_sub_epi8(_mm_setzero_si128(), inside), _mm_setzero_si128());
  return _mm_cvtsi128_si32(picked) + _mm_extract_epi16(picked, 4) - _mm_cvtsi128_si32(counts) -
         _mm_extract_epi16(counts, 4);
}

// Whether a lane of v picked by inside is a line end.
inline bool HasLineEnd(__m128i v, __m128i inside) {
  const __m128i ends = _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('\n')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\r')));
  return _mm_movemask_epi8(_mm_and_si128(ends, inside)) != 0;
}
#endif

// Moves line and column over the n bytes of an event as expat counts them:
// a line feed, a carriage return, or the two together end a line (the
// column starts again at 0); every other character, whatever its length in
// bytes, is one column. The pair is only seen as one inside the bytes
// given, as expat sees it, but an event never ends between the two.
void CountPlace(const char* s, std::size_t n, long long& line, long long& column) {
  std::size_t k = 0;
#if defined(__SSE2__)
  // Sixteen bytes at a time while they hold no line end; most events of a
  // packet hold none at all.
  const __m128i all = _mm_set1_epi8(-1);
  for (; k + 16 <= n; k += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + k));
    if (HasLineEnd(v, all)) break;
    column += CharactersIn(v, all);
  }
#if !NXXML_ASAN
  // The last few bytes the same way, read as a whole block when that stays
  // in their page (a read cannot fault there); only the bytes of the event
  // are counted. The address checker, which looks at bytes rather than
  // pages, is given the byte loop.
  const std::size_t left = n - k;
  if (left > 0 && left < 16 && (reinterpret_cast<std::uintptr_t>(s + k) & 4095) <= 4096 - 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + k));
    const __m128i lanes = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m128i inside = _mm_cmplt_epi8(lanes, _mm_set1_epi8(static_cast<char>(left)));
    if (!HasLineEnd(v, inside)) {
      column += CharactersIn(v, inside);
      return;
    }
  }
#endif
#endif
  bool afterCr = false;
  for (; k < n; ++k) {
    const unsigned char c = static_cast<unsigned char>(s[k]);
    if (c == '\n') {
      if (!afterCr) ++line;
      column = 0;
      afterCr = false;
    } else if (c == '\r') {
      ++line;
      column = 0;
      afterCr = true;
    } else {
      if ((c & 0xC0) != 0x80) ++column;
      afterCr = false;
    }
  }
}

}  // namespace

// The callbacks, friends of the stream and of the tokens they fill.
class XmlHelper {
 public:
  static void Install(XML_Parser parser, IXmlStream& stream);
  static void StorePlace(XML_Parser parser, long long& line, long long& column, long long& byteIndex);

 private:
  static void STagHandler(void* userData, const char* name, const char** atts);
  static void ETagHandler(void* userData, const char* name);
  static void CharDataHandler(void* userData, const char* s, int len);
  static void DefaultHandler(void* userData, const char* s, int len);
  static void StartCdataHandler(void* userData);
  static void EndCdataHandler(void* userData);
  static void StartDoctypeDeclHandler(void* userData, const char* doctypeName, const char* sysid,
                                      const char* pubid, int hasInternalSubset);
  static void EndDoctypeDeclHandler(void* userData);
  static void RaiseUnreached(void* userData);

  // Runs a handler's body so that no C++ exception crosses expat's C frames:
  // an exception the body does not turn into a token itself is kept on the
  // stream, the parser is stopped, and the stream rethrows it once XML_Parse
  // has returned, so the reader meets it exactly where it arose.
  template <class Body>
  static void Guarded(IXmlStream* stream, Body body) {
    if (stream->m_parseStopped) return;
    try {
      body();
    } catch (...) {
      stream->m_pending = std::current_exception();
      stream->m_parseStopped = true;
      XML_StopParser(Parser(stream), XML_FALSE);
    }
  }

  // Fills a new tag and queues it at the parser's place; a decoding error
  // queues an error token in its stead.
  template <class Tag, class Fill>
  static void QueueTag(IXmlStream* stream, Fill fill) {
    std::unique_ptr<Tag> tag(new Tag(static_cast<const unsigned short*>(nullptr)));
    try {
      fill(*tag);
    } catch (QmMsgException* e) {
      stream->AddErrorTokensToStream(e);
      return;
    }
    stream->m_source->StoreSourceLocation(tag->m_location);
    stream->m_tokens->Push(std::move(tag));
    stream->m_newlineStripped = 0;
  }

  static IXmlStream* StreamOf(void* userData) { return static_cast<IXmlStream*>(userData); }
  static XML_Parser Parser(IXmlStream* stream) { return static_cast<XML_Parser>(stream->m_parser.get()); }
  // Notes that expat has consumed the input up to the end of the event it
  // reports (the bytes past that are an unfinished token it holds), and
  // keeps the place of the event. Events follow each other without a gap,
  // so the place at the end of one is the place at the start of the next.
  static void NoteEvent(IXmlStream* stream) {
    XML_Parser parser = Parser(stream);
    const long long start = XML_GetCurrentByteIndex(parser);
    const int count = XML_GetCurrentByteCount(parser);
    if (!stream->m_countPlaces) {
      stream->m_eventByte = start;
      stream->m_consumed = start + count;
      return;
    }
    if (start != stream->m_consumed || stream->m_line < 0) {
      // Bytes no event reported (a byte order mark), or a place that was
      // lost: the parser counts them itself.
      stream->m_line = static_cast<long long>(XML_GetCurrentLineNumber(parser));
      stream->m_column = static_cast<long long>(XML_GetCurrentColumnNumber(parser));
    }
    stream->m_eventByte = start;
    stream->m_eventLine = stream->m_line;
    stream->m_eventColumn = stream->m_column;
    // An empty element's end tag is an event of no bytes at the end of its
    // start tag.
    if (count > 0) {
      int offset = 0, size = 0;
      const char* context = XML_GetInputContext(parser, &offset, &size);
      if (context && offset >= 0 && offset <= size - count)
        CountPlace(context + offset, static_cast<std::size_t>(count), stream->m_line, stream->m_column);
      else
        stream->m_line = -1;
    }
    stream->m_consumed = start + count;
  }
  // Refuses the tag expat reports when it is longer than the stream allows
  // (its bytes are those NoteEvent just counted); true when it did.
  static bool TooLong(IXmlStream* stream) {
    if (stream->m_consumed - stream->m_eventByte <= stream->m_maxTokenSize) return false;
    stream->RefuseAndStop(kTokenTooLongMsgId, stream->m_maxTokenSize);
    return true;
  }
};

void InstallHandlers(XML_Parser parser, IXmlStream& stream) { XmlHelper::Install(parser, stream); }

void StoreParserPlace(void* p, long long& line, long long& column, long long& byteIndex) {
  XmlHelper::StorePlace(static_cast<XML_Parser>(p), line, column, byteIndex);
}

void XmlHelper::StorePlace(XML_Parser parser, long long& line, long long& column, long long& byteIndex) {
  byteIndex = static_cast<long long>(XML_GetCurrentByteIndex(parser));
  const IXmlStream* stream = static_cast<const IXmlStream*>(XML_GetUserData(parser));
  // A line and a column are a function of the byte index: at the place of
  // the event the handlers last noted, theirs are the parser's. Elsewhere
  // (a failure expat met between events) the parser counts.
  if (stream && stream->m_countPlaces && byteIndex >= 0 && byteIndex == stream->m_eventByte) {
    line = stream->m_eventLine;
    column = stream->m_eventColumn;
#ifdef NXXML_CHECK_PLACES
    // Once expat has failed, a chunk given to it after the failure makes it
    // count the failed chunk's bytes again: its numbers are no measure then.
    if (XML_GetErrorCode(parser) == XML_ERROR_NONE &&
        (line != static_cast<long long>(XML_GetCurrentLineNumber(parser)) ||
         column != static_cast<long long>(XML_GetCurrentColumnNumber(parser)))) {
      std::fprintf(stderr, "place of byte %lld counted as line %lld column %lld, expat says %lld %lld\n",
                   byteIndex, line, column, static_cast<long long>(XML_GetCurrentLineNumber(parser)),
                   static_cast<long long>(XML_GetCurrentColumnNumber(parser)));
      std::abort();
    }
#endif
    return;
  }
  line = static_cast<long long>(XML_GetCurrentLineNumber(parser));
  column = static_cast<long long>(XML_GetCurrentColumnNumber(parser));
}

void XmlHelper::Install(XML_Parser parser, IXmlStream& stream) {
  XML_SetElementHandler(parser, STagHandler, ETagHandler);
  XML_SetCdataSectionHandler(parser, StartCdataHandler, EndCdataHandler);
  XML_SetCharacterDataHandler(parser, CharDataHandler);
  // This variant, not the expanding one: what reaches it is refused anyway.
  XML_SetDefaultHandler(parser, DefaultHandler);
  XML_SetUserData(parser, &stream);
  XML_SetDoctypeDeclHandler(parser, StartDoctypeDeclHandler, EndDoctypeDeclHandler);
}

void XmlHelper::STagHandler(void* userData, const char* name, const char** atts) {
  IXmlStream* stream = StreamOf(userData);
  Guarded(stream, [&] {
    AD_ASSERT_TEXT(stream->m_lastCharDataEndedWithEscape == false,
                   "stream->m_lastCharDataEndedWithEscape == false", kStreamUnit);
    NoteEvent(stream);
    if (++stream->m_depth > stream->m_maxElementDepth) {
      // Too deep to read safely: the reader meets the refusal at this tag,
      // and nothing after it is parsed, so a hostile nesting costs no memory.
      stream->RefuseAndStop(kTooDeepMsgId, stream->m_maxElementDepth);
      return;
    }
    if (TooLong(stream)) return;
    QueueTag<XmlSTag>(stream, [&](XmlSTag& tag) {
      DecodeName(name, stream->m_asciiOnly, stream->m_lenientDecoding, tag.m_name.Std());
      int count = 0;
      while (atts[2 * count]) ++count;
      tag.m_attributes.Reserve(count);
      for (int k = 0; atts[k]; k += 2) {
        Obx_String value;
        DecodeName(atts[k + 1], stream->m_asciiOnly, stream->m_lenientDecoding, value.Std());
        Obx_String attrName;
        DecodeName(atts[k], stream->m_asciiOnly, stream->m_lenientDecoding, attrName.Std());
        // Expat has already refused duplicate names, so every pair is new.
        tag.m_attributes.SetAt(std::move(attrName), std::move(value));
      }
    });
  });
}

void XmlHelper::ETagHandler(void* userData, const char* name) {
  IXmlStream* stream = StreamOf(userData);
  Guarded(stream, [&] {
    AD_ASSERT_TEXT(stream->m_lastCharDataEndedWithEscape == false,
                   "stream->m_lastCharDataEndedWithEscape == false", kStreamUnit);
    NoteEvent(stream);
    --stream->m_depth;
    if (TooLong(stream)) return;
    QueueTag<XmlETag>(stream, [&](XmlETag& tag) {
      DecodeName(name, stream->m_asciiOnly, stream->m_lenientDecoding, tag.m_name.Std());
    });
  });
}

void XmlHelper::CharDataHandler(void* userData, const char* s, int len) {
  IXmlStream* stream = StreamOf(userData);
  Guarded(stream, [&] {
    NoteEvent(stream);
    XmlTokenQueue& tokens = *stream->m_tokens;
    // Expat splits text at line ends, references and chunk ends; the pieces
    // join the text token still at the tail (an error token is never
    // joined), decoded straight onto its end.
    XmlCharData* tail = !tokens.Empty() && tokens.Tail()->GetType() == XT_CHARDATA
                            ? static_cast<XmlCharData*>(tokens.Tail())
                            : nullptr;
    // The line feed that follows a tag belongs to the layout, not to the
    // text. Only a piece starting a new token can begin with it, and a piece
    // that continues an escape never decodes to one: the byte is skipped
    // instead of erased from the decoded text.
    const bool strip = !tail && !stream->m_newlineStripped && !stream->m_lastCharDataEndedWithEscape && len > 0 &&
                       s[0] == '\n';
    Obx_String text;
    Obx_StdString& out = tail ? tail->m_data.Std() : text.Std();
    try {
      AppendDecoded(strip ? s + 1 : s, static_cast<std::size_t>(strip ? len - 1 : len),
                    stream->m_lastCharDataEndedWithEscape, stream->m_asciiOnly, stream->m_lenientDecoding, out);
    } catch (QmMsgException* e) {
      stream->AddErrorTokensToStream(e);
      return;
    }
    // A text is measured in the bytes of its pieces, summed while it grows.
    stream->m_tailTextBytes = (tail ? stream->m_tailTextBytes : 0) + len;
    if (stream->m_tailTextBytes > stream->m_maxTokenSize) {
      // Reported where the text starts, however it was cut into pieces.
      XmlSourceLocation start;
      if (tail)
        start = tail->GetLocation();
      else
        stream->m_source->StoreSourceLocation(start);
      stream->RefuseAndStop(kTokenTooLongMsgId, stream->m_maxTokenSize, &start);
      return;
    }
    if (tail) return;
    if (strip) stream->m_newlineStripped = 1;
    if (text.GetLength() == 0) return;
    std::unique_ptr<XmlCharData> data(new XmlCharData(std::move(text)));
    stream->m_source->StoreSourceLocation(data->m_location);
    tokens.Push(std::move(data));
  });
}

void XmlHelper::DefaultHandler(void* userData, const char* s, int len) {
  IXmlStream* stream = StreamOf(userData);
  Guarded(stream, [&] {
    NoteEvent(stream);
    // Line breaks between elements are layout; anything else reaching this
    // handler (declaration, comment, processing instruction) is refused,
    // raised out of the parse rather than queued.
    if (len > 0 && (s[0] == '\r' || s[0] == '\n')) return;
    QmMessage message(kRefusedMarkupMsgId);
    message.SetParam("%_LOCATION_%", stream->RenderCurrentLocation());
    AdThrowMsgExcept(message, "", kStreamUnit, __LINE__);
  });
}

// A CDATA section or a document type declaration is a fatal error of the
// read, not an error token.
void XmlHelper::RaiseUnreached(void* userData) {
  IXmlStream* stream = StreamOf(userData);
  Guarded(stream, [] { AdThrowMsgExcept(QmMessage(AdGetHitUnreachedMsgID()), "", kStreamUnit, __LINE__); });
}

void XmlHelper::StartCdataHandler(void* userData) { RaiseUnreached(userData); }
void XmlHelper::EndCdataHandler(void* userData) { RaiseUnreached(userData); }
void XmlHelper::StartDoctypeDeclHandler(void* userData, const char*, const char*, const char*, int) {
  RaiseUnreached(userData);
}
void XmlHelper::EndDoctypeDeclHandler(void* userData) { RaiseUnreached(userData); }
