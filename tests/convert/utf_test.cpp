#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "convert/raised.h"
#include "xmlstream.h"

namespace {

typedef std::basic_string<unsigned short> Units;

const std::string kMark = "\xEF\xA0\x80";

std::string Write(const Units& in, int escape) {
  char* out = nullptr;
  int size = -1;
  do_UTF162UTF8(in.data(), static_cast<int>(in.size()), out, size, escape);
  std::unique_ptr<char[]> owner(out);
  EXPECT_EQ(out[size], '\0') << "room for the terminator is always left";
  return std::string(out, static_cast<std::size_t>(size));
}

Units Read(const std::string& bytes, bool startsWithEscape, bool& endsWithEscape, bool asciiOnly = false,
           bool strict = true) {
  unsigned short* wide = nullptr;
  int size = -1;
  UTF82UTF16(startsWithEscape, bytes.data(), static_cast<int>(bytes.size()), asciiOnly, strict, wide, size,
             endsWithEscape);
  std::unique_ptr<unsigned short[]> owner(wide);
  return wide ? Units(wide, wide + size) : Units();
}

// Offsets at which a UTF-8 text may be cut between characters.
std::vector<std::size_t> CharBoundaries(const std::string& bytes) {
  std::vector<std::size_t> cuts;
  for (std::size_t i = 0; i <= bytes.size(); ++i)
    if (i == bytes.size() || (static_cast<unsigned char>(bytes[i]) & 0xC0) != 0x80) cuts.push_back(i);
  return cuts;
}

// Reads the chunks in order, carrying the escape flag, and checks that the
// text does not end inside an escape.
Units ReadChunks(const std::string& bytes, const std::vector<std::size_t>& cuts) {
  Units all;
  bool inEscape = false;
  std::size_t from = 0;
  for (std::size_t k = 0; k <= cuts.size(); ++k) {
    const std::size_t to = k < cuts.size() ? cuts[k] : bytes.size();
    bool after = false;
    all += Read(bytes.substr(from, to - from), inEscape, after);
    inEscape = after;
    from = to;
  }
  EXPECT_FALSE(inEscape);
  return all;
}

// What a reader gets back for written units: U+0000 shares U+F800's pair.
Units ReadBackForm(Units units) {
  for (unsigned short& c : units)
    if (c == 0) c = sEscapeInUTF16;
  return units;
}

}  // namespace

TEST(ConvertConstants, Values) {
  EXPECT_EQ(std::string(sEscapeInUTF8), kMark);
  EXPECT_EQ(sEscapeInUTF8[3], '\0');
  EXPECT_EQ(sEscapeInUTF16, 0xF800);
  EXPECT_EQ(IsAsciiCCMask, 0xFFFFFFE0u);
  EXPECT_EQ(s_NonAsciiUTF16Mask, 0xFF80);
}

TEST(ConvertUTF16ToUTF8, EscapedAndPlainForms) {
  struct Case {
    Units in;
    int escape;
    std::string out;
  } cases[] = {
      {{'a', 0x01, 'b'}, 1, "a" + kMark + "\xEF\xA0\x81" + "b"},
      {{'a', 0x01, 'b'}, 0, std::string("a\x01" "b")},
      {{0x09, 0x0A, 0x0D}, 1, "\t\n\r"},
      {{0x00}, 1, kMark + kMark},
      {{0xF800}, 1, kMark + kMark},
      {{0xF800}, 0, kMark},
      {{0x1F, 0x08, 0x0B, 0x0C, 0x0E}, 1,
       kMark + "\xEF\xA0\x9F" + kMark + "\xEF\xA0\x88" + kMark + "\xEF\xA0\x8B" + kMark + "\xEF\xA0\x8C" + kMark +
           "\xEF\xA0\x8E"},
      // Neighbours of the escaped ranges pass as they are.
      {{0x20, 0xF7FF, 0xF801, 0xF81F}, 1, " \xEF\x9F\xBF\xEF\xA0\x81\xEF\xA0\x9F"},
      {{0x00E9, 0x4E2D, 0xD83D, 0xDE00}, 1, "\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80"},
  };
  for (const Case& c : cases) EXPECT_EQ(Write(c.in, c.escape), c.out);
}

