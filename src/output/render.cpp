#include "output/render.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <typeinfo>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

const char* const kStreamUnit = "xmlstream";
const char* const kContentUnit = "xmlcontent";

// What an ASCII unit becomes: itself (PLAIN), a row of the escape table, or
// the escaped pair of a control character.
enum : unsigned char { PLAIN = 0, AMP, LT, GT, APOS, QUOT, TAB, LF, CR, CONTROL };

struct Replacement {
  const char* text;
  std::size_t length;
};
// The escape table of the content model's images, by class.
const Replacement kReplacements[] = {
    {"", 0},      {"&amp;", 5},  {"&lt;", 4},   {"&gt;", 4},   {"&apos;", 6},
    {"&quot;", 6}, {"&#x9;", 5}, {"&#xA;", 5}, {"&#xD;", 5},
};

// One table of classes for each escape mode, with and without the
// control-character escape.
struct ClassTables {
  unsigned char table[3][2][128];
  ClassTables() {
    for (int mode = 0; mode < 3; ++mode)
      for (int escape = 0; escape < 2; ++escape) {
        unsigned char* t = table[mode][escape];
        for (int u = 0; u < 128; ++u) t[u] = PLAIN;
        if (escape)
          for (int u = 0; u < 0x20; ++u) t[u] = CONTROL;
        t[0x09] = t[0x0A] = t[0x0D] = PLAIN;
        if (mode == Utf8Sink::RAW) continue;
        t['&'] = AMP;
        t['<'] = LT;
        t['>'] = GT;
        t[0x09] = TAB;
        t[0x0A] = LF;
        t[0x0D] = CR;
        if (mode == Utf8Sink::ATTRIBUTE) {
          t['\''] = APOS;
          t['"'] = QUOT;
        }
      }
  }
};
const ClassTables kClasses;

// The length of a zero-terminated name: names are short, a call costs more.
inline std::size_t Length(const unsigned short* s) {
  std::size_t n = 0;
  while (s[n]) ++n;
  return n;
}

inline bool IsHigh(unsigned u) { return u >= 0xD800 && u <= 0xDBFF; }
inline bool IsLow(unsigned u) { return u >= 0xDC00 && u <= 0xDFFF; }

inline char* PutPair(char* o, unsigned high, unsigned low) {
  const unsigned c = 0x10000u + ((high - 0xD800u) << 10) + (low - 0xDC00u);
  o[0] = static_cast<char>(0xF0 | (c >> 18));
  o[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
  o[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
  o[3] = static_cast<char>(0x80 | (c & 0x3F));
  return o + 4;
}

// U+F800 followed by U+F800 + c; for U+F800 itself c is 0.
inline char* PutEscapedPair(char* o, unsigned c) {
  o[0] = '\xEF';
  o[1] = '\xA0';
  o[2] = '\x80';
  o[3] = '\xEF';
  o[4] = '\xA0';
  o[5] = static_cast<char>(0x80 | c);
  return o + 6;
}

// No unit takes more than six bytes: an escaped pair, a reference such as
// "&quot;", or three bytes for a unit of the basic plane.
const std::size_t kMaxBytesPerUnit = 6;

}  // namespace

Utf8Sink::Utf8Sink(char*& buffer, std::size_t& capacity, int escapeControlChars)
    : m_buffer(buffer), m_capacity(capacity), m_escapeControlChars(escapeControlChars ? 1 : 0) {}

void Utf8Sink::Unconvertible(int line) {
  // An unpaired surrogate: the same failure as the conversion's.
  AdThrowMsgExcept(AdGetBadValue0MsgID(), "U_SUCCESS(uerr)", kStreamUnit, line);
}

void Utf8Sink::Reserve(std::size_t more) {
  if (m_capacity - m_size >= more) return;
  std::size_t wanted = m_capacity ? m_capacity : 4096;
  while (wanted - m_size < more) wanted *= 2;
  char* grown = static_cast<char*>(std::realloc(m_buffer, wanted));
  if (!grown) throw std::bad_alloc();
  m_buffer = grown;
  m_capacity = wanted;
}

void Utf8Sink::CompletePair(const unsigned short*& units, std::size_t& n) {
  if (!IsLow(units[0])) Unconvertible(__LINE__);
  Reserve(4);
  m_size = static_cast<std::size_t>(PutPair(m_buffer + m_size, m_pendingHigh, units[0]) - m_buffer);
  m_pendingHigh = 0;
  ++units;
  --n;
}

void Utf8Sink::Markup(const char* ascii, std::size_t n) {
  if (m_pendingHigh) Unconvertible(__LINE__);
  Reserve(n);
  std::memcpy(m_buffer + m_size, ascii, n);
  m_size += n;
}

void Utf8Sink::Finish() {
  if (m_pendingHigh) Unconvertible(__LINE__);
}

void Utf8Sink::Text(const unsigned short* units, std::size_t n, Escape escape) {
  if (n == 0) return;
  if (m_pendingHigh) {
    CompletePair(units, n);
    if (n == 0) return;
  }
  Reserve(kMaxBytesPerUnit * n);
  const unsigned char* classes = kClasses.table[escape][m_escapeControlChars];
  char* o = m_buffer + m_size;
  std::size_t i = 0;
#if defined(__SSE2__)
  // Text is mostly runs of printable ASCII with nothing to escape: those go
  // eight units at a time. The eight bytes are always stored (the room
  // reserved covers them) and only the plain ones kept.
  const __m128i space = _mm_set1_epi16(0x20);
  const __m128i printableSpan = _mm_set1_epi16(0x5F);
  const __m128i zero = _mm_setzero_si128();
  const __m128i amp = _mm_set1_epi16('&'), lt = _mm_set1_epi16('<'), gt = _mm_set1_epi16('>');
  const __m128i quot = _mm_set1_epi16('"'), apos = _mm_set1_epi16('\'');
#endif
  while (i < n) {
#if defined(__SSE2__)
    while (i + 8 <= n) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(units + i));
      // 0x20 <= u < 0x80 exactly when u - 0x20 (wrapping) is at most 0x5F.
      __m128i plain = _mm_cmpeq_epi16(_mm_subs_epu16(_mm_sub_epi16(v, space), printableSpan), zero);
      if (escape != RAW) {
        __m128i special = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi16(v, amp), _mm_cmpeq_epi16(v, lt)),
                                       _mm_cmpeq_epi16(v, gt));
        if (escape == ATTRIBUTE)
          special = _mm_or_si128(special, _mm_or_si128(_mm_cmpeq_epi16(v, quot), _mm_cmpeq_epi16(v, apos)));
        plain = _mm_andnot_si128(special, plain);
      }
      const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(plain));
      _mm_storel_epi64(reinterpret_cast<__m128i*>(o), _mm_packus_epi16(v, v));
      if (mask == 0xFFFF) {
        o += 8;
        i += 8;
        continue;
      }
      const unsigned leading = static_cast<unsigned>(__builtin_ctz(~mask)) / 2;
      o += leading;
      i += leading;
      break;
    }
    if (i == n) break;
