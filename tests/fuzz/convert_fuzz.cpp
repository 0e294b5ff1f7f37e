// Hostile bytes through every conversion routine. The first byte picks the
// routine and its flags, the rest is the data. UTF-16 text without
// surrogates and zeros must come back unchanged from UTF-8 with the
// control-character escape.
#include <iterator>

#include "fuzz_common.h"

namespace {

const unsigned int kCodePages[] = {1252, 1250, 1251, 437, 850, 932, 936, 949, 950, 20127, 28591, 65001, 12345};

std::vector<unsigned short> Units(const uint8_t* data, size_t size) {
  std::vector<unsigned short> units(size / 2);
  for (size_t k = 0; k < units.size(); ++k) units[k] = static_cast<unsigned short>(data[2 * k] | data[2 * k + 1] << 8);
  return units;
}

// UTF-16 to UTF-8 with the escape and back, for text that has one way only
// to come back (no surrogates, no zero, which returns as the mark).
void RoundTrip(const std::vector<unsigned short>& units) {
  for (unsigned short u : units)
    if (u == 0 || (u >= 0xD800 && u <= 0xDFFF)) return;
  char* utf8 = nullptr;
  int utf8Size = 0;
  do_UTF162UTF8(units.data(), static_cast<int>(units.size()), utf8, utf8Size, 1);
  std::unique_ptr<char[]> utf8Owner(utf8);
  unsigned short* wide = nullptr;
  int wideSize = 0;
  bool endsWithEscape = false;
  if (utf8Size > 0) UTF82UTF16(false, utf8, utf8Size, false, true, wide, wideSize, endsWithEscape);
  std::unique_ptr<unsigned short[]> wideOwner(wide);
  if (std::vector<unsigned short>(wide, wide + wideSize) != units || endsWithEscape)
    fuzz::Fail("UTF-16 through UTF-8 came back otherwise", std::to_string(units.size()) + " units",
               std::to_string(wideSize) + " units");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const unsigned flags = data[0];
  const bool escape = flags & 0x10, asciiOnly = flags & 0x20, strict = flags & 0x40;
  const std::string bytes = fuzz::Bytes(data + 1, size - 1);
  const char* text = bytes.c_str();  // zero-terminated for the whole-string forms
  const int length = static_cast<int>(bytes.size());
  const unsigned int codePage = kCodePages[(flags >> 4) % std::size(kCodePages)];
  std::vector<unsigned short> units = Units(data + 1, size - 1);
  char* out = nullptr;
  unsigned short* wide = nullptr;
  int outSize = 0, len = static_cast<int>(units.size());
  bool endsWithEscape = escape;
  fuzz::Accepting([&] {
    switch (flags % 12) {
      case 0: return ConvertXMLSafeCCToAsciiCC(units.data(), len, endsWithEscape);
      case 1: return UTF82UTF16(escape, text, length, asciiOnly, strict, wide, outSize, endsWithEscape);
      case 2: return (void)UTF82CString(text, asciiOnly, strict);
      case 3: return do_UTF162UTF8(units.data(), len, out, outSize, escape);
      case 4: return RoundTrip(units);
      case 5: return ACP2UTF8(text, length, out, outSize, escape);
      case 6: return ACP2UTF8(text, out, escape);
      case 7: return CP2UTF8(text, length, out, outSize, codePage, escape);
      case 8: return CP2UTF8(text, out, codePage, escape);
      case 9: return UTF82ACP(escape, text, length, asciiOnly, strict, out, outSize, endsWithEscape);
      case 10: return (void)UTF82ACP(text, asciiOnly, strict, out);
      default: return UTF82CP(escape, text, length, asciiOnly, strict, out, outSize, endsWithEscape, codePage);
    }
  });
  delete[] out;
  delete[] wide;
  return 0;
}
