// The output stream's core: the bytes of every kind of item, the control
// escape, the in-memory result, the converter, appending a stream.
#include <algorithm>
#include <deque>
#include <iterator>
#include <random>

#include "output/output_fixtures.h"

namespace {

// Renames tags and attributes and marks values, so that every hook shows in
// the bytes; the names it returns live as long as the converter.
class MarkingConverter : public XmlConverter {
 public:
  void AttrStreamImage(const unsigned short* name, Obx_String& value) override {
    XmlConverter::AttrStreamImage(name, value);
    value.Append(u'!');
  }
  const unsigned short* AttrNameImage(const XmlSTag&, const unsigned short* name, const unsigned short*) override {
    return Keep(u"k-", name);
  }
  const unsigned short* TagNameImage(const unsigned short* name) override { return Keep(u"t-", name); }
  const unsigned short* Keep(const char16_t* prefix, const unsigned short* name) {
    m_kept.emplace_back(prefix).Append(name);
    return m_kept.back().GetData();
  }
  std::deque<Obx_String> m_kept;
};

// A token type of the application's with an image of its own.
class Marker : public XmlCharData {
 public:
  Marker() : XmlCharData(u"m") {}
  Obx_String GetImage(XmlConverter*) const override { return Obx_String(u"<?m\x01?>"); }
};

// Markup characters, the three allowed and other controls, the escape mark,
// one to three byte forms, both surrogate halves.
const unsigned short kSpecial[] = {'&',  '<',  '>',   '"',   '\'',   0x09,   0x0A,   0x0D,   0x01,  0x00,
                                   0x1F, 0xE9, 0x7FF, 0x800, 0x4E2D, 0xF800, 0xFFFF, 0xD83D, 0xDE00};
const char16_t* const kNames[] = {u"a", u"rec", u"caf\u00e9", u"\u4e2d", u""};

// Trees that fail in one way at most, through bad names or through lone
// surrogate halves: with both, the stream and the image may each meet a
// different one first.
struct RandomTrees {
  std::mt19937 rng{20240607};
  bool halves = false;

