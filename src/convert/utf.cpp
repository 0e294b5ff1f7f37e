// Conversion between UTF-8 and UTF-16 with the control-character escape:
// the one UTF-8 decoder, and the UTF-16 to UTF-8 encoder.
#include <unicode/ustring.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <climits>
#include <cstring>
#include <memory>
#include <vector>

#include "convert/convert_private.h"
#include "xmlstream.h"

using namespace nxmsg;

namespace {

// TAB, LF and CR are legal in XML text and are never escaped (bits over 1 << c).
const unsigned int kAllowedAsciiCCMask = 0x2600;

// Whether a unit travels as an escaped pair (the scalar twin of
// EscapableMask8 below).
inline bool NeedsEscape(unsigned short c) {
  return c == sEscapeInUTF16 || ((c & IsAsciiCCMask) == 0 && ((1u << c) & kAllowedAsciiCCMask) == 0);
}

// Only the decoded side of an escaped pair that the writer can produce.
inline bool IsEscapedCC(unsigned int cc) {
  return cc >= 0x01 && cc <= 0x1F && ((1u << cc) & kAllowedAsciiCCMask) == 0;
}

// The scans below test eight units at a time (with SSE2, always there on
// x86-64): text is mostly long runs without a mark or a control, and the
// compiler does not vectorise a search that stops at the first hit.

// One bit a unit for those of the eight units at p that are the mark.
inline unsigned MarkMask8(const unsigned short* p) {
#if defined(__SSE2__)
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i hit = _mm_cmpeq_epi16(v, _mm_set1_epi16(static_cast<short>(sEscapeInUTF16)));
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(hit, _mm_setzero_si128())));
#else
  unsigned mask = 0;
  for (int j = 0; j < 8; ++j) mask |= static_cast<unsigned>(p[j] == sEscapeInUTF16) << j;
  return mask;
#endif
}

// One bit a unit for those of the eight units at p that need escaping.
inline unsigned EscapableMask8(const unsigned short* p) {
#if defined(__SSE2__)
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  // c <= 0x1F exactly when the saturating c - 0x1F is zero.
  const __m128i control = _mm_cmpeq_epi16(_mm_subs_epu16(v, _mm_set1_epi16(0x1F)), _mm_setzero_si128());
  const __m128i allowed = _mm_or_si128(
      _mm_or_si128(_mm_cmpeq_epi16(v, _mm_set1_epi16(0x09)), _mm_cmpeq_epi16(v, _mm_set1_epi16(0x0A))),
      _mm_cmpeq_epi16(v, _mm_set1_epi16(0x0D)));
  const __m128i hit = _mm_or_si128(_mm_andnot_si128(allowed, control),
                                   _mm_cmpeq_epi16(v, _mm_set1_epi16(static_cast<short>(sEscapeInUTF16))));
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(hit, _mm_setzero_si128())));
#else
  unsigned mask = 0;
  for (int j = 0; j < 8; ++j) mask |= static_cast<unsigned>(NeedsEscape(p[j])) << j;
  return mask;
#endif
}

// Index of the first escape mark in units[from..to), or to.
int FindMark(const unsigned short* units, int from, int to) {
  int i = from;
  for (; i + 8 <= to; i += 8)
    if (const unsigned mask = MarkMask8(units + i)) return i + __builtin_ctz(mask);
  while (i < to && units[i] != sEscapeInUTF16) ++i;
  return i;
}

// Index of the first unit in units[from..to) that needs escaping, or to.
int FindEscapable(const unsigned short* units, int from, int to) {
  int i = from;
  for (; i + 8 <= to; i += 8)
    if (const unsigned mask = EscapableMask8(units + i)) return i + __builtin_ctz(mask);
  while (i < to && !NeedsEscape(units[i])) ++i;
  return i;
}

// The units to escape: how many, and where the first of them are, so that
// the conversion need not search the text a second time. Positions beyond
// kRecorded are searched for again; a text that dense is not the common case.
struct EscapeScan {
  static const std::size_t kRecorded = 16384;
  int count = 0;
  std::vector<int> positions;

  void Note(int position) {
    ++count;
    if (positions.size() < kRecorded) positions.push_back(position);
  }
  void Run(const unsigned short* units, int length) {
    int i = 0;
    for (; i + 8 <= length; i += 8)
      for (unsigned mask = EscapableMask8(units + i); mask; mask &= mask - 1) Note(i + __builtin_ctz(mask));
    for (; i < length; ++i)
      if (NeedsEscape(units[i])) Note(i);
  }
};

void CheckNonAscii(const unsigned short* units, int count) {
  for (int i = 0; i < count; ++i)
    if (units[i] & s_NonAsciiUTF16Mask) AdThrowMsgExcept(QmMessage(kNonAsciiMsgId), "", kStreamUnit, __LINE__);
}

