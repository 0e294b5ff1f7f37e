#include <gtest/gtest.h>

#include <clocale>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "xmlstream.h"

namespace {

struct Raised {
  long id = 0;  // 0: nothing raised
  std::string text;
  std::string file;
};

// What a call raised; the exception is freed as every catcher must.
template <class F>
Raised RaisedBy(F&& call) {
  Raised r;
  try {
    call();
  } catch (QmMsgException* e) {
    r = {e->GetMessage(0).GetId(), e->GetText().ToUtf8(), e->GetFile()};
    e->Delete();
  }
  return r;
}

typedef std::basic_string<unsigned short> Units;
const std::string kMark = sEscapeInUTF8;

std::string Write(const Units& in, int escape) {
  char* out = nullptr;
  int size = -1;
  do_UTF162UTF8(in.data(), static_cast<int>(in.size()), out, size, escape);
  std::unique_ptr<char[]> owner(out);
  EXPECT_EQ(out[size], '\0');
  return std::string(out, static_cast<std::size_t>(size));
}

Units Read(const std::string& bytes, bool& inEscape, bool asciiOnly = false, bool strict = true) {
  unsigned short* wide = nullptr;
  int size = -1;
  UTF82UTF16(inEscape, bytes.data(), static_cast<int>(bytes.size()), asciiOnly, strict, wide, size, inEscape);
  std::unique_ptr<unsigned short[]> owner(wide);
  return wide ? Units(wide, wide + size) : Units();
}

// Reads bytes in chunks cut at the given offsets, carrying the escape flag,
// and checks the result against the written units (U+0000 reads back as
// U+F800, whose pair it shares).
void ExpectReadBack(const std::string& bytes, std::vector<std::size_t> cuts, Units written) {
  Units all;
  bool inEscape = false;
  std::size_t from = 0;
  cuts.push_back(bytes.size());
  for (std::size_t to : cuts) all += Read(bytes.substr(from, to - from), inEscape), from = to;
  for (unsigned short& c : written) c = c ? c : sEscapeInUTF16;
  ASSERT_EQ(all, written);
  ASSERT_FALSE(inEscape);
}

std::string Take(char* bytes, int size) {
  std::unique_ptr<char[]> owner(bytes);
  return bytes ? std::string(bytes, static_cast<std::size_t>(size)) : std::string();
}

// UTF-8 to code page codePage (0: the locale's), carrying the escape flag.
std::string ToCP(const std::string& utf8, unsigned int codePage, bool& inEscape, bool asciiOnly = false,
                 bool strict = true) {
  char* out = nullptr;
  int size = -1;
  const int n = static_cast<int>(utf8.size());
  if (codePage)
    UTF82CP(inEscape, utf8.data(), n, asciiOnly, strict, out, size, inEscape, codePage);
  else
    UTF82ACP(inEscape, utf8.data(), n, asciiOnly, strict, out, size, inEscape);
  return Take(out, size);
}

// Sets the process's locale, whose code page is the default one, for one
// test and puts the previous one back.
struct LocaleScope {
  std::string saved = std::setlocale(LC_CTYPE, nullptr);
  explicit LocaleScope(const char* name) { EXPECT_NE(std::setlocale(LC_CTYPE, name), nullptr) << name; }
  ~LocaleScope() { std::setlocale(LC_CTYPE, saved.c_str()); }
};

const char* const kCpText =
    "encoded.cvtFromUTF16((asciiOnly ? AdCharset::getASCIICharset() : AdCodePage::GetCharset(acp)), wideChars, num, "
    "(throwOnDecodeError ? AdCharset::Strict : AdCharset::Nonstrict))";

// Offsets between characters (chunks are cut there, never inside one).
std::vector<std::size_t> CharBoundaries(const std::string& bytes) {
  std::vector<std::size_t> cuts;
  for (std::size_t i = 0; i <= bytes.size(); ++i)
    if (i == bytes.size() || (bytes[i] & 0xC0) != 0x80) cuts.push_back(i);
  return cuts;
}

}  // namespace