  unsigned Pick(std::size_t n) { return static_cast<unsigned>(rng() % n); }
  // Runs of letters between the others, for the encoder's eight-unit steps.
  Obx_String Text(int maxLength) {
    Obx_String s;
    for (unsigned i = Pick(maxLength + 1); i > 0; --i) {
      unsigned short u =
          Pick(4) ? static_cast<unsigned short>('a' + Pick(26)) : kSpecial[Pick(std::size(kSpecial) - !halves)];
      if (u == 0xD83D && (!halves || Pick(8))) {
        s.Append(u);
        u = 0xDE00;
      }
      s.Append(u);
    }
    return s;
  }
  NXSmartPtr<XmlElement> Element(int depth) {
    NXSmartPtr<XmlElement> e(new XmlElement(kNames[!halves && Pick(32) == 0 ? 4 : Pick(4)]));
    for (unsigned k = Pick(3); k > 0; --k) e->GetSTag().SetAttribute(NX_U16(kNames[Pick(4)]), Text(12), 1);
    if (!halves && Pick(32) == 0) e->GetETag()(kNames[Pick(4)]);
    for (unsigned k = Pick(4); k > 0; --k) {
      const unsigned kind = Pick(8);
      NXSmartPtr<XmlCharData> item(kind == 3   ? new Marker
                                   : kind == 4 ? static_cast<XmlCharData*>(new XmlError(Text(8)))
                                               : nullptr);
      if (depth > 0 && kind < 3) {
        NXSmartPtr<XmlElement> child = Element(depth - 1);
        e->AddSubElement(child);
      } else if (item) {
        e->AddCharData(item);
      } else {
        // One text cut into items, so that pairs and runs straddle the seams.
        const Obx_String t = Text(40);
        for (int from = 0, n = 0; from < t.GetLength(); from += n) {
          n = std::min(1 + static_cast<int>(Pick(8)), t.GetLength() - from);
          e->AddCharData(Obx_String(t.GetData() + from, n));
        }
      }
    }
    return e;
  }
};

TEST(OXmlStreamImages, BytesEqualTheConvertedImage) {
  MarkingConverter marking;
  XmlConverter plain;
  XmlConverter* const converters[] = {nullptr, &plain, &marking};
  const XmlToken* (*const shapes[])(const XmlElement&) = {
      [](const XmlElement& e) -> const XmlToken* { return &e; },
      [](const XmlElement& e) -> const XmlToken* { return &e.GetSTag(); },
      [](const XmlElement& e) -> const XmlToken* { return &e.GetETag(); },
  };
  RandomTrees trees;
  for (int round = 0; round < 1200; ++round) {
    trees.halves = round % 2;
    const NXSmartPtr<XmlElement> tree = trees.Element(3);
    if (trees.Pick(4) == 0) tree->GetSTag().SetInlineText(trees.Text(12));
    XmlConverter* const c = converters[round / 2 % 3];
    const int escape = round / 6 % 2;
    for (const auto shape : shapes) {
      const XmlToken& token = *shape(*tree);
      const std::string byImage = Capture([&] {
        const Obx_String image = token.GetImage(c);
        if (image.IsEmpty()) return std::string();
        char* utf8 = nullptr;
        int size = 0;
        do_UTF162UTF8(image.GetData(), image.GetLength(), utf8, size, escape);
        std::string bytes(utf8, static_cast<std::size_t>(size));
        delete[] utf8;
        return bytes;
      });
      const std::string byStream = Capture([&] {
        OXmlStream out(0LL);
        if (c) out.SetConverter(c, 0);
        out.SetEscapeControlChars(escape);
        out << token;
        return out.Str();
      });
      ASSERT_EQ(byStream, byImage) << "round " << round;
    }
  }
}

TEST(OXmlStreamCore, TextNumbersTagsAndTheInMemoryResult) {
  OXmlStream out(0LL);
  XmlElement leaf(u"leaf");
  leaf.GetSTag().SetAttribute(NX_U16(u"k"), NX_U16(u"v"), 1);
  // A start tag is never written empty; an end tag by its name.
  out << NX_U16(u"a\x01") << 12345L << leaf << leaf.GetSTag() << static_cast<const XmlETag&>(leaf.GetSTag());
  out.write("\xEF\xBC\xA1", 3);
  out.write(NX_U16(u"xyz"), 2);
  const std::string expected =
      "a\xEF\xA0\x80\xEF\xA0\x81"
      "12345<leaf k=\"v\"/>\n<leaf k=\"v\">\n</leaf>\xEF\xBC\xA1xy";
  EXPECT_EQ(out.Str(), expected);
  EXPECT_EQ(out.IsClosed(), 1);
  // Closing a string-backed stream only marks it.
  out << NX_U16(u"!");
  EXPECT_EQ(out.Str(), expected + "!");

  OXmlStream raw(0LL);
  raw.SetEscapeControlChars(0);
  raw << NX_U16(u"a\x01");
  // A failed render writes nothing.
  XmlElement tree(u"r");
  tree.AddCharData(u"fine");
  tree.AddSubElement(u"")->AddCharData(u"x");
  EXPECT_EQ(Capture([&] { raw << tree; }),
            "!20001 Internal error: a condition that must hold does not. [AdIsNonEmpty(name)] @xmlcontent");
  EXPECT_EQ(Capture([&] { raw.write(static_cast<const unsigned short*>(nullptr), 3); }),
            "!20001 Internal error: a condition that must hold does not. [wideChars != __null] @xmlstream");
  EXPECT_EQ(raw.Str(), std::string("a\x01"));
}

TEST(OXmlStreamCore, CallersStreamsAndAppending) {
  std::ostringstream strings;
  OXmlStream toStrings(strings, 0);
  toStrings << NX_U16(u"s");
  EXPECT_EQ(toStrings.Str(), "s");
  std::stringstream plain;
  OXmlStream toPlain(plain, 0);
  toPlain << NX_U16(u"p");
  EXPECT_EQ(toPlain.Str(), "");  // no string of its own to hand out
  EXPECT_EQ(plain.str(), "p");
  std::ofstream bad;
  bad.setstate(std::ios::failbit);
  EXPECT_EQ(Capture([&] { OXmlStream s(bad, 0); }), "!27303 The output stream is not ready for writing. @xmlstream");

  OXmlStream lhs(0LL);
  OXmlStream rhs(0LL);
  rhs.write("ab\0cd", 5);
  lhs << NX_U16(u"<") << rhs;
  EXPECT_EQ(rhs.IsClosed(), 1);
  EXPECT_EQ(lhs.Str(), "<ab");  // up to the first zero byte
  NxBlob blob;
  rhs.GetBlob(blob);
  EXPECT_EQ(std::string(blob.GetData(), blob.GetSize()), "ab");
  OXmlStream fileBacked(NX_U16(u"/dev/null"), 0, 1);
  EXPECT_EQ(Capture([&] { lhs << lhs; }),
            "!20001 Internal error: a condition that must hold does not. [&lhs != &rhs] @xmlstream");
  EXPECT_EQ(Capture([&] { lhs << fileBacked; }),
            "!20001 Internal error: a condition that must hold does not. [rhs.GetIsStrstream()] @xmlstream");
}

TEST(OXmlStreamCore, ConverterOwnership) {
  OXmlStream out(0LL);
  out.SetConverter(nullptr, 0);  // a default one, owned whatever the flag
  XmlConverter* first = out.GetConverter();
  ASSERT_NE(first, nullptr);
  out.SetConverter(first, 1);  // the same one again is not freed
  XmlConverter mine;
  out.SetConverter(&mine, 0);                 // frees the owned one; the sanitizer checks
  out.SetConverter(new MarkingConverter, 1);  // freed by the destructor
  out << XmlETag(u"e");
  EXPECT_EQ(out.Str(), "</t-e>");
}

}  // namespace
