// The repairing sources: reference parsing, pending output across reads of
// every size and at the edge of the shared buffer, each format's repairs
// and refusals with their exact texts, and the place a failed repair names.
#include <unicode/utf8.h>

#include <thread>

#include "sources/sources_fixtures.h"

namespace {

IXmlStreamSource* Make(int format, const std::string& data, std::vector<long> sizes = {4096}) {
  return XmlCleanStreamSourceFactory(new TrickleSource(data, std::move(sizes)),
                                     static_cast<AdRelayPacketVersion_t>(format));
}

std::string Repaired(int format, const std::string& data, long readSize = 4096, std::vector<long> dirty = {4096}) {
  std::unique_ptr<IXmlStreamSource> source(Make(format, data, std::move(dirty)));
  return Drain(*source, readSize);
}

const std::string kMark = "\xEF\xA0\x80";

}  // namespace

TEST(CleanSource, NullDirtyStream) {
  for (int format : {2, 3, 4}) {
    EXPECT_EQ(Caught([&] { delete XmlCleanStreamSourceFactory(nullptr, static_cast<AdRelayPacketVersion_t>(format)); }),
              "pDirty != __null");
  }
  EXPECT_EQ(Caught([] { IXmlCleanStreamSourceOM source(nullptr); }), "pDirty != __null");
}

// Every repair, read in pieces of every size and from a dirty stream that
// trickles: the bytes must not depend on where the reads cut.
TEST(CleanSource, RepairsAcrossReadsOfEverySize) {
  NXXML_NEED_LOCALE(locale, "en_US.CP1252");
  const struct {
    int format;
    std::string data, want;
  } cases[] = {
      {2, "a&#233;b&#38;c&#60;&#200;", "a\xC3\xA9" "b&#38;c&#60;\xC3\x88"},
      {2, "&#128;&#128;", "\xE2\x82\xAC\xE2\x82\xAC"},
      // A reference is read by strtoul's rules: leading white space, a sign,
      // a "0x" after the "x"; 255 is the largest.
      {2, "a&# 233;b&#+233;&#255;&# 38;", "a\xC3\xA9" "b\xC3\xA9\xC3\xBF&# 38;"},
      {3, "&#x0x26;", "&#x0x26;"},
      {3, "a\x01" "b\x1F\xC3\xA9\x7F&#x26;&lt;&apos;", "a" + kMark + "\xEF\xA0\x81" "b" + kMark + "\xEF\xA0\x9F\xC3\xA9\x7F&#x26;&lt;&apos;"},
      {4, "\xEF\xA0\x81x\xEF\xA0\x80", kMark + "\xEF\xA0\x81x" + kMark + "\xEF\xA0\x80"},
      {4, "\xEF\xA0\x89\xEF\xA0\x8A\xEF\xA0\x8D\xEF\xA0\xA0&amp;", "\xEF\xA0\x89\xEF\xA0\x8A\xEF\xA0\x8D\xEF\xA0\xA0&amp;"},
      {4, "\xE4\xB8\xAD\xF0\x9F\x98\x80\xC3\xA9", "\xE4\xB8\xAD\xF0\x9F\x98\x80\xC3\xA9"},
  };
  for (const auto& c : cases)
    for (long size = 1; size <= 13; ++size) {
      EXPECT_EQ(Repaired(c.format, c.data, size), c.want) << c.format << " " << c.data << " size " << size;
      EXPECT_EQ(Repaired(c.format, c.data, 4096, {size}), c.want) << c.format << " " << c.data << " dirty " << size;
    }
  // Pending bytes keep the source open after the dirty stream is done.
  std::unique_ptr<IXmlStreamSource> source(Make(3, "\x01"));
  char c = 0;
  ASSERT_EQ(source->read(&c, 1), 1);
  EXPECT_FALSE(source->eof());
  EXPECT_EQ(Drain(*source, 1), "\xA0\x80\xEF\xA0\x81");
  EXPECT_TRUE(source->eof());
}

