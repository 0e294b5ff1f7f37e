#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>

#include "nxcharsets.h"

TEST(AdCharset, StrictUtf8FailsWhereLenientSubstitutes) {
  const std::string bad = "ok\xC3(\xED\xA0\x80";  // a truncated sequence and an encoded surrogate
  AdUTF16String strict;
  EXPECT_FALSE(strict.cvtFromMBCS(AdCharset::getUTF8Charset(), bad.data(), static_cast<int>(bad.size()),
                                  AdCharset::Strict));
  EXPECT_EQ(strict.getLength(), 0);
  AdUTF16String lenient;
  ASSERT_TRUE(lenient.cvtFromMBCS(AdCharset::getUTF8Charset(), bad.data(), static_cast<int>(bad.size()),
                                  AdCharset::Nonstrict));
  EXPECT_EQ(lenient.getData()[0], 'o');
  EXPECT_EQ(lenient.getData()[2], 0xFFFD);
  EXPECT_EQ(lenient.getData()[3], '(');

  const std::string nul("a\0b", 3);  // embedded zero bytes are data
  AdUTF16String withNul;
  ASSERT_TRUE(withNul.cvtFromMBCS(AdCharset::getUTF8Charset(), nul.data(), 3));
  EXPECT_EQ(withNul.getLength(), 3);

  const unsigned short lone[] = {'a', 0xDC00};
  AdMbcsString encoded;
  EXPECT_FALSE(encoded.cvtFromUTF16(AdCharset::getUTF8Charset(), lone, 2, AdCharset::Strict));
  EXPECT_TRUE(encoded.cvtFromUTF16(AdCharset::getUTF8Charset(), lone, 2, AdCharset::Nonstrict));
  EXPECT_EQ(std::string(encoded.getData()), "a\xEF\xBF\xBD");
}

TEST(AdCharset, AsciiTargetRejectsNonAsciiOnlyWhenStrict) {
  const unsigned short text[] = {'c', 'a', 'f', 0xE9};
  AdMbcsString strict;
  EXPECT_FALSE(strict.cvtFromUTF16(AdCharset::getASCIICharset(), text, 4, AdCharset::Strict));
  AdMbcsString lenient;
  ASSERT_TRUE(lenient.cvtFromUTF16(AdCharset::getASCIICharset(), text, 4, AdCharset::Nonstrict));
  EXPECT_EQ(lenient.getLength(), 4);
  EXPECT_EQ(std::string(lenient.getData(), 3), "caf");
}

TEST(AdCodePage, SingleAndDoubleByteRoundTrips) {
  struct Case {
    unsigned int codePage;
    std::string bytes;
    std::u16string text;
  } cases[] = {
      {1252, "\x80\xE9\x01\x7F", u"\u20ac\u00e9\u0001\u007f"},
      {936, "\xD6\xD0\xCE\xC4\x01" "a", u"\u4e2d\u6587\u0001a"},
      {932, "\x93\xfa\x96\x7b\x02", u"\u65e5\u672c\u0002"},
      {65001, "\xC3\xA9", u"\u00e9"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.codePage);
    const AdCharset charset = AdCodePage::GetCharset(c.codePage);
    ASSERT_TRUE(charset.isKnown()) << charset.getName();
    AdUTF16String wide;
    ASSERT_TRUE(wide.cvtFromMBCS(charset, c.bytes.data(), static_cast<int>(c.bytes.size())));
    EXPECT_EQ(std::u16string(reinterpret_cast<const char16_t*>(wide.getData()), wide.getLength()), c.text);
    AdMbcsString back;
    ASSERT_TRUE(back.cvtFromUTF16(charset, wide.getData(), wide.getLength()));
    EXPECT_EQ(std::string(back.getData(), back.getLength()), c.bytes);
  }
  // A lead byte without its trail byte: strict decoding fails, lenient
  // substitutes.
  AdUTF16String wide;
  EXPECT_FALSE(wide.cvtFromMBCS(AdCodePage::GetCharset(932), "a\x93", 2, AdCharset::Strict));
  ASSERT_TRUE(wide.cvtFromMBCS(AdCodePage::GetCharset(932), "a\x93", 2, AdCharset::Nonstrict));
  EXPECT_EQ(wide.getData()[0], 'a');
  EXPECT_GT(wide.getLength(), 1);
  // A character the code page cannot hold.
  const unsigned short han[] = {0x4E2D};
  AdMbcsString narrow;
  EXPECT_FALSE(narrow.cvtFromUTF16(AdCodePage::GetCharset(1252), han, 1, AdCharset::Strict));
  // An unknown code page converts nothing.
  const AdCharset unknown = AdCodePage::GetCharset(4242);
  EXPECT_FALSE(unknown.isKnown());
  EXPECT_FALSE(wide.cvtFromMBCS(unknown, "a", 1, AdCharset::Nonstrict));
}

TEST(AdCharset, DefaultCharsetFollowsTheLocaleLikeMblen) {
  const std::string saved = std::setlocale(LC_CTYPE, nullptr);
  std::setlocale(LC_CTYPE, "C");
  // In the C locale a byte above 0x7F is no character for mblen, nor for the
  // default charset.
  EXPECT_EQ(std::mblen("\xE9", 1), -1);
  AdUTF16String wide;
  EXPECT_FALSE(wide.cvtFromMBCS(AdCharset::getDefaultCharset(), "\xE9", 1, AdCharset::Strict));
  EXPECT_TRUE(wide.cvtFromMBCS(AdCharset::getDefaultCharset(), "abc", 3, AdCharset::Strict));
  if (std::setlocale(LC_CTYPE, "C.UTF-8")) {
    EXPECT_EQ(std::mblen("\xC3\xA9", 2), 2);
    ASSERT_TRUE(wide.cvtFromMBCS(AdCharset::getDefaultCharset(), "\xC3\xA9", 2, AdCharset::Strict));
    EXPECT_EQ(wide.getLength(), 1);
    EXPECT_EQ(wide.getData()[0], 0xE9);
  }
  std::setlocale(LC_CTYPE, saved.c_str());
}

TEST(MbcsFileName, IsUtf8WhateverTheLocale) {
  EXPECT_EQ(std::string(MbcsFileName(NX_U16(u"r\u00e9sum\u00e9.xml")).getData()), "r\xC3\xA9sum\xC3\xA9.xml");
}
