#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "nxcharsets.h"

// Decoding and the ASCII and default targets are covered through the
// conversion functions; here: the code-page tables themselves.
TEST(AdCodePage, MappingsAndRoundTrips) {
  const struct {
    unsigned int codePage;
    std::string bytes;
    std::u16string text;
  } cases[] = {
      {1252, "\x80\xE9\x01\x7F", u"\u20ac\u00e9\u0001\u007f"},
      {936, "\xD6\xD0\xCE\xC4\x01" "a", u"\u4e2d\u6587\u0001a"},
      {932, "\x93\xfa\x96\x7b\x02", u"\u65e5\u672c\u0002"},
      {65001, "\xC3\xA9", u"\u00e9"},
  };
  for (const auto& c : cases) {
    const AdCharset charset = AdCodePage::GetCharset(c.codePage);
    ASSERT_TRUE(charset.isKnown()) << c.codePage;
    AdUTF16String wide;
    ASSERT_TRUE(wide.cvtFromMBCS(charset, c.bytes.data(), static_cast<int>(c.bytes.size())));
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(wide.getData()), wide.getLength()), c.text);
    AdMbcsString back;
    ASSERT_TRUE(back.cvtFromUTF16(charset, wide.getData(), wide.getLength()));
    EXPECT_EQ(std::string(back.getData(), back.getLength()), c.bytes);
  }
  // A lead byte without its trail byte: lenient decoding substitutes.
  AdUTF16String wide;
  ASSERT_TRUE(wide.cvtFromMBCS(AdCodePage::GetCharset(932), "a\x93", 2, AdCharset::Nonstrict));
  EXPECT_TRUE(wide.getData()[0] == 'a' && wide.getLength() > 1);
  // Unknown code pages and unpaired surrogates: the conversion tests.
  // File names are UTF-8 whatever the locale.
  EXPECT_EQ(std::string(MbcsFileName(NX_U16(u"r\u00e9sum\u00e9.xml")).getData()), "r\xC3\xA9sum\xC3\xA9.xml");
}

// Two threads converting to the same code page, one strictly and one
// leniently: neither choice may leak into the other's calls. A converter
// shared between them once made lenient calls raise and strict ones
// substitute silently.
TEST(AdCodePage, StrictAndLenientOnTwoThreads) {
  const AdCharset cp1252 = AdCodePage::GetCharset(1252);
  const unsigned short unmappable[] = {'a', 0x4E2D, 'b'};
  std::atomic<int> strictWrong{0}, lenientWrong{0};
  auto run = [&](AdCharset::converter_t mode, std::atomic<int>& wrong) {
    for (int k = 0; k < 5000; ++k) {
      AdMbcsString out;
      const bool ok = out.cvtFromUTF16(cp1252, unmappable, 3, mode);
      if (ok != (mode == AdCharset::Nonstrict)) ++wrong;
    }
  };
  std::thread strict(run, AdCharset::Strict, std::ref(strictWrong));
  std::thread lenient(run, AdCharset::Nonstrict, std::ref(lenientWrong));
  strict.join();
  lenient.join();
  EXPECT_EQ(strictWrong.load(), 0);
  EXPECT_EQ(lenientWrong.load(), 0);
}
