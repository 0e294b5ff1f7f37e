#include <cstdint>
#include <cstring>
#include <cwchar>
#include <mutex>

#include "sources/clean_private.h"
#include "xmlstream.h"

using namespace nxclean;

std::vector<bool> IXmlCleanStreamSourceOM::s_passThroughInOM;
std::vector<bool> IXmlCleanStreamSourceOMSR1::s_passThroughInOMSR1;
std::vector<bool> IXmlCleanStreamSourceFmt4::s_passThroughInFmt4;

void nxclean::Unreached(int line) { AdThrowMsgExcept(QmMessage(AdGetHitUnreachedMsgID()), "", kUnit, line); }

namespace {

// mblen's answer for the whole of bytes (-1 for an incomplete or invalid
// character), without mblen's hidden state, so that two threads can repair
// at once.
int MultibyteLength(const char* bytes, int count) {
  std::mbstate_t state{};
  const std::size_t n = std::mbrlen(bytes, static_cast<std::size_t>(count), &state);
  if (n == static_cast<std::size_t>(-1) || n == static_cast<std::size_t>(-2)) return -1;
  return static_cast<int>(n);
}

}  // namespace

// ---------------------------------------------------------------------------
// OM

IXmlCleanStreamSourceOM::IXmlCleanStreamSourceOM(IXmlStreamSource* pDirty) : IXmlCleanStreamSource(pDirty) {
  static std::once_flag filled;
  std::call_once(filled, [] { s_passThroughInOM = BuildPassThrough(true, false); });
  m_passThrough = &s_passThroughInOM;
}

IXmlCleanStreamSourceOM::~IXmlCleanStreamSourceOM() = default;

bool IXmlCleanStreamSourceOM::NeedOMDecimalNCR(long offset, unsigned char& value, long& length) {
  bool isHex = false;
  length = ParseNumericCharRef(offset, value, isHex);
  // Every "&" of an OM packet starts a decimal reference of a byte.
  if (length == 0 || isHex) Unreached(__LINE__);
  if (s_xmlByteCharsToEscape[value]) return false;
  if (!s_passThroughInOM[value] && value >= 32) return true;
  // OM never wrote a printable ASCII byte or another control as a reference.
  Unreached(__LINE__);
}

void IXmlCleanStreamSourceOM::GetUtf8FromSource() {
  const unsigned char c = m_buffer->CurrentByte();
  AD_ASSERT_TEXT(c == AMP, "c == AMP", kUnit);
  unsigned char val = 0;
  long length = 0;
  if (!NeedOMDecimalNCR(0, val, length)) {
    // A special byte's reference stays for expat to decode.
    OutputCurrentByte();
    return;
  }
  AD_ASSERT_TEXT(val >= DEL, "val >= DEL", kUnit);
  // The bytes of one code-page character: each as a reference, or a trail
  // byte written raw (an ASCII trail byte of a double-byte code page).
  char bytes[16];
  int count = 1;
  bytes[0] = static_cast<char>(val);
  long offset = length;
  for (;;) {
    int size = MultibyteLength(bytes, count);
    if (size == count) {
      ACP2UTF8(bytes, count, static_cast<int>(offset));
      return;
    }
    if (count > 15 || size != -1) Unreached(__LINE__);
    const unsigned char next = m_buffer->ByteAt(offset);
    if (next == AMP) {
      NeedOMDecimalNCR(offset, val, length);
      bytes[count++] = static_cast<char>(val);
      offset += length;
      continue;
    }
    bytes[count++] = static_cast<char>(next);
    offset += 1;
    size = MultibyteLength(bytes, count);
    if (size == count) {
      ACP2UTF8(bytes, count, static_cast<int>(offset));
      return;
    }
    if (count > 15 || size != -1) Unreached(__LINE__);
  }
}

// ---------------------------------------------------------------------------
// OMSR1

IXmlCleanStreamSourceOMSR1::IXmlCleanStreamSourceOMSR1(IXmlStreamSource* pDirty) : IXmlCleanStreamSource(pDirty) {
  static std::once_flag filled;
  std::call_once(filled, [] { s_passThroughInOMSR1 = BuildPassThrough(false, true); });
  m_passThrough = &s_passThroughInOMSR1;
}

IXmlCleanStreamSourceOMSR1::~IXmlCleanStreamSourceOMSR1() = default;

void IXmlCleanStreamSourceOMSR1::GetUtf8FromSource() {
  unsigned char c = m_buffer->CurrentByte();
  if (c <= 31) {
    AD_ASSERT_TEXT(!s_xmlByteCharsToEscape[c], "!s_xmlByteCharsToEscape[c]", kUnit);
    char byte = static_cast<char>(c);
    ACP2UTF8(&byte, 1, 1);
    return;
  }
  if (c == AMP) {
    unsigned char val = 0;
    bool isHex = false;
    if (ParseNumericCharRef(0, val, isHex) != 0) {
      AD_ASSERT_TEXT(isHex, "isHex", kUnit);
      AD_ASSERT_TEXT(s_xmlByteCharsToEscape[val], "s_xmlByteCharsToEscape[val]", kUnit);
      OutputCurrentByte();
      return;
    }
    if (LookingAt("&amp;") || LookingAt("&lt;") || LookingAt("&gt;") || LookingAt("&apos;") || LookingAt("&quot;")) {
      OutputCurrentByte();
      return;
    }
    AdThrowMsgExcept(AdGetBadValue0MsgID(),
                     "LookingAt(C_AMP) || LookingAt(C_LT) || LookingAt(C_GT) || LookingAt(C_APOS) || "
                     "LookingAt(C_QUOT)",
                     kUnit, __LINE__);
  }
  Unreached(__LINE__);
}

