#include <functional>
#include <memory>
#include <string>

#include "sources/sources_fixtures.h"

namespace {

typedef std::basic_string<unsigned short> Units;
const std::string kMark = sEscapeInUTF8;

// Takes over a buffer the library handed out.
template <class C>
std::basic_string<C> Take(C* data, int size) {
  std::unique_ptr<C[]> owner(data);
  return data ? std::basic_string<C>(data, data + size) : std::basic_string<C>();
}

std::string Write(const Units& in, int escape) {
  char* out = nullptr;
  int size = -1;
  do_UTF162UTF8(in.data(), static_cast<int>(in.size()), out, size, escape);
  EXPECT_EQ(out[size], '\0');
  return Take(out, size);
}

Units Read(const std::string& bytes, bool& inEscape, bool asciiOnly = false, bool strict = true) {
  unsigned short* wide = nullptr;
  int size = -1;
  UTF82UTF16(inEscape, bytes.data(), static_cast<int>(bytes.size()), asciiOnly, strict, wide, size, inEscape);
  return Take(wide, size);
}

// Converts bytes chunk by chunk, cut between characters where cutAt says,
// carrying the escape flag, which must end clear.
template <class R>
R Chunked(const std::string& bytes, const std::function<bool(std::size_t)>& cutAt,
          const std::function<R(const std::string&, bool&)>& convert) {
  R all;
  bool inEscape = false;
  for (std::size_t from = 0, at = 0; at <= bytes.size(); ++at)
    if (at == bytes.size() || ((bytes[at] & 0xC0) != 0x80 && cutAt(at)))
      all += convert(bytes.substr(from, at - from), inEscape), from = at;
  EXPECT_FALSE(inEscape);
  return all;
}

Units ReadChunk(const std::string& bytes, bool& inEscape) { return Read(bytes, inEscape); }

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

const char* const kCpText =
    "encoded.cvtFromUTF16((asciiOnly ? AdCharset::getASCIICharset() : AdCodePage::GetCharset(acp)), wideChars, num, "
    "(throwOnDecodeError ? AdCharset::Strict : AdCharset::Nonstrict))";

}  // namespace

TEST(ConvertUTF, WrittenAndReadForms) {
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
  bool inEscape = true;
  EXPECT_EQ(Read("", inEscape), Units());  // nothing; the flag passes through
  EXPECT_TRUE(inEscape);
  unsigned short* wide = nullptr;
  int size = 0;
  UTF82UTF16(false, "ab", -1, false, true, wide, size, inEscape);  // the terminator comes along
  EXPECT_EQ(Take(wide, size), (Units{'a', 'b', 0}));
  EXPECT_EQ(UTF82CString(("a" + kMark + "\xEF\xA0\x81").c_str(), false, true).Std(), (Units{'a', 0x01}));
  // Lenient decoding substitutes what strict decoding raises on (see
  // ErrorPaths); the ASCII check goes with strict decoding only, after the
  // escape.
  for (const std::string bad : {"a\xFF", "a\xE4\xB8", "\xC0\x80", "\xED\xA0\x80"})
    EXPECT_NE(Read(bad, inEscape, false, false).find(0xFFFD), Units::npos) << bad;
  EXPECT_EQ(Read("\xC3\xA9", inEscape, true, false), Units{0xE9});
  EXPECT_EQ(Read("\x7F" + kMark + "\xEF\xA0\x81", inEscape, true), (Units{0x7F, 0x01}));
}

TEST(ConvertUTF, EscapeSurvivesEverySplit) {
  const std::string bytes = Write({'a', 0x01, 0xE9, 0xF800, 0x00, 0x09, 0x4E2D, 0xD83D, 0xDE00, 0x1F, 'z'}, 1);
  // U+0000 reads back as U+F800, whose pair it shares.
  const Units back{'a', 0x01, 0xE9, 0xF800, 0xF800, 0x09, 0x4E2D, 0xD83D, 0xDE00, 0x1F, 'z'};
  // Every pair of cuts: among the chunks are every lone mark and every pair
  // split after its mark.
  for (std::size_t i = 0; i <= bytes.size(); ++i)
    for (std::size_t j = i; j <= bytes.size(); ++j)
      ASSERT_EQ(Chunked<Units>(bytes, [&](std::size_t at) { return at == i || at == j; }, ReadChunk), back) << i << j;
}

