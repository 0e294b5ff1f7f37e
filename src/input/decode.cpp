// Decoding of the parser's UTF-8 into UTF-16 with an ASCII fast path.
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <cstdint>
#include <cstring>

#include "convert/convert_private.h"
#include "ids.h"
#include "input/decode.h"
#include "nxmessages.h"
#include "sanitizer.h"

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
// are ASCII throughout. The units are staged on the stack and appended in
// one piece: growing the string first would fill it for nothing.
std::size_t AppendAsciiPrefix(const char* s, std::size_t n, Obx_StdString& out) {
  const std::size_t kStage = 512;
  unsigned short staged[kStage];
  std::size_t k = 0;
  while (k < n) {
    const std::size_t m = n - k < kStage ? n - k : kStage;
    const std::size_t ascii = WidenAscii(s + k, m, staged);
    out.append(staged, ascii);
    k += ascii;
    if (ascii < m) break;
  }
  return k;
}

// Widens the ASCII bytes of the zero-terminated s into d until the zero
// byte, a byte with its high bit set, or room units; returns how many it
// widened. Finding the end and widening is one pass. Whole blocks are read
// only from 16-byte boundaries, so a read past the zero byte never leaves
// the page the string ends in; the address checker, which looks at bytes
// rather than pages, is given the byte loop.
std::size_t WidenAsciiToZero(const char* s, unsigned short* d, std::size_t room) {
  std::size_t k = 0;
#if defined(__SSE2__) && !NXXML_ASAN
  for (; k < room && (reinterpret_cast<std::uintptr_t>(s + k) & 15) != 0; ++k) {
    const unsigned char c = static_cast<unsigned char>(s[k]);
    if (c == 0 || c >= 0x80) return k;
    d[k] = c;
  }
  const __m128i zero = _mm_setzero_si128();
  for (; k + 16 <= room; k += 16) {
    const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(s + k));
    const unsigned stop = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, zero)) | _mm_movemask_epi8(v));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + k), _mm_unpacklo_epi8(v, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + k + 8), _mm_unpackhi_epi8(v, zero));
    if (stop) return k + static_cast<std::size_t>(__builtin_ctz(stop));
  }
#endif
  for (; k < room; ++k) {
    const unsigned char c = static_cast<unsigned char>(s[k]);
    if (c == 0 || c >= 0x80) return k;
    d[k] = c;
  }
  return k;
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
  const std::size_t kStage = 256;
  unsigned short staged[kStage];
  std::size_t ascii = 0;
  for (;;) {
    const std::size_t m = WidenAsciiToZero(s + ascii, staged, kStage);
    // A long name or value gets its room at once: grown by doubling, it
    // would cost up to three times its size while it is copied.
    if (m == kStage && ascii == 0) out.reserve(kStage + std::strlen(s + kStage));
    out.append(staged, m);
    ascii += m;
    if (m < kStage) break;
  }
  if (s[ascii] == 0) return;
  const std::size_t n = ascii + std::strlen(s + ascii);
  // The whole string's conversion takes its terminating zero along and ends
  // the text at the first zero unit: so does this.
  bool escape = false;
  nxconvert::AppendUTF82UTF16(escape, s + ascii, static_cast<int>(n - ascii) + 1, asciiOnly, !lenient, out);
  AD_ASSERT_TEXT(escape == false, "endedWithEscape == false", nxmsg::kStreamUnit);
  out.resize(ascii + Obx_StdString::traits_type::length(out.c_str() + ascii));
}

