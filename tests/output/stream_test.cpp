// The output stream's core: the bytes of every kind of item, the control
// escape, the in-memory result, the converter, appending a stream.
#include <deque>
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
    return Keep(NX_U16(u"k-"), name);
  }
  const unsigned short* TagNameImage(const unsigned short* name) override { return Keep(NX_U16(u"t-"), name); }

 private:
  const unsigned short* Keep(const unsigned short* prefix, const unsigned short* name) {
    Obx_String s(prefix);
    s.Append(name);
    m_kept.push_back(s);
    return m_kept.back().GetData();
  }
  std::deque<Obx_String> m_kept;
};

// A token type of the application's with an image of its own.
class Marker : public XmlCharData {
 public:
  Marker() : XmlCharData(NX_U16(u"m")) {}
  Obx_String GetImage(XmlConverter*) const override { return Obx_String(NX_U16(u"<?m\x01?>")); }
};

// The reference: the token's UTF-16 image converted in one piece.
Outcome ByImage(const XmlToken& token, XmlConverter* converter, int escape) {
  return Capture([&] {
    const Obx_String image = token.GetImage(converter);
    if (image.IsEmpty()) return std::string();
    char* utf8 = nullptr;
    int size = 0;
    do_UTF162UTF8(image.GetData(), image.GetLength(), utf8, size, escape);
    std::string bytes(utf8, static_cast<std::size_t>(size));
    delete[] utf8;
    return bytes;
  });
}

Outcome ByStream(const XmlToken& token, XmlConverter* converter, int escape) {
  return Capture([&] {
    OXmlStream out(0LL);
    if (converter) out.SetConverter(converter, 0);
    out.SetEscapeControlChars(escape);
    out << token;
    return out.Str();
  });
}

Obx_String Units(std::initializer_list<unsigned short> units) {
  return Obx_String(Obx_StdString(units));
}

// Units chosen to hit every branch of the encoder: markup characters, the
// three allowed and other controls, the escape mark, one to three byte
// forms, both surrogate halves.
const unsigned short kAlphabet[] = {'a', 'Z', '&', '<', '>', '"', '\'', 0x09, 0x0A, 0x0D, 0x01,
                                    0x00, 0x1F, 0xE9, 0x7FF, 0x800, 0x4E2D, 0xF800, 0xFFFF, 0xD83D, 0xDE00};

Obx_String RandomText(std::mt19937& rng, int maxLength) {
  Obx_String s;
  const int length = static_cast<int>(rng() % static_cast<unsigned>(maxLength + 1));
  for (int i = 0; i < length; ++i) {
    // Runs of plain letters between the others, long enough for the
    // encoder's eight-unit steps.
    unsigned short u = rng() % 2 ? static_cast<unsigned short>('a' + rng() % 26)
                                 : kAlphabet[rng() % (sizeof kAlphabet / sizeof kAlphabet[0])];
    // Mostly whole pairs, so that many trees convert; a lone half now and then.
    if (u == 0xD83D && rng() % 8) {
      s.Append(u);
      u = 0xDE00;
    }
    s.Append(u);
  }
  return s;
}

NXSmartPtr<XmlElement> RandomElement(std::mt19937& rng, int depth) {
  static const char16_t* const names[] = {u"a", u"rec", u"caf\u00e9", u"\u4e2d"};
  NXSmartPtr<XmlElement> e(new XmlElement(names[rng() % 4]));
  for (unsigned k = rng() % 3; k > 0; --k)
    e->GetSTag().SetAttribute(NX_U16(names[rng() % 4]), RandomText(rng, 12), 1);
  for (unsigned k = rng() % 4; k > 0; --k) {
    if (depth > 0 && rng() % 2) {
      NXSmartPtr<XmlElement> child = RandomElement(rng, depth - 1);
      e->AddSubElement(child);
    } else {
      e->AddCharData(RandomText(rng, 40));
    }
  }
  return e;
}

