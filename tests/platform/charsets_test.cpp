#include <gtest/gtest.h>

#include <string>

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
  EXPECT_FALSE(AdCodePage::GetCharset(4242).isKnown());
  EXPECT_FALSE(wide.cvtFromMBCS(AdCodePage::GetCharset(4242), "a", 1, AdCharset::Nonstrict));

  // A lone surrogate: strict encoding fails, lenient substitutes.
  const unsigned short lone[] = {'a', 0xDC00};
  AdMbcsString encoded;
  EXPECT_FALSE(encoded.cvtFromUTF16(AdCharset::getUTF8Charset(), lone, 2, AdCharset::Strict));
  EXPECT_TRUE(encoded.cvtFromUTF16(AdCharset::getUTF8Charset(), lone, 2, AdCharset::Nonstrict));
  EXPECT_EQ(std::string(encoded.getData()), "a\xEF\xBF\xBD");
  // File names are UTF-8 whatever the locale.
  EXPECT_EQ(std::string(MbcsFileName(NX_U16(u"r\u00e9sum\u00e9.xml")).getData()), "r\xC3\xA9sum\xC3\xA9.xml");
}
