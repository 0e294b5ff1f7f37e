// Decoding of the parser's UTF-8 into UTF-16 with an ASCII fast path.
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <cstring>

#include "convert/convert_private.h"
#include "ids.h"
#include "input/decode.h"
#include "nxmessages.h"

namespace {

// Widens the leading ASCII bytes of s[0..n) into d; returns how many there
// are (n when all are). Names, values and texts are mostly short: a text of
// 8 bytes or more is widened in whole blocks, the last one overlapping the
// one before, rather than finished byte by byte.
std::size_t WidenAscii(const char* s, std::size_t n, unsigned short* d) {
  std::size_t k = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  if (n >= 16) {
    for (; k + 16 <= n; k += 16) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + k));
      if (_mm_movemask_epi8(v)) break;  // a byte with its high bit set
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d + k), _mm_unpacklo_epi8(v, zero));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d + k + 8), _mm_unpackhi_epi8(v, zero));
    }
    if (k + 16 > n && k < n) {
      const std::size_t last = n - 16;
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + last));
      if (!_mm_movemask_epi8(v)) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + last), _mm_unpacklo_epi8(v, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + last + 8), _mm_unpackhi_epi8(v, zero));
        return n;
      }
    }
  } else if (n >= 8) {
    const __m128i v = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s));
    const __m128i w = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s + n - 8));
    if (!(_mm_movemask_epi8(v) | _mm_movemask_epi8(w))) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_unpacklo_epi8(v, zero));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d + n - 8), _mm_unpacklo_epi8(w, zero));
      return n;
    }
  }
#endif
  for (; k < n; ++k) {
    const unsigned char c = static_cast<unsigned char>(s[k]);
    if (c >= 0x80) break;
    d[k] = c;
  }
  return k;
}

// Appends the widened leading ASCII bytes of s[0..n) to out and returns how
// many it took. For such bytes decoding is the identity and neither the
// control-character escape (whose mark is not ASCII) nor the ASCII check
// can apply, so this gives what the full conversion gives, in the same pass
// that finds where the ASCII ends. Most names, values and texts of a packet
// are ASCII throughout. The units are widened in place, into room made for
// all of them: staging them and copying them over costs a copy of unknown
// length for every short text.
std::size_t AppendAsciiPrefix(const char* s, std::size_t n, Obx_StdString& out) {
  const std::size_t base = out.size();
  out.resize(base + n);
  const std::size_t ascii = WidenAscii(s, n, &out[base]);
  if (ascii < n) out.resize(base + ascii);
  return ascii;
}

}  // namespace

// Appends the decoded text of s[0..n) to out, escape carrying the state of
// the control-character escape across pieces. The ASCII lead is widened
// directly; the rest (from the first non-ASCII byte, which is a character
// boundary) goes through the full conversion, which gives the same units,
// checks and errors as converting the whole piece. On a raise out is left
// as it was.
void AppendDecoded(const char* s, std::size_t n, bool& escape, bool asciiOnly, bool lenient, Obx_StdString& out) {
  const std::size_t base = out.size();
  // An unpaired mark pairs with the first unit: only the full conversion
  // knows that.
  const std::size_t ascii = escape ? 0 : AppendAsciiPrefix(s, n, out);
  if (ascii == n) return;
  try {
    nxconvert::AppendUTF82UTF16(escape, s + ascii, static_cast<int>(n - ascii), asciiOnly, !lenient, out);
  } catch (...) {
    out.resize(base);
    throw;
  }
}

// A zero-terminated name or attribute value, decoded into out (empty).
void DecodeName(const char* s, bool asciiOnly, bool lenient, Obx_StdString& out) {
  const std::size_t n = std::strlen(s);
  const std::size_t ascii = AppendAsciiPrefix(s, n, out);
  if (ascii == n) return;
  // The whole string's conversion takes its terminating zero along and ends
  // the text at the first zero unit: so does this.
  bool escape = false;
  nxconvert::AppendUTF82UTF16(escape, s + ascii, static_cast<int>(n - ascii) + 1, asciiOnly, !lenient, out);
  AD_ASSERT_TEXT(escape == false, "endedWithEscape == false", nxmsg::kStreamUnit);
  out.resize(ascii + Obx_StdString::traits_type::length(out.c_str() + ascii));
}