TEST(OXmlStreamImages, BytesEqualTheConvertedImage) {
  MarkingConverter marking;
  XmlConverter plain;
  XmlConverter* const converters[] = {nullptr, &plain, &marking};

  NXSmartPtr<XmlSTag> tag(new XmlSTag(u"a"));
  tag->SetAttribute(NX_U16(u"x"), NX_U16(u"1&2 \"q\" 'p'\t\n\r<>"), 1);
  tag->SetAttribute(NX_U16(u"y"), Units({0x01, 0xF800, 0x00, 0xE9}), 1);
  NXSmartPtr<XmlSTag> bare(new XmlSTag(u"b"));
  NXSmartPtr<XmlSTag> withInline(new XmlSTag(u"c"));
  withInline->SetInlineText(Obx_String(NX_U16(u"in<line>\n")));
  NXSmartPtr<XmlSTag> unnamed(new XmlSTag(u""));
  NXSmartPtr<XmlETag> end(new XmlETag(u"a"));
  NXSmartPtr<XmlCharData> text(new XmlCharData(Units({'a', 0x01, 'b', 0x00, 0xF800, 0x09, '"', '&', 0xD83D, 0xDE00})));
  NXSmartPtr<XmlError> error(new XmlError(Obx_String(NX_U16(u"bad <input>"))));
  NXSmartPtr<Marker> marker(new Marker);

  NXSmartPtr<XmlElement> tree(new XmlElement(u"root"));
  tree->GetSTag().SetAttribute(NX_U16(u"id"), NX_U16(u"7"), 1);
  tree->AddCharData(Units({'x', 0xD83D}));  // the pair is completed by the next item
  tree->AddCharData(Units({0xDE00, 'y'}));
  NXSmartPtr<XmlElement> child = tree->AddSubElement(u"child");
  child->AddSubElement(u"leaf");
  child->AddCharData(u"t&t");
  NXSmartPtr<XmlElement> mismatched(new XmlElement(u"a"));
  mismatched->GetETag()(NX_U16(u"b"));
  mismatched->AddCharData(u"z");
  NXSmartPtr<XmlElement> halfPairAtEnd(new XmlElement(u"h"));
  halfPairAtEnd->AddCharData(Units({0xD83D}));
  NXSmartPtr<XmlElement> withMarker(new XmlElement(u"w"));
  NXSmartPtr<XmlCharData> markerItem(new Marker);
  withMarker->AddCharData(markerItem);

  const XmlToken* const tokens[] = {tag.get(),    bare.get(),   withInline.get(), unnamed.get(),       end.get(),
                                    text.get(),   error.get(),  marker.get(),     tree.get(),          mismatched.get(),
                                    halfPairAtEnd.get(), withMarker.get()};
  for (XmlConverter* converter : converters)
    for (int escape = 0; escape < 2; ++escape)
      for (std::size_t i = 0; i < sizeof tokens / sizeof tokens[0]; ++i)
        EXPECT_EQ(ByStream(*tokens[i], converter, escape), ByImage(*tokens[i], converter, escape))
            << "token " << i << ", converter " << (converter == nullptr ? 0 : converter == &plain ? 1 : 2)
            << ", escape " << escape;

  // Random trees, so that the seams between items are tried in every form.
  std::mt19937 rng(20240607);
  for (int round = 0; round < 400; ++round) {
    NXSmartPtr<XmlElement> e = RandomElement(rng, 3);
    XmlConverter* converter = converters[round % 3];
    ASSERT_EQ(ByStream(*e, converter, round % 2), ByImage(*e, converter, round % 2)) << "round " << round;
  }
}

TEST(OXmlStreamImages, StartTagNeverEmptyAndEndTagByName) {
  OXmlStream out(0LL);
  XmlElement leaf(u"leaf");
  leaf.GetSTag().SetAttribute(NX_U16(u"k"), NX_U16(u"v"), 1);
  out << leaf << leaf.GetSTag() << static_cast<const XmlETag&>(leaf.GetSTag());
  EXPECT_EQ(out.Str(), "<leaf k=\"v\"/>\n<leaf k=\"v\">\n</leaf>");
}

