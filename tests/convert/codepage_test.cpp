#include <gtest/gtest.h>

#include <clocale>
#include <functional>
#include <memory>
#include <string>

#include "convert/raised.h"
#include "xmlstream.h"

namespace {

const std::string kMark = "\xEF\xA0\x80";

const char* const kAcpEncodeText =
    "encoded.cvtFromUTF16((asciiOnly ? AdCharset::getASCIICharset() : AdCharset::getDefaultCharset()), wideChars, "
    "num, (throwOnDecodeError ? AdCharset::Strict : AdCharset::Nonstrict))";
const char* const kCpEncodeText =
    "encoded.cvtFromUTF16((asciiOnly ? AdCharset::getASCIICharset() : AdCodePage::GetCharset(acp)), wideChars, num, "
    "(throwOnDecodeError ? AdCharset::Strict : AdCharset::Nonstrict))";

std::string Take(char* bytes, int size) {
  std::unique_ptr<char[]> owner(bytes);
  return bytes ? std::string(bytes, static_cast<std::size_t>(size)) : std::string();
}

std::string FromCP(const std::string& bytes, unsigned int codePage, int escape = 1) {
  char* out = nullptr;
  int size = -1;
  CP2UTF8(bytes.data(), static_cast<int>(bytes.size()), out, size, codePage, escape);
  return Take(out, size);
}

std::string ToCP(const std::string& utf8, unsigned int codePage, bool strict = true, bool startsWithEscape = false,
                 bool* endsWithEscape = nullptr) {
  char* out = nullptr;
  int size = -1;
  bool ends = false;
  UTF82CP(startsWithEscape, utf8.data(), static_cast<int>(utf8.size()), false, strict, out, size, ends, codePage);
  if (endsWithEscape) *endsWithEscape = ends;
  return Take(out, size);
}

std::string ToACP(const std::string& utf8, bool asciiOnly, bool strict) {
  char* out = nullptr;
  int size = -1;
  bool ends = false;
  UTF82ACP(false, utf8.data(), static_cast<int>(utf8.size()), asciiOnly, strict, out, size, ends);
  return Take(out, size);
}

// The locale's code page is the process's: each test sets the one it needs
// and the previous one comes back afterwards.
class CodePageConvert : public ::testing::Test {
 protected:
  void SetUp() override { m_saved = std::setlocale(LC_CTYPE, nullptr); }
  void TearDown() override { std::setlocale(LC_CTYPE, m_saved.c_str()); }
  void UseLocale(const char* name) { ASSERT_NE(std::setlocale(LC_CTYPE, name), nullptr) << name; }

 private:
  std::string m_saved;
};

}  // namespace

TEST_F(CodePageConvert, ControlCharactersSurviveBothWays) {
  EXPECT_EQ(FromCP("\x01", 1252), kMark + "\xEF\xA0\x81");
  EXPECT_EQ(FromCP("\x01", 1252, 0), "\x01");
  EXPECT_EQ(ToCP(kMark + "\xEF\xA0\x81", 1252), "\x01");

  struct Case {
    unsigned int codePage;
    std::string bytes;
  } cases[] = {
      // 1252 maps every byte; the C0 controls go through the escape.
      {1252, [] {
         std::string all;
         for (int b = 1; b < 256; ++b) all.push_back(static_cast<char>(b));
         return all;
       }()},
      {936, "\xD6\xD0\x01\xCE\xC4\x1F" "ab\t\x0B\xB1\xED"},  // GBK, with controls between characters
      {932, "\x93\xFA\x96\x7B\x02\x8C\xEA\x0D\x1B\xB1"},      // Shift-JIS, a half-width kana at the end
  };
  for (const Case& c : cases) {
    const std::string utf8 = FromCP(c.bytes, c.codePage);
    EXPECT_EQ(utf8.find_first_of(std::string("\x01\x02\x0B\x1B\x1F", 5)), std::string::npos) << c.codePage;
    EXPECT_EQ(ToCP(utf8, c.codePage), c.bytes) << c.codePage;
    // And split after every escape mark, carrying the flag.
    std::string back;
    bool inEscape = false;
    std::size_t from = 0;
    for (std::size_t at = utf8.find(kMark); at != std::string::npos; at = utf8.find(kMark, from)) {
      bool ends = false;
      back += ToCP(utf8.substr(from, at + 3 - from), c.codePage, true, inEscape, &ends);
      EXPECT_TRUE(ends);
      inEscape = ends;
      from = at + 3;
    }
    back += ToCP(utf8.substr(from), c.codePage, true, inEscape);
    EXPECT_EQ(back, c.bytes) << c.codePage;
  }
}