TEST(ConvertUTF, WrittenForms) {
  const struct {
    Units in;
    int escape;
    std::string out;
  } cases[] = {
      {{'a', 0x01, 'b'}, 1, "a" + kMark + "\xEF\xA0\x81" "b"},
      {{'a', 0x01, 'b'}, 0, "a\x01" "b"},
      {{0x09, 0x0A, 0x0D, 0x20, 0xF7FF, 0xF801}, 1, "\t\n\r \xEF\x9F\xBF\xEF\xA0\x81"},
      {{0x00, 0xF800, 0x1F}, 1, kMark + kMark + kMark + kMark + kMark + "\xEF\xA0\x9F"},
      {{0xE9, 0xD83D, 0xDE00}, 1, "\xC3\xA9\xF0\x9F\x98\x80"},
  };
  for (const auto& c : cases) EXPECT_EQ(Write(c.in, c.escape), c.out);
  unsigned short* wide = nullptr;
  int size = 0;
  bool inEscape = true;
  UTF82UTF16(true, "ab", 0, false, true, wide, size, inEscape);  // nothing; the flag passes through
  EXPECT_TRUE(wide == nullptr && size == 0 && inEscape);
  UTF82UTF16(false, "ab", -1, false, true, wide, size, inEscape);  // the terminator comes along
  std::unique_ptr<unsigned short[]> owner(wide);
  EXPECT_EQ(Units(wide, wide + size), (Units{'a', 'b', 0}));
  EXPECT_EQ(UTF82CString(("a" + kMark + "\xEF\xA0\x81").c_str(), false, true).Std(), (Units{'a', 0x01}));
}

TEST(ConvertUTF, StrictLenientAndAsciiOnly) {
  for (const std::string bad : {"a\xFF", "a\xE4\xB8", "\xC0\x80", "\xED\xA0\x80"}) {
    bool inEscape = false;
    const Raised r = RaisedBy([&] { Read(bad, inEscape); });
    EXPECT_EQ(r.id, 27317) << bad;
    EXPECT_EQ(r.text, "wide.cvtFromMBCS(AdCharset::getUTF8Charset(), data, numBytes, (throwOnDecodeError ? "
                      "AdCharset::Strict : AdCharset::Nonstrict))");
    EXPECT_NE(Read(bad, inEscape, false, false).find(0xFFFD), Units::npos) << bad;
  }
  // The ASCII check goes with strict decoding only, and after the escape.
  const struct {
    std::string bytes;
    bool strict;
    long raised;
  } cases[] = {{"\xC3\xA9", true, 27316}, {"\xC3\xA9", false, 0}, {"\x7F", true, 0},
               {kMark + "\xEF\xA0\x81", true, 0}, {kMark + kMark, true, 27316}};
  for (const auto& c : cases) {
    bool inEscape = false;
    const Raised r = RaisedBy([&] { Read(c.bytes, inEscape, true, c.strict); });
    EXPECT_TRUE(r.id == c.raised && r.text.empty()) << c.bytes;
  }
  EXPECT_EQ(RaisedBy([] { UTF82CString("\xC3\xA9", true, true); }).id, 27316);
}

TEST(ConvertUTF, EscapeSurvivesEverySplit) {
  const Units text{'a', 0x01, 0xE9, 0xF800, 0x00, 0x09, 0x4E2D, 0xD83D, 0xDE00, 0x1F, 'z'};
  const std::string bytes = Write(text, 1);
  const std::vector<std::size_t> cuts = CharBoundaries(bytes);
  // Every pair of cuts: among the chunks are every lone mark and every pair
  // split after its mark.
  for (std::size_t i = 0; i < cuts.size(); ++i)
    for (std::size_t j = i; j < cuts.size(); ++j) ExpectReadBack(bytes, {cuts[i], cuts[j]}, text);
}

TEST(ConvertUTF, RandomRoundTrip) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 300; ++round) {
    // Mostly short texts; a few long ones with controls dense or sparse, so
    // that long runs and more escapes than the writer notes down both occur.
    const bool longText = round % 50 == 0;
    const std::size_t length = longText ? 120000 : 1 + rng() % 200;
    const unsigned plain = longText && round % 100 == 0 ? 400 : 4;
    Units text;
    while (text.size() < length) {
      const unsigned roll = rng() % (plain + 4);
      if (roll == 0) text += static_cast<unsigned short>(rng() % 0x20);
      else if (roll == 1) text += static_cast<unsigned short>(rng() % 2 ? 0xF800 : 0xF801 + rng() % 0x1F);
      else if (roll == 2) text += {static_cast<unsigned short>(0xD800 + rng() % 0x400),
                                   static_cast<unsigned short>(0xDC00 + rng() % 0x400)};
      else if (roll == 3) text += static_cast<unsigned short>(0x80 + rng() % 0x7000);
      else text += static_cast<unsigned short>(0x20 + rng() % 0x5F);
    }
    const std::string bytes = Write(text, 1);
    std::vector<std::size_t> cuts;
    for (std::size_t cut : CharBoundaries(bytes))
      if (rng() % (longText ? 2000 : 4) == 0) cuts.push_back(cut);
    ExpectReadBack(bytes, cuts, text);
  }
}