// A reference that the 128-byte buffer cuts, with more input behind it.
TEST(CleanSource, ReferencesAtTheEdgeOfTheBuffer) {
  NXXML_NEED_LOCALE(locale, "zh_CN.GBK");
  for (std::size_t pad = 0; pad < 300; ++pad) {
    const std::string head(pad, 'a');
    const std::string data = head + "&#214;&#208;&#38;&#129;@" + std::string(200, 'z');
    const std::string want = head + "\xE4\xB8\xAD&#38;\xE4\xB8\x82" + std::string(200, 'z');
    for (long size : {1L, 5L, 4096L}) EXPECT_EQ(Repaired(2, data, size, {size}), want) << pad << " " << size;
    const std::string sr1 = head + "&#x3C;&quot;\x02" + std::string(200, 'z');
    EXPECT_EQ(Repaired(3, sr1, 7, {3}), head + "&#x3C;&quot;" + kMark + "\xEF\xA0\x82" + std::string(200, 'z')) << pad;
    const std::string fmt4 = head + "\xEF\xA0\x81" + std::string(200, 'z');
    EXPECT_EQ(Repaired(4, fmt4, 7, {3}), head + kMark + "\xEF\xA0\x81" + std::string(200, 'z')) << pad;
  }
  // A trail byte below 128 is written raw, never as a reference.
  EXPECT_EQ(Repaired(2, "&#129;&#64;"), "|! unreached");
}

TEST(CleanSource, EachFormatRefusesWhatBreaksItsRules) {
  NXXML_NEED_LOCALE(locale, "en_US.CP1252");
  const struct {
    int format;
    std::string data, want;
  } cases[] = {
      {2, "ab&#65;", "ab|! unreached"},
      {2, "&amp;", "|! unreached"},
      {2, "&#x41;", "|! unreached"},
      {2, "&#1;", "|! unreached"},
      {2, "&#256;", "|! unreached"},
      {2, "&#X41;", "|! unreached"},  // only a lower-case x makes it hexadecimal
      {2, "ab&#65", "ab|! unreached"},  // no ";" before the end of the input
      {2, "ab\xC8", "ab|! c == AMP"},
      {2, "\x01", "|! c == AMP"},
      {2, "\x7F", "|! c == AMP"},
      {3, "&#38;", "|! isHex"},
      {3, "&#x41;", "|! s_xmlByteCharsToEscape[val]"},
      {3, "&nbsp;",
       "|! LookingAt(C_AMP) || LookingAt(C_LT) || LookingAt(C_GT) || LookingAt(C_APOS) || LookingAt(C_QUOT)"},
      {3, "&", "|! LookingAt(C_AMP) || LookingAt(C_LT) || LookingAt(C_GT) || LookingAt(C_APOS) || LookingAt(C_QUOT)"},
      {4, "a\x01", "a|! ((uint8_t)((c)-0xc0)<0x3e)"},
      {4, "\x80", "|! ((uint8_t)((c)-0xc0)<0x3e)"},
      {4, "\xC3\x80\x80", "|! i == numOfBytes"},
      {4, "\xFE", "|! ((uint8_t)((c)-0xc0)<0x3e)"},
      // Overlong and surrogate sequences pass whole, for expat to judge.
      {4, "\xC0\x80", "\xC0\x80"},
      {4, "\xED\xA0\x80", "\xED\xA0\x80"},
      {4, "\xF8\x88\x80\x80\x80", "\xF8\x88\x80\x80\x80"},
      {4, "\xE4\xB8", "\xE4\xB8"},
  };
  for (const auto& c : cases) EXPECT_EQ(Repaired(c.format, c.data), c.want) << c.format << " " << c.data;
}