TEST_F(CodePageConvert, ChunkOfOnlyTheMark) {
  char* out = reinterpret_cast<char*>(1);
  int size = -1;
  bool ends = false;
  UTF82CP(false, kMark.data(), 3, false, true, out, size, ends, 1252);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(size, 0);
  EXPECT_TRUE(ends);
  UTF82CP(true, "\xEF\xA0\x81", 3, false, true, out, size, ends, 1252);
  EXPECT_EQ(Take(out, size), "\x01");
  EXPECT_FALSE(ends);
  // Size 0 converts nothing and passes the flag through.
  UTF82ACP(true, "abc", 0, false, true, out, size, ends);
  EXPECT_EQ(out, nullptr);
  EXPECT_TRUE(ends);
}

TEST_F(CodePageConvert, ZeroTerminatedForms) {
  UseLocale("C");
  char* out = nullptr;
  int size = -1;
  ACP2UTF8("abc", -1, out, size, 0);
  EXPECT_EQ(Take(out, size), std::string("abc", 4));
  ACP2UTF8("abc", out, 0);
  EXPECT_EQ(Take(out, 4), std::string("abc", 4));
  CP2UTF8("\xE9t\xE9", out, 1252, 0);
  EXPECT_EQ(Take(out, 6), std::string("\xC3\xA9t\xC3\xA9", 6));
  CP2UTF8("x", 0, out, size, 1252, 1);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(size, 0);

  EXPECT_EQ(UTF82ACP("abc", false, true, out), 4);
  EXPECT_EQ(Take(out, 4), std::string("abc", 4));
  EXPECT_EQ(UTF82ACP("", true, true, out), 1);
  EXPECT_EQ(Take(out, 1), std::string(1, '\0'));
}

TEST_F(CodePageConvert, DefaultCodePageFollowsTheLocale) {
  UseLocale("C.UTF-8");
  EXPECT_EQ(ToACP("caf\xC3\xA9", false, true), "caf\xC3\xA9");
  char* out = nullptr;
  int size = -1;
  ACP2UTF8("\xE4\xB8\xAD\x01", 4, out, size, 1);
  EXPECT_EQ(Take(out, size), "\xE4\xB8\xAD" + kMark + "\xEF\xA0\x81");

  UseLocale("C");
  EXPECT_EQ(RaisedBy([] { ToACP("caf\xC3\xA9", false, true); }).id, 27315);
}

