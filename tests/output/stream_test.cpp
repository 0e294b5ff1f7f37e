// The output stream's core: the bytes of every kind of item, the control
// escape, the in-memory result, the converter, appending a stream.
#include <deque>
#include <memory>
#include <vector>

#include "input/input_fixtures.h"

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

// Items of unit arrays, one text cut into several so that pairs and runs
// straddle the seams.
void AddPieces(XmlElement& e, std::initializer_list<std::u16string> pieces) {
  for (const std::u16string& piece : pieces)
    e.AddCharData(Obx_String(NX_U16(piece.c_str()), static_cast<int>(piece.size())));
}

// Trees that cover every escape class (markup, the three allowed controls
// and the others, the escape mark, zero), one- to four-byte forms with a
// pair split between items, attributes with a line feed, empty elements,
// an application's token and an error item, runs longer than the
// encoder's eight-unit steps; then trees that fail in one way each, and
// inline text, which only a converter renders.
std::vector<NXSmartPtr<XmlElement>> Trees() {
  std::vector<NXSmartPtr<XmlElement>> trees;
  NXSmartPtr<XmlElement> full(new XmlElement(u"caf\u00e9"));
  full->GetSTag().SetAttribute(NX_U16(u"a"), NX_U16(u"&<>\"'\t\n\r\x01\u00e9\u4e2d\U0001F600"), 1);
  full->GetSTag().SetAttribute(NX_U16(u"\u4e2d"), NX_U16(u""), 1);
  AddPieces(*full, {u"abcdefghijklmnopq&", u"<>\"'\t\n\r", std::u16string(u"\x01\0\x1f\uF800", 4),
                    u"\u00e9\u07ff\u0800\xD83D", u"\xDE00\uFFFF"});
  full->AddSubElement(u"rec");
  full->AddSubElement(u"a")->AddCharData(u"");
  NXSmartPtr<XmlCharData> marker(new Marker), error(new XmlError(Obx_String(u"e<rr\x02")));
  full->AddCharData(marker);
  full->AddSubElement(u"\u4e2d")->AddCharData(error);
  trees.push_back(full);
  const std::u16string loneHigh(u"x\xD83D"), loneLow(u"\xDE00y");
  for (int k = 0; k < 5; ++k) {
    NXSmartPtr<XmlElement> bad(new XmlElement(u"rec"));
    bad->AddCharData(u"ok");
    if (k == 0) AddPieces(*bad, {loneHigh, u"y"});
    if (k == 1) bad->GetSTag().SetAttribute(NX_U16(u"a"), NX_U16(loneLow.c_str()), 1);
    if (k == 2) bad->AddSubElement(u"")->AddCharData(u"x");
    if (k == 3) bad->GetETag()(NX_U16(u"other"));
    if (k == 4) bad->GetSTag().SetInlineText(Obx_String(u"in<line\x1f"));  // needs a converter
    trees.push_back(bad);
  }
  return trees;
}

TEST(OXmlStreamImages, BytesEqualTheConvertedImage) {
  MarkingConverter marking;
  XmlConverter plain;
  XmlConverter* const converters[] = {nullptr, &plain, &marking};
  const XmlToken* (*const shapes[])(const XmlElement&) = {
      [](const XmlElement& e) -> const XmlToken* { return &e; },
      [](const XmlElement& e) -> const XmlToken* { return &e.GetSTag(); },
      [](const XmlElement& e) -> const XmlToken* { return &e.GetETag(); },
  };
  int tree = 0;
  for (const NXSmartPtr<XmlElement>& t : Trees()) {
    ++tree;
    for (XmlConverter* const c : converters)
      for (const int escape : {0, 1})
        for (const auto shape : shapes) {
          const XmlToken& token = *shape(*t);
          const std::string byImage = Capture([&] {
            const Obx_String image = token.GetImage(c);
            if (image.IsEmpty()) return std::string();
            char* utf8 = nullptr;
            int size = 0;
            do_UTF162UTF8(image.GetData(), image.GetLength(), utf8, size, escape);
            std::unique_ptr<char[]> owner(utf8);
            return std::string(utf8, static_cast<std::size_t>(size));
          });
          const std::string byStream = Capture([&] {
            OXmlStream out(0LL);
            if (c) out.SetConverter(c, 0);
            out.SetEscapeControlChars(escape);
            out << token;
            return out.Str();
          });
          ASSERT_EQ(byStream, byImage) << "tree " << tree << " escape " << escape;
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