#endif
    const unsigned u = units[i++];
    if (u < 0x80) {
      const unsigned char k = classes[u];
      if (k == PLAIN) {
        *o++ = static_cast<char>(u);
      } else if (k == CONTROL) {
        o = PutEscapedPair(o, u);
      } else {
        std::memcpy(o, kReplacements[k].text, kReplacements[k].length);
        o += kReplacements[k].length;
      }
    } else if (u < 0x800) {
      o[0] = static_cast<char>(0xC0 | (u >> 6));
      o[1] = static_cast<char>(0x80 | (u & 0x3F));
      o += 2;
    } else if (u >= 0xD800 && u <= 0xDFFF) {
      if (!IsHigh(u)) {
        m_size = static_cast<std::size_t>(o - m_buffer);
        Unconvertible(__LINE__);
      }
      if (i == n) {
        // The low half may open the next piece.
        m_pendingHigh = static_cast<unsigned short>(u);
        break;
      }
      if (!IsLow(units[i])) {
        m_size = static_cast<std::size_t>(o - m_buffer);
        Unconvertible(__LINE__);
      }
      o = PutPair(o, u, units[i++]);
    } else if (u == sEscapeInUTF16 && m_escapeControlChars) {
      o = PutEscapedPair(o, 0);
    } else {
      o[0] = static_cast<char>(0xE0 | (u >> 12));
      o[1] = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
      o[2] = static_cast<char>(0x80 | (u & 0x3F));
      o += 3;
    }
  }
  m_size = static_cast<std::size_t>(o - m_buffer);
}

void ImageRender::Token(const XmlToken& token, Image image) {
  if (image == END_TAG) return ETag(static_cast<const XmlETag&>(token));
  if (image == START_TAG) return STag(static_cast<const XmlSTag&>(token), ">", 1);
  // Only the classes whose images are known are rendered here; anything
  // derived from them may have an image of its own. The type is asked
  // first: it narrows the classes to one or two.
  const std::type_info& type = typeid(token);
  switch (token.GetType()) {
    case XT_CHARDATA:
      if (type == typeid(XmlCharData)) return CharData(static_cast<const XmlCharData&>(token));
      break;
    case XT_ILLEGAL:
      if (type == typeid(XmlElement)) return Element(static_cast<const XmlElement&>(token));
      if (type == typeid(XmlError)) return CharData(static_cast<const XmlCharData&>(token));
      break;
    case XT_STAG:
      if (type == typeid(XmlSTag)) return STag(static_cast<const XmlSTag&>(token), ">", 1);
      break;
    case XT_ETAG:
      if (type == typeid(XmlETag)) return ETag(static_cast<const XmlETag&>(token));
      break;
    default:
      break;
  }
  Other(token);
}