// ---------------------------------------------------------------------------
// Format 4

IXmlCleanStreamSourceFmt4::IXmlCleanStreamSourceFmt4(IXmlStreamSource* pDirty) : IXmlCleanStreamSource(pDirty) {
  static std::once_flag filled;
  std::call_once(filled, [] { s_passThroughInFmt4 = BuildPassThrough(false, false); });
  m_passThrough = &s_passThroughInFmt4;
}

IXmlCleanStreamSourceFmt4::~IXmlCleanStreamSourceFmt4() = default;

namespace {

const int kSentinel = -1;

int TrailCount(unsigned char lead) {
  if (lead < 0xF0) return (lead >= 0xC0) + (lead >= 0xE0);
  return lead < 0xFE ? 3 + (lead >= 0xF8) + (lead >= 0xFC) : 0;
}

bool IsTrail(unsigned char b) { return (b & 0xC0) == 0x80; }

}  // namespace

int XmlDecodeUtf8Safe(const unsigned char* s, int& i, int length) {
  int c = s[i++];
  if (c < 0x80) return c;
  // The common leads first: three bytes that cannot be overlong or a
  // surrogate, and two bytes that cannot be overlong.
  if (c > 0xE0 && c <= 0xEC && i + 1 < length && IsTrail(s[i]) && IsTrail(s[i + 1])) {
    c = ((c & 0x0F) << 12) | ((s[i] & 0x3F) << 6) | (s[i + 1] & 0x3F);
    i += 2;
    return c;
  }
  if (c >= 0xC2 && c < 0xE0 && i < length && IsTrail(s[i])) {
    c = ((c & 0x1F) << 6) | (s[i] & 0x3F);
    ++i;
    return c;
  }
  if (!(c >= 0xC0 && c <= 0xFD)) return kSentinel;
  const int start = i;
  int count = TrailCount(static_cast<unsigned char>(c));
  if (i + count > length) {
    // Cut short: move past the trail bytes that are there.
    while (i < length && IsTrail(s[i])) ++i;
    return kSentinel;
  }
  static const int minLegal[] = {0, 0x80, 0x800, 0x10000};
  bool illegal = count >= 4;
  if (!illegal) {
    c &= (1 << (6 - count)) - 1;
    for (int k = 0; k < count; ++k) {
      const unsigned char trail = s[i++];
      c = (c << 6) | (trail & 0x3F);
      illegal = illegal || !IsTrail(trail);
      // Above U+10FFFF: decided by the first trail byte.
      if (k == 0 && count == 3 && c >= 0x110) {
        illegal = true;
        break;
      }
    }
    illegal = illegal || c < minLegal[count] || (c >= 0xD800 && c <= 0xDFFF);
  }
  if (illegal) {
    i = start;
    while (count > 0 && i < length && IsTrail(s[i])) {
      ++i;
      --count;
    }
    return kSentinel;
  }
  return c;
}

void IXmlCleanStreamSourceFmt4::GetUtf8FromSource() {
  const unsigned char c = m_buffer->CurrentByte();
  AD_ASSERT_TEXT(static_cast<uint8_t>(c - 0xC0) < 0x3E, "((uint8_t)((c)-0xc0)<0x3e)", kUnit);
  unsigned char collected[IXmlCleanStreamSource::DEFAULTBUFSIZE + 1];
  int numOfBytes = 1;
  collected[0] = c;
  for (;;) {
    // A character that ends the packet has nothing after it to look at.
    if (numOfBytes == m_buffer->DataSize() && m_pDirtyStream->eof()) break;
    const unsigned char next = m_buffer->ByteAt(numOfBytes);
    if (!IsTrail(next)) break;
    collected[numOfBytes++] = next;
  }
  int i = 0;
  const int ch = XmlDecodeUtf8Safe(collected, i, numOfBytes);
  AD_ASSERT_TEXT(i == numOfBytes, "i == numOfBytes", kUnit);
  int size = 0;
  // Each unit that stands for a control character, and U+F800 itself, gets
  // the escape mark. TAB, LF and CR are never escaped, so their units are
  // ordinary characters.
  if (ch == 0xF800 || (ch > 0xF800 && ch <= 0xF81F && ch != 0xF809 && ch != 0xF80A && ch != 0xF80D)) {
    AD_ASSERT_TEXT(numOfBytes + 3 <= static_cast<int>(sizeof m_utf8Char), "m_utf8CharSize <= sizeof m_utf8Char", kUnit);
    std::memcpy(m_utf8Char, sEscapeInUTF8, 3);
    size = 3;
  } else {
    AD_ASSERT_TEXT(numOfBytes <= static_cast<int>(sizeof m_utf8Char), "m_utf8CharSize <= sizeof m_utf8Char", kUnit);
  }
  std::memcpy(m_utf8Char + size, collected, static_cast<std::size_t>(numOfBytes));
  m_utf8CharSize = size + numOfBytes;
  m_utf8CharIndex = 0;
  Consume(numOfBytes);
}