TEST_F(CodePageConvert, TargetStrictness) {
  UseLocale("C");
  struct Case {
    bool asciiOnly;
    bool strict;
    unsigned int codePage;  // 0: the locale's code page
    std::string utf8;
    long raised;  // 0: converts to `bytes`
    std::string bytes;
  } cases[] = {
      {true, true, 0, "\xC3\xA9", 27316, ""},
      {true, false, 0, "\xC3\xA9", 0, "\x1A"},  // substituted
      {true, true, 1252, "\xC3\xA9", 27316, ""},
      {false, true, 1252, "\xC3\xA9", 0, "\xE9"},
      {false, true, 1252, "\xE4\xB8\xAD", 27315, ""},
      {false, false, 1252, "\xE4\xB8\xAD", 0, "\x1A"},
      {false, true, 936, "\xE4\xB8\xAD", 0, "\xD6\xD0"},
      {false, true, 0, "\xC3\xA9", 27315, ""},
      // The UTF-8 side is always read leniently: a bad byte becomes U+FFFD,
      // which 1252 cannot hold.
      {false, true, 1252, "a\xFF", 27315, ""},
      {false, false, 1252, "a\xFF", 0, "a\x1A"},
  };
  for (const Case& c : cases) {
    char* out = nullptr;
    int size = -1;
    bool ends = false;
    const Raised r = RaisedBy([&] {
      if (c.codePage)
        UTF82CP(false, c.utf8.data(), static_cast<int>(c.utf8.size()), c.asciiOnly, c.strict, out, size, ends,
                c.codePage);
      else
        UTF82ACP(false, c.utf8.data(), static_cast<int>(c.utf8.size()), c.asciiOnly, c.strict, out, size, ends);
    });
    const std::string where = c.utf8 + " cp " + std::to_string(c.codePage);
    EXPECT_EQ(r.id, c.raised) << where;
    if (r.raised) {
      EXPECT_EQ(r.text, c.codePage ? kCpEncodeText : kAcpEncodeText) << where;
      EXPECT_EQ(out, nullptr) << where;
    } else {
      EXPECT_EQ(Take(out, size), c.bytes) << where;
    }
  }
}

TEST_F(CodePageConvert, ErrorPaths) {
  UseLocale("C");
  char* out = nullptr;
  int size = 0;
  bool ends = false;
  struct Case {
    const char* what;
    std::function<void()> call;
    long id;
    std::string text;
  } cases[] = {
      {"ACP2UTF8 null", [&] { ACP2UTF8(nullptr, 3, out, size, 1); }, AdGetBadValue0MsgID(), "data != __null"},
      {"ACP2UTF8 short null", [&] { ACP2UTF8(nullptr, out, 1); }, AdGetBadValue0MsgID(), "data != __null"},
      {"CP2UTF8 null", [&] { CP2UTF8(nullptr, 3, out, size, 1252, 1); }, AdGetBadValue0MsgID(), "data != __null"},
      {"CP2UTF8 short null", [&] { CP2UTF8(nullptr, out, 1252, 1); }, AdGetBadValue0MsgID(), "data != __null"},
      {"UTF82ACP null", [&] { UTF82ACP(false, nullptr, 3, false, true, out, size, ends); }, AdGetBadValue0MsgID(),
       "data != __null"},
      {"UTF82ACP short null", [&] { UTF82ACP(nullptr, false, true, out); }, AdGetBadValue0MsgID(), "data != __null"},
      {"UTF82CP null", [&] { UTF82CP(false, nullptr, 3, false, true, out, size, ends, 1252); },
       AdGetBadValue0MsgID(), "data != __null"},
      {"ACP2UTF8 not ASCII", [&] { ACP2UTF8("caf\xE9", out, 1); }, 27317,
       "wide.cvtFromMBCS(AdCharset::getDefaultCharset(), data, dataSize)"},
      {"CP2UTF8 cut double-byte", [&] { CP2UTF8("a\x93", 2, out, size, 932, 1); }, 27317, "0"},
      {"CP2UTF8 unknown code page", [&] { CP2UTF8("a", 1, out, size, 99999, 1); }, 27317, "0"},
      {"UTF82CP unknown code page", [&] { UTF82CP(false, "a", 1, false, true, out, size, ends, 99999); }, 27315,
       kCpEncodeText},
      // The terminator after a mark is an impossible pair.
      {"UTF82ACP short ends on mark", [&] { UTF82ACP(kMark.c_str(), false, true, out); }, AdGetHitUnreachedMsgID(),
       ""},
  };
  for (const Case& c : cases) {
    const Raised r = RaisedBy(c.call);
    EXPECT_EQ(r.id, c.id) << c.what;
    EXPECT_EQ(r.text, c.text) << c.what;
    EXPECT_EQ(r.file, "xmlstream") << c.what;
  }
}