TEST(ConvertCodePage, ControlCharactersSurviveBothWays) {
  std::string all1252;  // every byte; the C0 controls go through the escape
  for (int b = 1; b < 256; ++b) all1252 += static_cast<char>(b);
  const struct {
    unsigned int codePage;
    std::string bytes;
  } cases[] = {{1252, all1252},
               {936, "\xD6\xD0\x01\xCE\xC4\x1F" "ab\t\x0B\xB1\xED"},
               {932, "\x93\xFA\x96\x7B\x02\x8C\xEA\x0D\x1B\xB1"}};  // ends on a half-width kana
  for (const auto& c : cases) {
    char* out = nullptr;
    int size = 0;
    CP2UTF8(c.bytes.data(), static_cast<int>(c.bytes.size()), out, size, c.codePage, 1);
    const std::string utf8 = Take(out, size);
    // Back in chunks that end just after each mark, carrying the flag.
    std::string back;
    bool inEscape = false;
    std::size_t from = 0;
    for (std::size_t at; (at = utf8.find(kMark, from)) != std::string::npos; from = at + 3)
      back += ToCP(utf8.substr(from, at + 3 - from), c.codePage, inEscape);
    back += ToCP(utf8.substr(from), c.codePage, inEscape);
    EXPECT_EQ(back, c.bytes) << c.codePage;
  }
  char* out = nullptr;
  int size = 0;
  CP2UTF8("\x01", 1, out, size, 1252, 1);
  EXPECT_EQ(Take(out, size), kMark + "\xEF\xA0\x81");
  // The zero-terminated form converts the terminator as a unit too: with
  // escaping on it comes out as the U+F800 pair, then the buffer's own zero.
  CP2UTF8("\x01", out, 1252, 1);
  EXPECT_EQ(Take(out, 13), kMark + "\xEF\xA0\x81" + kMark + kMark + std::string(1, '\0'));
  bool inEscape = false;
  EXPECT_EQ(ToCP(kMark, 1252, inEscape), "");  // only the mark: no bytes, no error
  EXPECT_TRUE(inEscape);
}

TEST(ConvertCodePage, ZeroTerminatedFormsAndTheLocale) {
  char* out = nullptr;
  int size = -1;
  {
    LocaleScope locale("C");
    ACP2UTF8("abc", -1, out, size, 0);
    EXPECT_EQ(Take(out, size), std::string("abc", 4));
    EXPECT_EQ(UTF82ACP("abc", false, true, out), 4);
    EXPECT_EQ(Take(out, 4), std::string("abc", 4));
    CP2UTF8("x", 0, out, size, 1252, 1);
    EXPECT_TRUE(out == nullptr && size == 0);
  }
  LocaleScope locale("C.UTF-8");
  bool inEscape = false;
  EXPECT_EQ(ToCP("caf\xC3\xA9", 0, inEscape), "caf\xC3\xA9");
  ACP2UTF8("\xE4\xB8\xAD", out, 0);
  EXPECT_EQ(Take(out, 4), std::string("\xE4\xB8\xAD", 4));
}

