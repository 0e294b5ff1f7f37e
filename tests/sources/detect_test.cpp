// Format detection: every rule that changes the type, in both orders where
// order matters; the flags and the corruption check; the factories and
// CleanSource.
#include "sources/sources_fixtures.h"

namespace {

struct Detected {
  int type = -1, nonAscii = -1, corrupt = -1;
  std::string error;
};

Detected Detect(const std::string& data, long codepage = -1, long maxBytes = 1 << 16) {
  Detected d;
  DetectType_t type = eDetectedTypePlain;
  try {
    std::unique_ptr<IXmlStreamSource> source(XmlDetectStreamSourceFactory(new TrickleSource(data, {3}), maxBytes,
                                                                          codepage, type, d.nonAscii, d.corrupt));
    d.type = type;
  } catch (QmMsgException* e) {
    d.error = Condition(e);
  }
  return d;
}

}  // namespace

TEST(Detect, TypeRules) {
  const struct {
    int type;
    std::vector<std::string> inputs;
  } rules[] = {
      {eDetectedTypePlain, {"", "<a b='1'>\t\r\nx</a>"}},
      {eDetectedTypeAmbiguous, {"\xC3\xA9 and \xE4\xB8\xAD"}},
      // Four-byte and overlong sequences are not recognised as UTF-8.
      {eDetectedTypeOM, {"&#233;", "\xC8 raw", "\xC3\xA9 then &#233;", "\xF0\x9F\x98\x80", "\xC0\x80"}},
      // A name that begins with "amp" (or another entity's) counts as it.
      {eDetectedTypeSR1, {"&#xE9;", "&lt;&gt;&quot;", "&ampx;", "&gtab;", "\x01", "\xC3\xA9\x01"}},
      // Contradictions in both orders; broken references and bytes.
      {eDetectedTypeInvalid, {"&#233; &amp;", "&amp; &#233;", "&#233;\x01", "\x01&#233;", "&#xE9; \xC8", "\xC8 &#xE9;",
                              std::string("a\0b", 3), "a & b", "&amp", "&#12345;", "&abc;", "&ap;", "&a;", "&#256;",
                              "&#0;", "&#X41;", "&#x100;", "&#;"}},
  };
  for (const auto& rule : rules)
    for (const std::string& data : rule.inputs) {
      const Detected d = Detect(data);
      EXPECT_EQ(d.type, rule.type) << data << d.error;
      EXPECT_EQ(d.nonAscii, -1) << "flags untouched without a code page";
    }
}

TEST(Detect, FlagsAndHiddenCorruption) {
  const struct {
    std::string data;
    long codepage;
    int nonAscii, corrupt;
  } cases[] = {
      {"caf&#233;", 1252, 1, 0},
      {"x &#65;", 1252, 0, 0},
      {"&#233;", 20127, 1, 1},  // not ASCII
      {"&#xE9;", 1252, 1, 0},
      {"\xE4\xB8\xAD &amp;", 1252, 1, 1},  // UTF-8 text that 1252 cannot hold
      {"\xE4\xB8\xAD &amp;", 936, 1, 0},
      {"\xC3\xA9 plain", 1252, 1, 0},  // ambiguous: no check
  };
  for (const auto& c : cases) {
    const Detected d = Detect(c.data, c.codepage);
    EXPECT_EQ(d.nonAscii, c.nonAscii) << c.data;
    EXPECT_EQ(d.corrupt, c.corrupt) << c.data;
  }
}

TEST(Detect, WholePacketWithinTheMaximum) {
  EXPECT_EQ(Detect(std::string(10, 'a'), -1, 10).type, eDetectedTypePlain);
  EXPECT_EQ(Detect(std::string(11, 'a'), -1, 10).error, "m_source->eof()");
  std::istringstream text("<a>x</a>");
  std::unique_ptr<IXmlStreamSource> plain(XmlDetectAndCleanStream(new IXmlStreamStringSource(text), 100));
  EXPECT_EQ(Drain(*plain, 3), "<a>x</a>");
}

TEST(Detect, DetectAndCleanChoosesTheSource) {
  const struct {
    std::string data, want;
  } cases[] = {
      {"\xC3\xA9", "! pType != eDetectedTypeAmbiguous"},
      {"&#233;&amp;", "! pType != eDetectedTypeInvalid"},
      {"&#38;", "OM"},
      {"&amp;\x01", "OMSR1"},
      {"x", "plain"},
  };
  for (const auto& c : cases) {
    std::string got;
    try {
      std::unique_ptr<IXmlStreamSource> source(XmlDetectAndCleanStream(new TrickleSource(c.data, {1}), 64));
      got = dynamic_cast<IXmlCleanStreamSourceOM*>(source.get())      ? "OM"
            : dynamic_cast<IXmlCleanStreamSourceOMSR1*>(source.get()) ? "OMSR1"
            : dynamic_cast<IXmlDetectStreamSource*>(source.get())     ? "plain"
                                                                       : "?";
    } catch (QmMsgException* e) {
      got = "! " + Condition(e);
    }
    EXPECT_EQ(got, c.want) << c.data;
  }
}

TEST(Detect, FactoryAndCleanSource) {
  TrickleSource* dirty = new TrickleSource("x", {1});
  EXPECT_EQ(XmlCleanStreamSourceFactory(dirty, static_cast<AdRelayPacketVersion_t>(7)), dirty);
  EXPECT_EQ(Caught([&] { XmlCleanStreamSourceFactory(dirty, static_cast<AdRelayPacketVersion_t>(1)); }), "unreached");
  delete dirty;

  IXmlStream in(new TrickleSource("<a>\x01</a>", {2}));
  in.CleanSource(eRelayPacketVersionOMSR1);
  EXPECT_EQ(Caught([&] { in.CleanSource(eRelayPacketVersionOMSR1); }),
            "dynamic_cast<IXmlCleanStreamSource*>(m_source) == 0");
  // The first repairing source stays in place.
  EXPECT_EQ(AllTokens(in), (std::vector<std::string>{"S a", "T \x01", "E a"}));
  in.Close();
  EXPECT_EQ(Caught([&] { in.CleanSource(eRelayPacketVersionOM); }), "m_source != 0");
}