TEST(ConvertUTF8ToUTF16, DecodesEscapeAndCarriesItAcrossChunks) {
  bool endsWithEscape = true;
  EXPECT_EQ(Read("a" + kMark + "\xEF\xA0\x81" + "b", false, endsWithEscape), (Units{'a', 0x01, 'b'}));
  EXPECT_FALSE(endsWithEscape);
  EXPECT_EQ(Read(kMark + kMark, false, endsWithEscape), Units{0xF800});

  // A chunk that ends on the mark keeps its other units and the flag.
  EXPECT_EQ(Read("xy" + kMark, false, endsWithEscape), (Units{'x', 'y'}));
  EXPECT_TRUE(endsWithEscape);
  EXPECT_EQ(Read("\xEF\xA0\x81z", true, endsWithEscape), (Units{0x01, 'z'}));
  EXPECT_FALSE(endsWithEscape);

  // A chunk of only the mark gives no units and no error.
  unsigned short* wide = nullptr;
  int size = -1;
  UTF82UTF16(false, kMark.data(), 3, false, true, wide, size, endsWithEscape);
  std::unique_ptr<unsigned short[]> owner(wide);
  EXPECT_EQ(size, 0);
  EXPECT_TRUE(endsWithEscape);

  // Size 0 converts nothing and passes the flag through.
  UTF82UTF16(true, "abc", 0, false, true, wide, size, endsWithEscape);
  EXPECT_EQ(wide, nullptr);
  EXPECT_EQ(size, 0);
  EXPECT_TRUE(endsWithEscape);

  // A negative size takes the terminating zero along.
  UTF82UTF16(false, "ab", -1, false, true, wide, size, endsWithEscape);
  owner.reset(wide);
  ASSERT_EQ(size, 3);
  EXPECT_EQ(Units(wide, wide + 3), (Units{'a', 'b', 0}));
}

TEST(ConvertUTF8ToUTF16, InPlaceDecodingAndImpossiblePairs) {
  Units buf{'a', 0xF800, 0xF80B, 0xF800, 0xF800, 0xF800};
  int len = static_cast<int>(buf.size());
  bool inEscape = false;
  ConvertXMLSafeCCToAsciiCC(&buf[0], len, inEscape);
  EXPECT_EQ(buf.substr(0, static_cast<std::size_t>(len)), (Units{'a', 0x0B, 0xF800}));
  EXPECT_TRUE(inEscape);

  // After the mark only the pairs a writer produces are data.
  for (unsigned short bad : {0xF809, 0xF80A, 0xF80D, 0xF820, 0x0001, 0x0041, 0xFFFF}) {
    Units pair{0xF800, bad};
    int n = 2;
    bool escape = false;
    const Raised r = RaisedBy([&] { ConvertXMLSafeCCToAsciiCC(&pair[0], n, escape); });
    EXPECT_TRUE(r.raised) << std::hex << bad;
    EXPECT_EQ(r.id, AdGetHitUnreachedMsgID());
    EXPECT_EQ(r.text, "");
    EXPECT_EQ(r.file, "xmlstream");
  }
  // The same through the decoder, with the mark left by an earlier chunk;
  // the decoded buffer must not leak.
  bool endsWithEscape = false;
  unsigned short* wide = nullptr;
  int size = 0;
  const Raised r = RaisedBy([&] { UTF82UTF16(true, "\xEF\xA0\x8A", 3, false, true, wide, size, endsWithEscape); });
  EXPECT_EQ(r.id, AdGetHitUnreachedMsgID());
}

TEST(ConvertUTF8ToUTF16, StrictFailsWhereLenientSubstitutes) {
  const char* const strictText =
      "wide.cvtFromMBCS(AdCharset::getUTF8Charset(), data, numBytes, (throwOnDecodeError ? AdCharset::Strict : "
      "AdCharset::Nonstrict))";
  const std::string malformed[] = {
      "a\xFF" "b",     // a byte that never occurs in UTF-8
      "a\xE4\xB8",     // a sequence cut short
      "\xC0\x80",      // overlong zero
      "\xED\xA0\x80",  // an encoded surrogate
      "\x80",          // a lone continuation byte
  };
  for (const std::string& bytes : malformed) {
    bool endsWithEscape = false;
    unsigned short* wide = nullptr;
    int size = 0;
    const Raised r = RaisedBy(
        [&] { UTF82UTF16(false, bytes.data(), static_cast<int>(bytes.size()), false, true, wide, size, endsWithEscape); });
    EXPECT_EQ(r.id, 27317) << bytes;
    EXPECT_EQ(r.text, strictText);
    EXPECT_EQ(wide, nullptr);

    const Units lenient = Read(bytes, false, endsWithEscape, false, false);
    EXPECT_NE(lenient.find(0xFFFD), Units::npos) << bytes;
  }
}