// The failure comes after the bytes repaired before it, and names its
// place in the packet.
TEST(CleanSource, AFailedRepairNamesItsPlace) {
  std::unique_ptr<IXmlStreamSource> source(Make(2, "<a>\n<b>x\xC8</b>"));
  char buf[64];
  ASSERT_EQ(source->read(buf, sizeof buf), 8);
  EXPECT_FALSE(source->eof());
  QmMsgException* e = Raised([&] { source->read(buf, sizeof buf); });
  ASSERT_NE(e, nullptr);
  ASSERT_EQ(e->GetMessageCount(), 2);
  EXPECT_EQ(e->GetMessage(0).GetId(), AdGetBadValue0MsgID());
  EXPECT_EQ(Utf8(e->GetFullText()),
            "Internal error: a condition that must hold does not.\n"
            "The old packet cannot be repaired at line 2, column 4, byte 8. [c == AMP]");
  e->Delete();
}

// The safe decoder against ICU's: on every well-formed sequence, and on
// the broken ones both read the same way, they agree.
TEST(CleanSource, SafeDecoderAgreesWithIcuWhereBothAreDefined) {
  for (UChar32 cp = 0x80; cp <= 0x10FFFF; ++cp) {
    if (cp >= 0xD800 && cp <= 0xDFFF) continue;
    uint8_t bytes[4];
    int32_t n = 0;
    U8_APPEND_UNSAFE(bytes, n, cp);
    int i = 0;
    ASSERT_EQ(XmlDecodeUtf8Safe(bytes, i, n), cp);
    ASSERT_EQ(i, n);
  }
  for (const std::string s : {"\xE4\xB8", "\xC3", "\xF0\x9F\x98", "\xE4\x41", "\xC3\xC3"}) {
    const uint8_t* b = reinterpret_cast<const uint8_t*>(s.data());
    int32_t icu = 0;
    UChar32 c = 0;
    U8_NEXT(b, icu, static_cast<int32_t>(s.size()), c);
    int mine = 0;
    EXPECT_LT(XmlDecodeUtf8Safe(b, mine, static_cast<int>(s.size())), 0) << s;
    EXPECT_LT(c, 0);
    EXPECT_EQ(mine, icu) << s;
  }
}

// A packet repaired and read whole gives the tokens of its clean twin.
TEST(CleanSource, RepairedPacketsReadAsTheirCleanTwins) {
  NXXML_NEED_LOCALE(locale, "zh_CN.GBK");
  const std::string clean =
      "<p a=\"&lt;&#x9;\xE4\xB8\xAD\">x &amp; \xE4\xB8\xAD\xE4\xB8\x82<q>\xEF\xA0\x80\xEF\xA0\x81</q></p>";
  const struct {
    int format;
    std::string old;
  } twins[] = {
      {2, "<p a=\"&#60;&#9;&#214;&#208;\">x &#38; &#214;&#208;&#129;@<q></q></p>"},
      {3, "<p a=\"&#x3C;&#x9;\xE4\xB8\xAD\">x &amp; \xE4\xB8\xAD\xE4\xB8\x82<q>\x01</q></p>"},
      {4, "<p a=\"&lt;&#x9;\xE4\xB8\xAD\">x &amp; \xE4\xB8\xAD\xE4\xB8\x82<q>\xEF\xA0\x81</q></p>"},
  };
  for (const auto& twin : twins) {
    std::string want = clean;
    if (twin.format == 2) want.replace(want.find("<q>") + 3, 6, "");  // OM holds no control character
    for (long size : {1L, 4096L}) {
      IXmlStream in(new TrickleSource(twin.old, {size}));
      in.CleanSource(static_cast<AdRelayPacketVersion_t>(twin.format));
      EXPECT_EQ(AllTokens(in), TokensOf(want)) << twin.format;
    }
  }
}

TEST(CleanSource, FirstConstructionsOnTwoThreads) {
  // Run alone in its process, this builds the first sources of the process:
  // the tables must be filled once, whole, before either thread uses them.
  std::string results[4];
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t, &results] {
      results[t] = t % 2 ? Repaired(4, "<a>\xEF\xA0\x81&#x26;</a>") : Repaired(3, "<a>\x01&#x26;</a>");
    });
  for (std::thread& t : threads) t.join();
  for (int t = 0; t < 4; ++t) EXPECT_EQ(results[t], "<a>" + kMark + "\xEF\xA0\x81&#x26;</a>") << t;
}