void ImageRender::Name(const unsigned short* name) {
  AD_ASSERT_TEXT(AdIsNonEmpty(name), "AdIsNonEmpty(name)", kContentUnit);
  m_sink.Text(name, Length(name), Utf8Sink::RAW);
}

void ImageRender::ETag(const XmlETag& tag) {
  const unsigned short* name = m_converter ? m_converter->TagNameImage(tag.GetName()) : tag.GetName().GetData();
  m_sink.Markup("</", 2);
  Name(name);
  m_sink.Markup(">", 1);
}

void ImageRender::STag(const XmlSTag& tag, const char* terminator, std::size_t terminatorLength) {
  const Obx_String& tagName = tag.GetName();
  const unsigned short* name = m_converter ? m_converter->TagNameImage(tagName) : tagName.GetData();
  m_sink.Markup("<", 1);
  Name(name);

  // The inline text goes after the tag but is rendered first, so that the
  // converter sees the calls in the order the image makes them.
  Obx_String inlineImage;
  if (!tag.GetInlineText().IsEmpty()) {
    inlineImage = XmlCharData(tag.GetInlineText()).GetImage(nullptr);
    AD_ASSERT_TEXT(m_converter != nullptr, "cvrtr != __null", kContentUnit);
    m_converter->AttrStreamImage(tagName, inlineImage);
  }

  const CMapStringToString& attributes = tag.GetAttributes();
  for (int k = 0; k < attributes.GetCount(); ++k) {
    const unsigned short* attrName = attributes.KeyAt(k);
    m_sink.Markup(" ", 1);
    if (m_converter) {
      Obx_String value = attributes.ValueAt(k);
      m_converter->AttrStreamImage(attrName, value);
      attrName = m_converter->AttrNameImage(tag, attrName, value);
      m_sink.Text(attrName, Length(attrName), Utf8Sink::RAW);
      m_sink.Markup("=\"", 2);
      m_sink.Text(value.GetData(), static_cast<std::size_t>(value.GetLength()), Utf8Sink::ATTRIBUTE);
    } else {
      const Obx_String& value = attributes.ValueAt(k);
      m_sink.Text(attrName, Length(attrName), Utf8Sink::RAW);
      m_sink.Markup("=\"", 2);
      m_sink.Text(value.GetData(), static_cast<std::size_t>(value.GetLength()), Utf8Sink::ATTRIBUTE);
    }
    m_sink.Markup("\"", 1);
  }
  m_sink.Markup(terminator, terminatorLength);
  // A start tag with attributes ends its line, as its image does.
  if (attributes.GetCount() > 0) m_sink.Markup("\n", 1);
  m_sink.Text(inlineImage.GetData(), static_cast<std::size_t>(inlineImage.GetLength()), Utf8Sink::RAW);
}

void ImageRender::CharData(const XmlCharData& text) {
  const Obx_String& data = text.GetData();
  m_sink.Text(data.GetData(), static_cast<std::size_t>(data.GetLength()), Utf8Sink::CHARDATA);
}

void ImageRender::Element(const XmlElement& element) {
  // Names read from a packet are equal as they stand; only others need the
  // case-insensitive comparison.
  const Obx_String& startName = element.m_stag.GetName();
  const Obx_String& endName = element.m_etag.GetName();
  AD_ASSERT_TEXT(startName == endName || AdIsEqualNoCase(startName, endName),
                 "AdIsEqualNoCase(m_stag.GetName(), m_etag.GetName())", kContentUnit);
  if (element.m_content.empty()) return STag(element.m_stag, "/>", 2);
  STag(element.m_stag, ">", 1);
  const std::vector<NXSmartPtr<XmlContent>>& items = element.m_content;
  for (std::size_t i = 0; i < items.size(); ++i) {
    // A tree read from a packet lies all over the heap: ask for the next
    // item while this one is rendered.
    if (i + 1 < items.size()) __builtin_prefetch(items[i + 1].get());
    const XmlContent* item = items[i].get();
    AD_ASSERT_TEXT(item != nullptr, "item != __null", kContentUnit);
    Token(*item, VIRTUAL);
  }
  ETag(element.m_etag);
}

void ImageRender::Other(const XmlToken& token) {
  const Obx_String image = token.GetImage(m_converter);
  m_sink.Text(image.GetData(), static_cast<std::size_t>(image.GetLength()), Utf8Sink::RAW);
}