// Long texts in uneven chunks: long runs of plain text, and controls so
// dense that there are more escapes than the writer notes down.
TEST(ConvertUTF, LongTextsRoundTrip) {
  for (const unsigned every : {2u, 400u}) {
    Units text;
    for (unsigned k = 1; text.size() < 120000; ++k) {
      const unsigned short controls[] = {static_cast<unsigned short>(k % 0x20), 0xF800,
                                         static_cast<unsigned short>(0xF801 + k % 0x1F)};
      if (k % every == 0) text += controls[k / every % 3];
      else if (k % 11 == 0) text += {0xD83D, 0xDE00};
      else text += static_cast<unsigned short>(k % 7 ? 0x20 + k % 0x5F : 0x80 + k % 0x7000);
    }
    const std::string bytes = Write(text, 1);
    for (unsigned short& c : text) c = c ? c : sEscapeInUTF16;
    std::size_t n = 0;
    ASSERT_EQ(Chunked<Units>(bytes, [&](std::size_t) { return ++n % 1999 == 0; }, ReadChunk), text) << every;
  }
}

TEST(ConvertCodePage, RoundTripsZeroTerminatedFormsAndTheLocale) {
  std::string all1252;  // every byte; the C0 controls go through the escape
  for (int b = 1; b < 256; ++b) all1252 += static_cast<char>(b);
  const struct {
    unsigned int codePage;
    std::string bytes;
  } cases[] = {{1252, all1252},
               {936, "\xD6\xD0\x01\xCE\xC4\x1F" "ab\t\x0B\xB1\xED"},
               {932, "\x93\xFA\x96\x7B\x02\x8C\xEA\x0D\x1B\xB1"}};  // ends on a half-width kana
  char* out = nullptr;
  int size = 0;
  for (const auto& c : cases) {
    CP2UTF8(c.bytes.data(), static_cast<int>(c.bytes.size()), out, size, c.codePage, 1);
    const std::string utf8 = Take(out, size);
    // Back in chunks that end just after each mark.
    const auto afterMark = [&](std::size_t at) { return at >= 3 && utf8.compare(at - 3, 3, kMark) == 0; };
    const auto toCP = [&](const std::string& chunk, bool& inEscape) { return ToCP(chunk, c.codePage, inEscape); };
    EXPECT_EQ(Chunked<std::string>(utf8, afterMark, toCP), c.bytes) << c.codePage;
  }
  // The zero-terminated form converts the terminator as a unit too: with
  // escaping on it comes out as the U+F800 pair, then the buffer's own zero.
  CP2UTF8("\x01", out, 1252, 1);
  EXPECT_EQ(Take(out, 13), kMark + "\xEF\xA0\x81" + kMark + kMark + std::string(1, '\0'));
  CP2UTF8("x", 0, out, size, 1252, 1);
  EXPECT_TRUE(out == nullptr && size == 0);
  bool inEscape = false;
  // Lenient targets substitute; the UTF-8 side is always read leniently.
  EXPECT_EQ(ToCP("a\xFF", 1252, inEscape, false, false), "a\x1A");
  EXPECT_EQ(ToCP("\xC3\xA9", 0, inEscape, true, false), "\x1A");
  NXXML_NEED_LOCALE(locale, "C.UTF-8");  // its code page is the default one
  EXPECT_EQ(UTF82ACP("abc", false, true, out), 4);
  EXPECT_EQ(Take(out, 4), std::string("abc", 4));
  EXPECT_EQ(ToCP("caf\xC3\xA9", 0, inEscape), "caf\xC3\xA9");
  ACP2UTF8("\xE4\xB8\xAD", out, 0);
  EXPECT_EQ(Take(out, 4), std::string("\xE4\xB8\xAD", 4));
  EXPECT_EQ(ToCP(kMark, 1252, inEscape), "");  // only the mark: no bytes, no error
  EXPECT_TRUE(inEscape);
}