// Decodes the escaped form of src[0..len) into dst, which may be src itself
// (the output never runs ahead of the input); returns the units written.
int DecodeEscapes(const unsigned short* src, int len, unsigned short* dst, bool& inEscape) {
  int in = 0;
  int out = 0;
  while (in < len) {
    if (inEscape) {
      const unsigned short d = src[in++];
      if (d == sEscapeInUTF16)
        dst[out++] = sEscapeInUTF16;
      else if (d > sEscapeInUTF16 && IsEscapedCC(static_cast<unsigned int>(d) - sEscapeInUTF16))
        dst[out++] = static_cast<unsigned short>(d - sEscapeInUTF16);
      else
        AdThrowMsgExcept(QmMessage(AdGetHitUnreachedMsgID()), "", kStreamUnit, __LINE__);
      inEscape = false;
      continue;
    }
    // Move the whole run up to the next mark at once; in place, text
    // without marks does not move at all.
    const int mark = FindMark(src, in, len);
    if (dst + out != src + in)
      std::memmove(dst + out, src + in, static_cast<std::size_t>(mark - in) * sizeof(unsigned short));
    out += mark - in;
    in = mark;
    if (in < len) {
      inEscape = true;
      ++in;
    }
  }
  return out;
}

}  // namespace

void ConvertXMLSafeCCToAsciiCC(unsigned short* buf, int& len, bool& inEscape) {
  len = DecodeEscapes(buf, len, buf, inEscape);
}

namespace {

// The one UTF-8 decoder. Decodes numBytes bytes of data into units, which
// has room for numBytes units (a UTF-8 text never needs more units than it
// has bytes), decodes the control-character escape in place with escape as
// the starting and the ending state, and checks the result. Returns the
// number of units. Lenient decoding substitutes U+FFFD for malformed bytes.
int DecodeUTF8(bool& escape, const char* data, int numBytes, bool asciiOnly, bool throwOnDecodeError,
               unsigned short* units) {
  UErrorCode status = U_ZERO_ERROR;
  int32_t produced = 0;
  u_strFromUTF8WithSub(reinterpret_cast<UChar*>(units), numBytes, &produced, data, numBytes,
                       throwOnDecodeError ? U_SENTINEL : 0xFFFD, nullptr, &status);
  if (U_FAILURE(status))
    AdThrowMsgExcept(kCannotDecodeMsgId, nxconvert::kCannotDecodeText, kStreamUnit, __LINE__);
  const int size = DecodeEscapes(units, produced, units, escape);
  // Bytes that decode to nothing are legal only as a lone escape mark.
  AD_ASSERT_TEXT(size > 0 || escape == 1, "wideStringSize > 0 || endsWithEscape == 1", kStreamUnit);
  // The ASCII check goes with strict decoding only: a lenient caller has
  // asked for whatever the text holds.
  if (asciiOnly && throwOnDecodeError) CheckNonAscii(units, size);
  return size;
}

}  // namespace

void UTF82UTF16(bool startsWithEscape, const char* data, int numBytes, bool asciiOnly, bool throwOnDecodeError,
                unsigned short*& wide, int& wideStringSize, bool& endsWithEscape) {
  endsWithEscape = startsWithEscape;
  wide = nullptr;
  wideStringSize = 0;
  AD_ASSERT_TEXT(data != nullptr, "data != __null", kStreamUnit);
  if (numBytes == 0) return;
  if (numBytes < 0) numBytes = static_cast<int>(std::strlen(data)) + 1;
  // Owned here until every check has passed, so nothing leaks on a raise.
  std::unique_ptr<unsigned short[]> units(new unsigned short[static_cast<std::size_t>(numBytes)]);
  const int size = DecodeUTF8(endsWithEscape, data, numBytes, asciiOnly, throwOnDecodeError, units.get());
  wide = units.release();
  wideStringSize = size;
}

void nxconvert::AppendUTF82UTF16(bool& escape, const char* data, int numBytes, bool asciiOnly,
                                 bool throwOnDecodeError, Obx_StdString& out) {
  AD_ASSERT_TEXT(data != nullptr, "data != __null", kStreamUnit);
  if (numBytes == 0) return;
  if (numBytes < 0) numBytes = static_cast<int>(std::strlen(data)) + 1;
  // Decoded straight into the caller's string.
  const std::size_t old = out.size();
  out.resize(old + static_cast<std::size_t>(numBytes));
  int size = 0;
  try {
    size = DecodeUTF8(escape, data, numBytes, asciiOnly, throwOnDecodeError, &out[old]);
  } catch (...) {
    out.resize(old);
    throw;
  }
  out.resize(old + static_cast<std::size_t>(size));
}