TEST(ConvertUTF8ToUTF16, AsciiOnlyChecksOnlyWhenStrict) {
  struct Case {
    std::string bytes;
    bool strict;
    long raised;  // 0: converts
  } cases[] = {
      {"\xC3\xA9", true, 27316},
      {"\xC3\xA9", false, 0},  // kept: a lenient caller asked for whatever is there
      {"plain", true, 0},
      {"\x7F", true, 0},
      {"\xC2\x80", true, 27316},
      {kMark + "\xEF\xA0\x81", true, 0},  // checked after decoding: U+0001 is ASCII
      {kMark + kMark, true, 27316},       // U+F800 is not
  };
  for (const Case& c : cases) {
    bool endsWithEscape = false;
    const Raised r = RaisedBy([&] { Read(c.bytes, false, endsWithEscape, true, c.strict); });
    EXPECT_EQ(r.id, c.raised) << c.bytes;
    if (r.raised) {
      EXPECT_EQ(r.text, "");
    }
  }
  EXPECT_EQ(RaisedBy([] { UTF82CString("caf\xC3\xA9", true, true); }).id, 27316);
  EXPECT_EQ(UTF82CString("caf\xC3\xA9", true, false).Std(), (Units{'c', 'a', 'f', 0xE9}));
}

TEST(ConvertUTF8ToUTF16, WholeString) {
  EXPECT_EQ(UTF82CString(("a" + kMark + "\xEF\xA0\x81" + "b").c_str(), false, true).Std(), (Units{'a', 0x01, 'b'}));
  EXPECT_EQ(UTF82CString("", false, true).GetLength(), 0);
  EXPECT_EQ(UTF82CString("\xE4\xB8\xAD\xF0\x9F\x98\x80", false, true).Std(), (Units{0x4E2D, 0xD83D, 0xDE00}));
  // A whole string may not stop after the mark: the terminator completes
  // an impossible pair.
  EXPECT_EQ(RaisedBy([] { UTF82CString(sEscapeInUTF8, false, true); }).id, AdGetHitUnreachedMsgID());
}

TEST(ConvertErrors, BadArgumentsAndIcuFailure) {
  unsigned short* wide = nullptr;
  char* utf8 = nullptr;
  int size = 0;
  bool escape = false;
  const unsigned short one[] = {'a', 0};
  const unsigned short unpaired[] = {'a', 0xD800, 'b'};
  struct Case {
    const char* what;
    std::function<void()> call;
    std::string text;
  } cases[] = {
      {"UTF82UTF16 null", [&] { UTF82UTF16(false, nullptr, 3, false, true, wide, size, escape); }, "data != __null"},
      {"UTF82CString null", [&] { UTF82CString(nullptr, false, true); }, "data != __null"},
      {"do_UTF162UTF8 size 0", [&] { do_UTF162UTF8(one, 0, utf8, size, 1); }, "wideCharsSize > 0"},
      {"do_UTF162UTF8 size -1", [&] { do_UTF162UTF8(one, -1, utf8, size, 1); }, "wideCharsSize > 0"},
      {"do_UTF162UTF8 null", [&] { do_UTF162UTF8(nullptr, 1, utf8, size, 1); }, "wideChars != __null"},
      {"unpaired surrogate", [&] { do_UTF162UTF8(unpaired, 3, utf8, size, 0); }, "U_SUCCESS(uerr)"},
      {"unpaired surrogate, escaped copy", [&] { do_UTF162UTF8(unpaired, 3, utf8, size, 1); }, "U_SUCCESS(uerr)"},
  };
  for (const Case& c : cases) {
    utf8 = reinterpret_cast<char*>(1);  // must come back null
    const Raised r = RaisedBy(c.call);
    EXPECT_EQ(r.id, AdGetBadValue0MsgID()) << c.what;
    EXPECT_EQ(r.text, c.text) << c.what;
    EXPECT_EQ(r.file, "xmlstream") << c.what;
    if (c.text != "data != __null") {
      EXPECT_EQ(utf8, nullptr) << c.what;
    }
  }
}