// Every raise: its id, its text, its unit, and no buffer handed out.
TEST(Convert, ErrorPaths) {
  NXXML_NEED_LOCALE(locale, "C");
  unsigned short* wide = nullptr;
  char* out = nullptr;
  int size = 0;
  bool esc = false;
  const unsigned short text[] = {'a', 0xD800, 'b'};  // an unpaired surrogate
  const long bad = AdGetBadValue0MsgID(), unreached = AdGetHitUnreachedMsgID();
  const std::string decode = "wide.cvtFromMBCS(AdCharset::getUTF8Charset(), data, numBytes, (throwOnDecodeError ? "
                             "AdCharset::Strict : AdCharset::Nonstrict))";
  const std::string acp = "encoded.cvtFromUTF16((asciiOnly ? AdCharset::getASCIICharset() : "
                          "AdCharset::getDefaultCharset()), wideChars, num, (throwOnDecodeError ? AdCharset::Strict "
                          ": AdCharset::Nonstrict))";
  const auto toCP = [&](const char* utf8, unsigned int codePage, bool asciiOnly) {
    return [=, &esc] { ToCP(utf8, codePage, esc, asciiOnly, true); };
  };
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
      // Strict UTF-8 (every malformed kind is the UTF-8 overloads' test).
      {[&] { Read("a\xFF", esc); }, 27317, decode},
      {[&] { Read("\xC3\xA9", esc, true); }, 27316, ""},
      {[&] { Read(kMark + kMark, esc, true); }, 27316, ""},  // the escaped U+F800 is not ASCII
      // After the mark only the pairs a writer produces are data.
      {[&] { UTF82UTF16(true, "\xEF\xA0\x8A", 3, false, true, wide, size, esc); }, unreached, ""},
      {[&] { UTF82UTF16(true, "A", 1, false, true, wide, size, esc); }, unreached, ""},
      {[&] { UTF82CString(sEscapeInUTF8, false, true); }, unreached, ""},  // the terminator follows the mark
      {[&] { UTF82ACP(sEscapeInUTF8, false, true, out); }, unreached, ""},
      {[&] { ACP2UTF8(nullptr, out, 1); }, bad, "data != __null"},
      {[&] { CP2UTF8(nullptr, out, 1252, 1); }, bad, "data != __null"},
      {[&] { UTF82ACP(nullptr, false, true, out); }, bad, "data != __null"},
      {[&] { UTF82CP(false, nullptr, 3, false, true, out, size, esc, 1252); }, bad, "data != __null"},
      {[&] { ACP2UTF8("caf\xE9", out, 1); }, 27317, "wide.cvtFromMBCS(AdCharset::getDefaultCharset(), data, dataSize)"},
      {[&] { CP2UTF8("a\x93", 2, out, size, 932, 1); }, 27317, "0"},  // a cut double-byte character
      {[&] { CP2UTF8("a", 1, out, size, 99999, 1); }, 27317, "0"},
      {toCP("a", 99999, false), 27315, kCpText},
      {toCP("\xC3\xA9", 0, true), 27316, acp},
      {toCP("\xC3\xA9", 1252, true), 27316, kCpText},
      {toCP("\xC3\xA9", 0, false), 27315, acp},
      {toCP("a\xFF", 1252, false), 27315, kCpText},  // read leniently: U+FFFD, which 1252 lacks
  };
  for (const auto& c : cases) {
    try {
      c.call();
      ADD_FAILURE() << "nothing raised for " << c.text;
    } catch (QmMsgException* e) {
      EXPECT_EQ(e->GetMessage(0).GetId(), c.id) << c.text;
      EXPECT_EQ(e->GetText().ToUtf8(), c.text);
      EXPECT_STREQ(e->GetFile(), "xmlstream");
      e->Delete();
    }
    EXPECT_TRUE(out == nullptr && wide == nullptr) << "no buffer is handed out with a raise";
  }
}