TEST(ConvertCodePage, TargetStrictness) {
  LocaleScope locale("C");
  const char* const acpText =
      "encoded.cvtFromUTF16((asciiOnly ? AdCharset::getASCIICharset() : AdCharset::getDefaultCharset()), "
      "wideChars, num, (throwOnDecodeError ? AdCharset::Strict : AdCharset::Nonstrict))";
  const struct {
    bool asciiOnly, strict;
    unsigned int codePage;
    std::string utf8;
    long raised;
    std::string bytes;
  } cases[] = {
      {true, true, 0, "\xC3\xA9", 27316, ""},          {true, false, 0, "\xC3\xA9", 0, "\x1A"},
      {true, true, 1252, "\xC3\xA9", 27316, ""},       {false, true, 1252, "\xC3\xA9", 0, "\xE9"},
      {false, true, 1252, "\xE4\xB8\xAD", 27315, ""},   {false, false, 1252, "\xE4\xB8\xAD", 0, "\x1A"},
      {false, true, 936, "\xE4\xB8\xAD", 0, "\xD6\xD0"}, {false, true, 0, "\xC3\xA9", 27315, ""},
      // The UTF-8 side is always read leniently: U+FFFD, which 1252 lacks.
      {false, true, 1252, "a\xFF", 27315, ""},          {false, false, 1252, "a\xFF", 0, "a\x1A"},
  };
  for (const auto& c : cases) {
    std::string bytes;
    bool inEscape = false;
    const Raised r = RaisedBy([&] { bytes = ToCP(c.utf8, c.codePage, inEscape, c.asciiOnly, c.strict); });
    EXPECT_EQ(r.id, c.raised) << c.utf8 << " " << c.codePage;
    EXPECT_EQ(r.text, r.id ? (c.codePage ? kCpText : acpText) : "");
    EXPECT_EQ(bytes, c.bytes);
  }
}

TEST(Convert, ErrorPaths) {
  LocaleScope locale("C");
  unsigned short* wide = nullptr;
  char* out = nullptr;
  int size = 0;
  bool esc = false;
  const unsigned short text[] = {'a', 0xD800, 'b'};  // an unpaired surrogate
  const long bad = AdGetBadValue0MsgID(), unreached = AdGetHitUnreachedMsgID();
  const struct {
    std::function<void()> call;
    long id;
    std::string text;
  } cases[] = {
      {[&] { UTF82UTF16(false, nullptr, 3, false, true, wide, size, esc); }, bad, "data != __null"},
      {[&] { UTF82CString(nullptr, false, true); }, bad, "data != __null"},
      {[&] { do_UTF162UTF8(text, 0, out, size, 1); }, bad, "wideCharsSize > 0"},
      {[&] { do_UTF162UTF8(nullptr, 1, out, size, 1); }, bad, "wideChars != __null"},
      {[&] { do_UTF162UTF8(text, 3, out, size, 0); }, bad, "U_SUCCESS(uerr)"},
      {[&] { do_UTF162UTF8(text, 3, out, size, 1); }, bad, "U_SUCCESS(uerr)"},
      // After the mark only the pairs a writer produces are data.
      {[&] { UTF82UTF16(true, "\xEF\xA0\x8A", 3, false, true, wide, size, esc); }, unreached, ""},
      {[&] { UTF82UTF16(true, "A", 1, false, true, wide, size, esc); }, unreached, ""},
      {[&] { UTF82CString(sEscapeInUTF8, false, true); }, unreached, ""},  // the terminator follows the mark
      {[&] { UTF82ACP(sEscapeInUTF8, false, true, out); }, unreached, ""},
      {[&] { ACP2UTF8(nullptr, 3, out, size, 1); }, bad, "data != __null"},
      {[&] { ACP2UTF8(nullptr, out, 1); }, bad, "data != __null"},
      {[&] { CP2UTF8(nullptr, 3, out, size, 1252, 1); }, bad, "data != __null"},
      {[&] { CP2UTF8(nullptr, out, 1252, 1); }, bad, "data != __null"},
      {[&] { UTF82ACP(false, nullptr, 3, false, true, out, size, esc); }, bad, "data != __null"},
      {[&] { UTF82ACP(nullptr, false, true, out); }, bad, "data != __null"},
      {[&] { UTF82CP(false, nullptr, 3, false, true, out, size, esc, 1252); }, bad, "data != __null"},
      {[&] { ACP2UTF8("caf\xE9", out, 1); }, 27317, "wide.cvtFromMBCS(AdCharset::getDefaultCharset(), data, dataSize)"},
      {[&] { CP2UTF8("a\x93", 2, out, size, 932, 1); }, 27317, "0"},  // a cut double-byte character
      {[&] { CP2UTF8("a", 1, out, size, 99999, 1); }, 27317, "0"},
      {[&] { UTF82CP(false, "a", 1, false, true, out, size, esc, 99999); }, 27315, kCpText},
  };
  for (const auto& c : cases) {
    const Raised r = RaisedBy(c.call);
    EXPECT_EQ(r.id, c.id) << c.text;
    EXPECT_EQ(r.text, c.text);
    EXPECT_EQ(r.file, "xmlstream");
    EXPECT_EQ(out, nullptr) << "no buffer is handed out with a raise";
  }
}