TEST(ConvertRoundTrip, EscapeSurvivesEverySplit) {
  const Units text{'a', 0x01, 0x00E9, 0xF800, 0x00, 0x09, 0x4E2D, 0xD83D, 0xDE00, 0x1F, 0xF800, 'z'};
  const std::string bytes = Write(text, 1);
  const Units expected = ReadBackForm(text);
  const std::vector<std::size_t> cuts = CharBoundaries(bytes);
  // Every pair of cuts makes three chunks; among them every chunk that is
  // only an escape mark, and every pair split after its mark.
  for (std::size_t i = 0; i < cuts.size(); ++i)
    for (std::size_t j = i; j < cuts.size(); ++j)
      ASSERT_EQ(ReadChunks(bytes, {cuts[i], cuts[j]}), expected) << "cuts " << cuts[i] << ", " << cuts[j];
}

TEST(ConvertRoundTrip, RandomUnitsAndChunks) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 300; ++round) {
    Units text;
    const int length = 1 + static_cast<int>(rng() % 200);
    while (static_cast<int>(text.size()) < length) {
      switch (rng() % 8) {
        case 0: text.push_back(static_cast<unsigned short>(rng() % 0x20)); break;      // C0, TAB, LF, CR, 0
        case 1: text.push_back(sEscapeInUTF16); break;
        case 2: text.push_back(static_cast<unsigned short>(0xF801 + rng() % 0x1F)); break;  // look like pairs
        case 3: text.push_back(static_cast<unsigned short>(0x80 + rng() % 0x780)); break;   // two-byte forms
        case 4: text.push_back(static_cast<unsigned short>(0x4E00 + rng() % 0x5000)); break;
        case 5:
          text.push_back(static_cast<unsigned short>(0xD800 + rng() % 0x400));
          text.push_back(static_cast<unsigned short>(0xDC00 + rng() % 0x400));
          break;
        default: text.push_back(static_cast<unsigned short>(0x20 + rng() % 0x5F)); break;
      }
    }
    const std::string bytes = Write(text, 1);
    const std::vector<std::size_t> boundaries = CharBoundaries(bytes);
    std::vector<std::size_t> cuts;
    for (std::size_t cut : boundaries)
      if (rng() % 4 == 0) cuts.push_back(cut);
    ASSERT_EQ(ReadChunks(bytes, cuts), ReadBackForm(text)) << "round " << round;
  }
}

namespace {

// The escaped form built unit by unit, straight from the table of forms.
std::string ReferenceEscapedUTF8(const Units& text) {
  Obx_String escaped;
  for (unsigned short c : text) {
    const bool control = c < 0x20 && c != 0x09 && c != 0x0A && c != 0x0D;
    if (c == sEscapeInUTF16 || control) {
      escaped.Append(sEscapeInUTF16);
      escaped.Append(c == sEscapeInUTF16 ? sEscapeInUTF16 : static_cast<unsigned short>(c + 0xF800));
    } else {
      escaped.Append(c);
    }
  }
  return escaped.ToUtf8();
}

// Many escapes in runs of one length, each run opened and closed by a
// surrogate pair so that a badly placed flush would split one.
Units Runs(int escapes, int runLength, int tail) {
  Units text;
  for (int k = 0; k < escapes; ++k) {
    text.push_back(k % 3 == 0 ? sEscapeInUTF16 : static_cast<unsigned short>(1 + k % 8));
    Units run(static_cast<std::size_t>(runLength), 'x');
    if (runLength >= 2) run[0] = 0xD83D, run[1] = 0xDE00;
    if (runLength >= 4) run[run.size() - 2] = 0xD834, run[run.size() - 1] = 0xDD1E;
    text += run;
  }
  text += Units(static_cast<std::size_t>(tail), 0xE9);
  return text;
}

}  // namespace

TEST(ConvertRoundTrip, DenseAndLongTexts) {
  const Units texts[] = {
      Runs(20000, 1, 0),     // more escapes than positions are kept of
      Runs(16384, 2, 5000),  // exactly as many escapes as positions kept
      Runs(16385, 2, 5000),
      Runs(500, 63, 7),      // runs just below, at and above the length converted in place
      Runs(500, 64, 7),
      Runs(500, 65, 7),
      Runs(3, 5000, 0),
      Runs(4000, 0, 1),      // escapes only
  };
  for (const Units& text : texts) {
    const std::string bytes = Write(text, 1);
    ASSERT_EQ(bytes, ReferenceEscapedUTF8(text)) << text.size();
    const std::vector<std::size_t> cuts = CharBoundaries(bytes);
    ASSERT_EQ(ReadChunks(bytes, {cuts[cuts.size() / 3], cuts[cuts.size() / 2]}), ReadBackForm(text));
  }
}