Obx_String UTF82CString(const char* data, bool asciiOnly, bool throwOnDecodeError) {
  AD_ASSERT_TEXT(data != nullptr, "data != __null", kStreamUnit);
  unsigned short* wide = nullptr;
  int size = 0;
  bool endedWithEscape = false;
  UTF82UTF16(false, data, static_cast<int>(std::strlen(data)) + 1, asciiOnly, throwOnDecodeError, wide, size,
             endedWithEscape);
  std::unique_ptr<unsigned short[]> owner(wide);
  AD_ASSERT_TEXT(endedWithEscape == false, "endedWithEscape == false", kStreamUnit);
  return Obx_String(wide);
}

namespace {

// Appends the UTF-8 of units to out[written..capacity); false on an ICU
// failure (an unpaired surrogate).
inline bool AppendUTF8(const unsigned short* units, int count, char* out, int32_t capacity, int32_t& written) {
  UErrorCode uerr = U_ZERO_ERROR;
  int32_t added = 0;
  u_strToUTF8(out + written, capacity - written, &added, reinterpret_cast<const UChar*>(units), count, &uerr);
  written += added;
  return U_SUCCESS(uerr);
}

// Converts text that holds units to escape. Rather than an escaped copy of
// the whole text, short runs and escaped pairs are gathered in a small
// buffer and converted a buffer at a time, and long runs are converted
// straight from the caller's units: no copy of the bulk and few ICU calls
// whether controls are rare or dense. A flush never splits a surrogate pair:
// the buffer always ends just before a unit to escape or after a pair.
bool EscapeToUTF8(const unsigned short* units, int count, const EscapeScan& scan, char* out, int32_t capacity,
                  int32_t& written) {
  const int kDirectRun = 64;
  const int kStaged = 2048;
  unsigned short staged[kStaged];
  int used = 0;
  std::size_t known = 0;
  int i = 0;
  while (i < count) {
    int next;
    if (known < scan.positions.size())
      next = scan.positions[known++];
    else
      next = scan.count == static_cast<int>(known) ? count : FindEscapable(units, i, count);
    const int run = next - i;
    if (run >= kDirectRun || run > kStaged - used) {
      if (used && !AppendUTF8(staged, used, out, capacity, written)) return false;
      used = 0;
    }
    if (run >= kDirectRun) {
      if (!AppendUTF8(units + i, run, out, capacity, written)) return false;
    } else {
      std::memcpy(staged + used, units + i, static_cast<std::size_t>(run) * sizeof(unsigned short));
      used += run;
    }
    if (next == count) break;
    if (used + 2 > kStaged) {
      if (!AppendUTF8(staged, used, out, capacity, written)) return false;
      used = 0;
    }
    const unsigned short c = units[next];
    staged[used++] = sEscapeInUTF16;
    // U+0000 lands on the mark itself, the same pair as an escaped U+F800.
    staged[used++] = c == sEscapeInUTF16 ? sEscapeInUTF16 : static_cast<unsigned short>(c + sEscapeInUTF16);
    i = next + 1;
  }
  return used == 0 || AppendUTF8(staged, used, out, capacity, written);
}

}  // namespace

void do_UTF162UTF8(const unsigned short* wideChars, int wideCharsSize, char*& utf8Chars, int& utf8Size,
                   int escapeControlChars) {
  utf8Chars = nullptr;
  AD_ASSERT_TEXT(wideCharsSize > 0, "wideCharsSize > 0", kStreamUnit);
  AD_ASSERT_TEXT(wideChars != nullptr, "wideChars != __null", kStreamUnit);

  // Count first: the common text has nothing to escape and is converted
  // straight from the caller's units in one call.
  EscapeScan scan;
  if (escapeControlChars) scan.Run(wideChars, wideCharsSize);
  const int toEscape = scan.count;

  // Four bytes a unit of the escaped text is more than any unit needs, so
  // no second pass is ever needed and there is room for a terminating zero.
  const std::size_t capacity = 4u * (static_cast<std::size_t>(wideCharsSize) + static_cast<std::size_t>(toEscape));
  const int32_t icuCapacity = static_cast<int32_t>(capacity > INT32_MAX ? INT32_MAX : capacity);
  utf8Chars = new char[capacity];
  utf8Size = 0;
  int32_t written = 0;
  const bool converted = toEscape == 0 ? AppendUTF8(wideChars, wideCharsSize, utf8Chars, icuCapacity, written)
                                       : EscapeToUTF8(wideChars, wideCharsSize, scan, utf8Chars, icuCapacity, written);
  if (!converted) {
    // Unpaired surrogates end here; the caller gets nothing to release.
    delete[] utf8Chars;
    utf8Chars = nullptr;
    AdThrowMsgExcept(AdGetBadValue0MsgID(), "U_SUCCESS(uerr)", kStreamUnit, __LINE__);
  }
  utf8Size = written;
}
