// Conversion between UTF-8 and the locale's or a numbered code page, by way
// of UTF-16.
#include <cstring>
#include <memory>

#include "convert/convert_private.h"
#include "nxcharsets.h"
#include "xmlstream.h"

using namespace nxmsg;

namespace {

// Code-page bytes to UTF-8 by way of UTF-16. decodeText is the condition
// text a decoding failure is raised with.
void ToUTF8(const AdCharset& charset, const char* decodeText, const char* data, int dataSize, char*& utf8Chars,
            int& utf8Size, int escapeControlChars) {
  AD_ASSERT_TEXT(data != nullptr, "data != __null", kStreamUnit);
  utf8Chars = nullptr;
  if (dataSize == 0) {
    utf8Size = 0;
    return;
  }
  if (dataSize < 0) dataSize = static_cast<int>(std::strlen(data)) + 1;
  AdUTF16String wide;
  if (!wide.cvtFromMBCS(charset, data, dataSize, AdCharset::Strict))
    AdThrowMsgExcept(kCannotDecodeMsgId, decodeText, kStreamUnit, __LINE__);
  utf8Size = 0;
  const unsigned short* wideChars = wide.getData();
  AD_ASSERT_TEXT(wideChars != nullptr, "wideChars != __null", kStreamUnit);
  if (wide.getLength() != 0) do_UTF162UTF8(wideChars, wide.getLength(), utf8Chars, utf8Size, escapeControlChars);
}

// UTF-8 to code-page bytes by way of UTF-16. The UTF-8 side is always read
// leniently: the caller's strictness is about the target code page.
// codePage names the target in the message of an empty result; null is the
// locale's code page, which the message calls "Client".
void FromUTF8(const AdCharset& target, const char* encodeText, const unsigned int* codePage, bool startsWithEscape,
              const char* data, int numBytes, bool asciiOnly, bool throwOnDecodeError, char*& encodedChars,
              int& encodedDataSize, bool& endsWithEscape) {
  endsWithEscape = startsWithEscape;
  encodedDataSize = 0;
  encodedChars = nullptr;
  AD_ASSERT_TEXT(data != nullptr, "data != __null", kStreamUnit);
  if (numBytes == 0) return;

  unsigned short* wideChars = nullptr;
  int num = 0;
  UTF82UTF16(startsWithEscape, data, numBytes, false, false, wideChars, num, endsWithEscape);
  std::unique_ptr<unsigned short[]> owner(wideChars);
  // A chunk that was only an escape mark: its state is carried, no bytes.
  if (num == 0) return;

  AdMbcsString encoded;
  if (!encoded.cvtFromUTF16(target, wideChars, num, throwOnDecodeError ? AdCharset::Strict : AdCharset::Nonstrict))
    AdThrowMsgExcept(asciiOnly ? kNonAsciiMsgId : kCannotEncodeMsgId, encodeText, kStreamUnit, __LINE__);
  const int size = encoded.getLength();
  if (size <= 0) {
    QmMessage message(kEncodedNothingMsgId);
    message.SetParam("_CPNUM_", codePage ? AdStr(static_cast<long>(*codePage)) : Obx_String(NX_U16(u"Client")));
    message.SetParam("_ERRORNUM_", AdStr(-1));
    AdThrowMsgExcept(message, "encodedDataSize > 0", kStreamUnit, __LINE__);
  }
  encodedChars = new char[static_cast<std::size_t>(size)];
  std::memcpy(encodedChars, encoded.getData(), static_cast<std::size_t>(size));
  encodedDataSize = size;
}

}  // namespace

void ACP2UTF8(const char* data, int dataSize, char*& utf8Chars, int& utf8Size, int escapeControlChars) {
  ToUTF8(AdCharset::getDefaultCharset(), "wide.cvtFromMBCS(AdCharset::getDefaultCharset(), data, dataSize)", data,
         dataSize, utf8Chars, utf8Size, escapeControlChars);
}

void ACP2UTF8(const char* data, char*& utf8Chars, int escapeControlChars) {
  int utf8Size = 0;
  ACP2UTF8(data, -1, utf8Chars, utf8Size, escapeControlChars);
}

void CP2UTF8(const char* data, int dataSize, char*& utf8Chars, int& utf8Size, unsigned int codePage,
             int escapeControlChars) {
  ToUTF8(AdCodePage::GetCharset(codePage), "0", data, dataSize, utf8Chars, utf8Size, escapeControlChars);
}

void CP2UTF8(const char* data, char*& utf8Chars, unsigned int codePage, int escapeControlChars) {
  int utf8Size = 0;
  CP2UTF8(data, -1, utf8Chars, utf8Size, codePage, escapeControlChars);
}

void UTF82ACP(bool startsWithEscape, const char* data, int numBytes, bool asciiOnly, bool throwOnDecodeError,
              char*& encodedChars, int& encodedDataSize, bool& endsWithEscape) {
  FromUTF8(asciiOnly ? AdCharset::getASCIICharset() : AdCharset::getDefaultCharset(),
           "encoded.cvtFromUTF16((asciiOnly ? AdCharset::getASCIICharset() : AdCharset::getDefaultCharset()), "
           "wideChars, num, (throwOnDecodeError ? AdCharset::Strict : AdCharset::Nonstrict))",
           nullptr, startsWithEscape, data, numBytes, asciiOnly, throwOnDecodeError, encodedChars,
           encodedDataSize, endsWithEscape);
}

int UTF82ACP(const char* data, bool asciiOnly, bool throwOnDecodeError, char*& encodedChars) {
  int new_size = 0;
  bool endsWithEscape = false;
  UTF82ACP(false, data, -1, asciiOnly, throwOnDecodeError, encodedChars, new_size, endsWithEscape);
  if (endsWithEscape || encodedChars == nullptr || new_size <= 0) {
    delete[] encodedChars;
    encodedChars = nullptr;
    AD_ASSERT_TEXT(endsWithEscape == false, "endsWithEscape == false", kStreamUnit);
    AdThrowMsgExcept(AdGetBadValue0MsgID(), "encodedChars != __null && new_size > 0", kStreamUnit, __LINE__);
  }
  return new_size;
}

void UTF82CP(bool startsWithEscape, const char* data, int numBytes, bool asciiOnly, bool throwOnDecodeError,
             char*& encodedChars, int& encodedDataSize, bool& endsWithEscape, unsigned int acp) {
  FromUTF8(asciiOnly ? AdCharset::getASCIICharset() : AdCodePage::GetCharset(acp),
           "encoded.cvtFromUTF16((asciiOnly ? AdCharset::getASCIICharset() : AdCodePage::GetCharset(acp)), "
           "wideChars, num, (throwOnDecodeError ? AdCharset::Strict : AdCharset::Nonstrict))",
           &acp, startsWithEscape, data, numBytes, asciiOnly, throwOnDecodeError,
           encodedChars, encodedDataSize, endsWithEscape);
}
