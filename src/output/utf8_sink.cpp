// Writing images as UTF-8: the sink that escapes, applies the
// control-character escape and encodes in one pass, and the output stream's
// WriteImage, which renders a token into it. The two share this unit so that
// the renderer's calls into the sink are inlined and specialised.
#include "output/utf8_sink.h"

#include <cstdlib>
#include <cstring>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "content/render.h"
#include "ids.h"

namespace {

using nxmsg::kStreamUnit;

// What an ASCII unit becomes: itself (PLAIN), the row of the images' escape
// table numbered by the class (1 to 8, see EscapeClass), or the escaped pair
// of a control character.
enum : unsigned char { PLAIN = 0, CONTROL = 9 };

// One table of classes for each escape mode, with and without the
// control-character escape.
struct ClassTables {
  unsigned char table[3][2][128];
  ClassTables() {
    for (int mode = 0; mode < 3; ++mode)
      for (int escape = 0; escape < 2; ++escape) {
        unsigned char* t = table[mode][escape];
        for (unsigned u = 0; u < 128; ++u) {
          // Tab and line ends are legal in XML and never take the escape.
          const bool control = escape && u < 0x20 && u != 0x09 && u != 0x0A && u != 0x0D;
          const unsigned row = EscapeClass(static_cast<XmlEscape>(mode), u);
          t[u] = static_cast<unsigned char>(row ? row : control ? unsigned{CONTROL} : unsigned{PLAIN});
        }
      }
  }
};
const ClassTables kClasses;

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

void Utf8Sink::Text(const unsigned short* units, std::size_t n, XmlEscape escape) {
  if (n == 0) return;
  if (m_pendingHigh) {
    CompletePair(units, n);
    if (n == 0) return;
  }
  Reserve(kMaxBytesPerUnit * n);
  const unsigned char* classes = kClasses.table[static_cast<int>(escape)][m_escapeControlChars];
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
      if (escape != XmlEscape::RAW) {
        __m128i special = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi16(v, amp), _mm_cmpeq_epi16(v, lt)),
                                       _mm_cmpeq_epi16(v, gt));
        if (escape == XmlEscape::ATTRIBUTE)
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
        const XmlEscapeRow& row = nx_EMap[k - 1];
        std::memcpy(o, row.text, row.length);
        o += row.length;
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

void OXmlStream::WriteImage(const XmlToken& token, Image how) {
  Utf8Sink sink(m_buffer, m_bufferCapacity, m_escapeControlChars);
  ImageRender<Utf8Sink> render(sink, m_converter);
  switch (how) {
    case END_TAG:
      render.ETag(static_cast<const XmlETag&>(token));
      break;
    case START_TAG:
      render.STag(static_cast<const XmlSTag&>(token), ">", 1);
      break;
    default:
      render.Token(token);
      break;
  }
  sink.Finish();
  write_internal(sink.Data(), static_cast<long>(sink.Size()));
}
