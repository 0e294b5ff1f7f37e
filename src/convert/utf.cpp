#include <unicode/ustring.h>

#include <climits>
#include <cstring>
#include <memory>

#include "convert/convert_private.h"
#include "nxcharsets.h"
#include "xmlstream.h"

using namespace nxconvert;

namespace {

// TAB, LF and CR are legal in XML text and are never escaped (bits over 1 << c).
const unsigned int kAllowedAsciiCCMask = 0x2600;

// Whether a unit travels as an escaped pair. Written without a table or a
// variable shift so that the counting loop vectorises.
inline bool NeedsEscape(unsigned short c) {
  return (c == sEscapeInUTF16) | ((c < 0x20) & (c != 0x09) & (c != 0x0A) & (c != 0x0D));
}

// Only the decoded side of an escaped pair that the writer can produce.
inline bool IsEscapedCC(unsigned int cc) {
  return cc >= 0x01 && cc <= 0x1F && ((1u << cc) & kAllowedAsciiCCMask) == 0;
}

void CheckNonAscii(const unsigned short* units, int count) {
  for (int i = 0; i < count; ++i)
    if (units[i] & s_NonAsciiUTF16Mask) AdThrowMsgExcept(QmMessage(kNonAsciiMsgId), "", kUnit, __LINE__);
}

}  // namespace

void ConvertXMLSafeCCToAsciiCC(unsigned short* buf, int& len, bool& inEscape) {
  int in = 0;
  if (!inEscape) {
    // Most text holds no mark at all: nothing moves before the first one.
    while (in < len && buf[in] != sEscapeInUTF16) ++in;
  }
  int out = in;
  for (; in < len; ++in) {
    const unsigned short d = buf[in];
    if (!inEscape) {
      if (d == sEscapeInUTF16)
        inEscape = true;
      else
        buf[out++] = d;
      continue;
    }
    if (d == sEscapeInUTF16)
      buf[out++] = sEscapeInUTF16;
    else if (d > sEscapeInUTF16 && IsEscapedCC(static_cast<unsigned int>(d) - sEscapeInUTF16))
      buf[out++] = static_cast<unsigned short>(d - sEscapeInUTF16);
    else
      AdThrowMsgExcept(QmMessage(AdGetHitUnreachedMsgID()), "", kUnit, __LINE__);
    inEscape = false;
  }
  len = out;
}

void UTF82UTF16(bool startsWithEscape, const char* data, int numBytes, bool asciiOnly, bool throwOnDecodeError,
                unsigned short*& wide, int& wideStringSize, bool& endsWithEscape) {
  endsWithEscape = startsWithEscape;
  wide = nullptr;
  wideStringSize = 0;
  AD_ASSERT_TEXT(data != nullptr, "data != __null", kUnit);
  if (numBytes == 0) return;
  if (numBytes < 0) numBytes = static_cast<int>(std::strlen(data)) + 1;

  AdUTF16String decoded;
  if (!decoded.cvtFromMBCS(AdCharset::getUTF8Charset(), data, numBytes,
                           throwOnDecodeError ? AdCharset::Strict : AdCharset::Nonstrict))
    AdThrowMsgExcept(kCannotDecodeMsgId,
                     "wide.cvtFromMBCS(AdCharset::getUTF8Charset(), data, numBytes, (throwOnDecodeError ? "
                     "AdCharset::Strict : AdCharset::Nonstrict))",
                     kUnit, __LINE__);
  int size = decoded.getLength();
  // Owned here until every check has passed, so nothing leaks on a raise.
  std::unique_ptr<unsigned short[]> units(new unsigned short[static_cast<std::size_t>(size)]);
  std::memcpy(units.get(), decoded.getData(), static_cast<std::size_t>(size) * sizeof(unsigned short));
  ConvertXMLSafeCCToAsciiCC(units.get(), size, endsWithEscape);
  // Bytes that decode to nothing are legal only as a lone escape mark.
  AD_ASSERT_TEXT(size > 0 || endsWithEscape == 1, "wideStringSize > 0 || endsWithEscape == 1", kUnit);
  // The ASCII check goes with strict decoding only: a lenient caller has
  // asked for whatever the text holds.
  if (asciiOnly && throwOnDecodeError) CheckNonAscii(units.get(), size);
  wide = units.release();
  wideStringSize = size;
}

Obx_String UTF82CString(const char* data, bool asciiOnly, bool throwOnDecodeError) {
  AD_ASSERT_TEXT(data != nullptr, "data != __null", kUnit);
  unsigned short* wide = nullptr;
  int size = 0;
  bool endedWithEscape = false;
  UTF82UTF16(false, data, static_cast<int>(std::strlen(data)) + 1, asciiOnly, throwOnDecodeError, wide, size,
             endedWithEscape);
  std::unique_ptr<unsigned short[]> owner(wide);
  AD_ASSERT_TEXT(endedWithEscape == false, "endedWithEscape == false", kUnit);
  return Obx_String(wide);
}

void do_UTF162UTF8(const unsigned short* wideChars, int wideCharsSize, char*& utf8Chars, int& utf8Size,
                   int escapeControlChars) {
  utf8Chars = nullptr;
  AD_ASSERT_TEXT(wideCharsSize > 0, "wideCharsSize > 0", kUnit);
  AD_ASSERT_TEXT(wideChars != nullptr, "wideChars != __null", kUnit);

  const unsigned short* units = wideChars;
  int count = wideCharsSize;
  std::unique_ptr<unsigned short[]> escaped;
  if (escapeControlChars) {
    // Count first: the common text has nothing to escape and is converted
    // straight from the caller's units.
    int toEscape = 0;
    for (int i = 0; i < wideCharsSize; ++i) toEscape += NeedsEscape(wideChars[i]);
    if (toEscape != 0) {
      escaped.reset(new unsigned short[static_cast<std::size_t>(wideCharsSize) + 2u * toEscape]);
      unsigned short* p = escaped.get();
      for (int i = 0; i < wideCharsSize; ++i) {
        const unsigned short c = wideChars[i];
        if (!NeedsEscape(c)) {
          *p++ = c;
        } else {
          *p++ = sEscapeInUTF16;
          // U+0000 lands on the mark itself, the same pair as an escaped U+F800.
          *p++ = c == sEscapeInUTF16 ? sEscapeInUTF16 : static_cast<unsigned short>(c + sEscapeInUTF16);
        }
      }
      units = escaped.get();
      count = wideCharsSize + toEscape;
    }
  }

  // Four bytes a unit is more than any unit needs, so one ICU call always
  // suffices and leaves room for a terminating zero.
  const std::size_t capacity = 4u * static_cast<std::size_t>(count);
  utf8Chars = new char[capacity];
  utf8Size = 0;
  UErrorCode uerr = U_ZERO_ERROR;
  int32_t written = 0;
  u_strToUTF8(utf8Chars, static_cast<int32_t>(capacity > INT32_MAX ? INT32_MAX : capacity), &written,
              reinterpret_cast<const UChar*>(units), count, &uerr);
  if (U_FAILURE(uerr)) {
    // Unpaired surrogates end here; the caller gets nothing to release.
    delete[] utf8Chars;
    utf8Chars = nullptr;
    AdThrowMsgExcept(AdGetBadValue0MsgID(), "U_SUCCESS(uerr)", kUnit, __LINE__);
  }
  utf8Size = written;
}