TEST(OXmlStreamCore, TextNumbersAndTheInMemoryResult) {
  OXmlStream out(0LL);
  out << NX_U16(u"a\x01") << 12345L;
  out.write("\xEF\xBC\xA1", 3);
  out.write(NX_U16(u"xyz"), 2);
  const std::string expected = "a\xEF\xA0\x80\xEF\xA0\x81" "12345\xEF\xBC\xA1xy";
  EXPECT_EQ(out.Str(), expected);
  EXPECT_EQ(out.IsClosed(), 1);
  // Closing a string-backed stream only marks it.
  out << NX_U16(u"!");
  EXPECT_EQ(out.Str(), expected + "!");

  OXmlStream raw(0LL);
  raw.SetEscapeControlChars(0);
  raw << NX_U16(u"a\x01");
  EXPECT_EQ(raw.Str(), std::string("a\x01"));

  EXPECT_EQ(Capture([] {
              OXmlStream s(0LL);
              s.write(static_cast<const unsigned short*>(nullptr), 3);
              return s.Str();
            }).text,
            "wideChars != __null");
}

TEST(OXmlStreamCore, AFailedRenderWritesNothing) {
  OXmlStream out(0LL);
  out << NX_U16(u"<ok>");
  XmlElement tree(u"r");
  tree.AddCharData(u"fine");
  tree.AddSubElement(u"")->AddCharData(u"x");  // an unnamed element deep inside
  EXPECT_EQ(Capture([&] {
              out << tree;
              return std::string();
            }).text,
            "AdIsNonEmpty(name)");
  NXSmartPtr<XmlCharData> lone(new XmlCharData(Units({'a', 0xD83D, 'b'})));
  EXPECT_EQ(Capture([&] {
              out << *lone;
              return std::string();
            }).text,
            "U_SUCCESS(uerr)");
  EXPECT_EQ(out.Str(), "<ok>");
}

TEST(OXmlStreamCore, CallersStreams) {
  std::ostringstream strings;
  OXmlStream toStrings(strings, 0);
  toStrings << NX_U16(u"s");
  EXPECT_EQ(toStrings.Str(), "s");
  EXPECT_EQ(toStrings.GetIsStrstream(), 1);

  std::stringstream plain;
  OXmlStream toPlain(plain, 0);
  toPlain << NX_U16(u"p");
  EXPECT_EQ(toPlain.Str(), "");  // no string of its own to hand out
  EXPECT_EQ(plain.str(), "p");

  std::ofstream bad;  // never opened: fail bit set
  bad.setstate(std::ios::failbit);
  const Outcome notReady = Capture([&] {
    OXmlStream s(bad, 0);
    return std::string();
  });
  EXPECT_TRUE(notReady.raised);
  EXPECT_EQ(notReady.id, 27303);
  EXPECT_EQ(notReady.text, "");
}

TEST(OXmlStreamCore, ConverterOwnership) {
  OXmlStream out(0LL);
  EXPECT_EQ(out.GetConverter(), nullptr);
  out.SetConverter(nullptr, 0);  // a default one, owned whatever the flag
  XmlConverter* first = out.GetConverter();
  ASSERT_NE(first, nullptr);
  out.SetConverter(first, 1);  // the same one again is not freed
  XmlConverter mine;
  out.SetConverter(&mine, 0);  // frees the owned one; the sanitizer checks
  EXPECT_EQ(out.GetConverter(), &mine);
  out.SetConverter(new MarkingConverter, 1);  // freed by the destructor
  out << XmlETag(u"e");
  EXPECT_EQ(out.Str(), "</t-e>");
}

TEST(OXmlStreamCore, AppendingAStringBackedStream) {
  OXmlStream lhs(0LL);
  OXmlStream rhs(0LL);
  rhs.write("ab\0cd", 5);
  lhs << NX_U16(u"<") << rhs;
  EXPECT_EQ(rhs.IsClosed(), 1);
  EXPECT_EQ(lhs.Str(), "<ab");  // up to the first zero byte

  NxBlob blob;
  rhs.GetBlob(blob);
  EXPECT_EQ(std::string(blob.GetData(), blob.GetSize()), "ab");

  EXPECT_EQ(Capture([&] {
              lhs << lhs;
              return std::string();
            }).text,
            "&lhs != &rhs");
  const std::string path = ::testing::TempDir() + "nxxml_append_file.xml";
  std::ofstream file(path);
  OXmlStream fileBacked(file, 0);
  EXPECT_EQ(Capture([&] {
              lhs << fileBacked;
              return std::string();
            }).text,
            "rhs.GetIsStrstream()");
  EXPECT_EQ(fileBacked.Str(), "");
  std::remove(path.c_str());
}

}  // namespace
