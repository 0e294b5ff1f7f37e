// Images byte for byte: escaping in both modes, tag and element images,
// converter hooks, inline text, and the assertions.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "xmlcontent.h"

namespace {

std::string Utf8(const Obx_String& s) { return s.ToUtf8(); }

// Rewrites tag and attribute names visibly and marks values it passes on.
class RenamingConverter : public XmlConverter {
 public:
  void AttrStreamImage(const unsigned short*, Obx_String& value) override { value.Append(u'!'); }
  const unsigned short* AttrNameImage(const XmlSTag&, const unsigned short* name, const unsigned short* value) override {
    // The value arrives as the stream hook left it.
    m_attrName = Obx_String::Format(u"%s(%s)", name, value);
    return m_attrName;
  }
  const unsigned short* TagNameImage(const unsigned short* name) override {
    m_tagName = Obx_String::Format(u"ns:%s", name);
    return m_tagName;
  }

 private:
  Obx_String m_attrName, m_tagName;
};

class EmptyNameConverter : public XmlConverter {
 public:
  const unsigned short* TagNameImage(const unsigned short*) override { return NX_U16(u""); }
};

}  // namespace

TEST(Images, EscapingInBothModes) {
  const struct {
    const char16_t* text;
    const char* asCharData;
    const char* asAttribute;
  } cases[] = {
      {u"a<b>\"c\"'d'\t\n\r", "a&lt;b&gt;\"c\"'d'&#x9;&#xA;&#xD;", "a&lt;b&gt;&quot;c&quot;&apos;d&apos;&#x9;&#xA;&#xD;"},
      {u"", "", ""},
      {u"&amp;", "&amp;amp;", "&amp;amp;"},  // entities are not recognised
      {u"'\"", "'\"", "&apos;&quot;"},       // counted as escapable, kept as text
      {u"\u00e9?@\uF800", "\xC3\xA9?@\xEF\xA0\x80", "\xC3\xA9?@\xEF\xA0\x80"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Utf8(XmlCharData(c.text).GetImage(nullptr)), c.asCharData);
    XmlSTag tag(u"t");
    tag.SetAttribute(NX_U16(u"x"), NX_U16(c.text), 1);
    EXPECT_EQ(Utf8(tag.GetImage(nullptr)), std::string("<t x=\"") + c.asAttribute + "\">\n");
  }
  RenamingConverter converter;
  EXPECT_EQ(Utf8(XmlCharData(u"a&b").GetImage(&converter)), "a&amp;b");  // no hook for text
}

TEST(Images, TagsAndConverterHooks) {
  XmlConverter defaults;
  RenamingConverter renaming;
  XmlSTag bare(u"a"), two(u"a"), inlined(u"a"), both(u"a");
  two.SetAttribute(NX_U16(u"x"), NX_U16(u"1&2"), 1);
  two.SetAttribute(NX_U16(u"y"), NX_U16(u""), 1);
  inlined.SetInlineText(Obx_String(u"i<j"));
  both.SetAttribute(NX_U16(u"x"), NX_U16(u"1"), 1);
  both.SetInlineText(Obx_String(u"i<j"));
  const struct {
    const XmlToken* tag;
    XmlConverter* converter;
    const char* image;
  } cases[] = {
      {&bare, nullptr, "<a>"},
      {&two, nullptr, "<a x=\"1&amp;2\" y=\"\">\n"},
      // The default stream hook escapes as text, then as an attribute.
      {&two, &defaults, "<a x=\"1&amp;amp;2\" y=\"\">\n"},
      {&two, &renaming, "<ns:a x(1&2!)=\"1&amp;2!\" y(!)=\"!\">\n"},
      // Inline text: escaped as text, through the hook, after the line feed.
      {&inlined, &defaults, "<a>i&amp;lt;j"},
      {&both, &renaming, "<ns:a x(1!)=\"1!\">\ni&lt;j!"},
      {&bare, &renaming, "<ns:a>"},
  };
  for (const auto& c : cases) EXPECT_EQ(Utf8(c.tag->GetImage(c.converter)), c.image) << c.image;
  EXPECT_EQ(Utf8(two.GetImage(NX_U16(u"/>"), nullptr)), "<a x=\"1&amp;2\" y=\"\"/>\n");
  EXPECT_EQ(Utf8(XmlETag(u"a").GetImage(&renaming)), "</ns:a>");
  EXPECT_EQ(Utf8(two.GetAttributeByName(NX_U16(u"x"))), "1&2");  // rendering changes nothing

  EXPECT_TRUE(defaults.SetConvertFlag(false));
  EXPECT_FALSE(defaults.SetConvertFlag(true));
}

TEST(Images, Elements) {
  const struct {
    const char* image;
    std::function<void(XmlElement&)> build;
  } cases[] = {
      {"<a/>", [](XmlElement&) {}},
      {"<a y=\"1\"/>\n", [](XmlElement& e) { e.GetSTag().SetAttribute(NX_U16(u"y"), NX_U16(u"1"), 1); }},
      {"<a y=\"1\">\nx</a>",
       [](XmlElement& e) {
         e.GetSTag().SetAttribute(NX_U16(u"y"), NX_U16(u"1"), 1);
         e.AddCharData(u"x");
       }},
      // An empty text item is content: the end tag is written.
      {"<a><b></b>1&lt;2&#xA;\"<c>u</c></a>",
       [](XmlElement& e) {
         e.AddSubElement(u"b")->AddCharData(u"");
         e.AddCharData(u"1<2\n\"");
         e.AddSubElement(u"c")->AddCharData(u"u");
       }},
      // Names that differ only in case: each tag keeps its own.
      {"<a>x</A>",
       [](XmlElement& e) {
         e.GetETag()(NX_U16(u"A"));
         e.AddCharData(u"x");
       }},
  };
  RenamingConverter renaming;
  for (const auto& c : cases) {
    XmlElement e(u"a");
    c.build(e);
    EXPECT_EQ(Utf8(e.GetImage(nullptr)), c.image);
    EXPECT_EQ(Utf8(XmlElement(e).GetImage(nullptr)), c.image);
  }
  XmlElement root(u"r");
  root.AddSubElement(u"d")->AddCharData(u"e");
  EXPECT_EQ(Utf8(root.GetImage(&renaming)), "<ns:r><ns:d>e</ns:d></ns:r>");
}

TEST(Images, AssertionsCarryTheirExactTexts) {
  EmptyNameConverter emptyNames;
  XmlSTag inlined(u"t");
  inlined.SetInlineText(Obx_String(u"x"));
  XmlElement mismatched(u"a"), badChild(u"p");
  mismatched.GetETag()(NX_U16(u"ab"));
  badChild.AddSubElement(NX_U16(u""));
  const char* const names = "AdIsNonEmpty(name)";
  const char* const agree = "AdIsEqualNoCase(m_stag.GetName(), m_etag.GetName())";
  const struct {
    std::function<void()> render;
    const char* text;
  } cases[] = {
      {[] { XmlETag().GetImage(nullptr); }, names},
      {[] { XmlSTag().GetImage(nullptr); }, names},
      {[&] { XmlETag(u"a").GetImage(&emptyNames); }, names},
      {[&] { XmlSTag(u"a").GetImage(&emptyNames); }, names},
      {[&] { badChild.GetImage(nullptr); }, names},
      {[&] { inlined.GetImage(nullptr); }, "cvrtr != __null"},
      {[&] { mismatched.GetImage(nullptr); }, agree},
      {[&] {
         mismatched.AddCharData(u"x");
         mismatched.GetImage(nullptr);
       },
       agree},
  };
  for (const auto& c : cases) {
    try {
      c.render();
      ADD_FAILURE() << "nothing raised for " << c.text;
    } catch (QmMsgException* e) {
      EXPECT_EQ(e->GetMessage(0).GetId(), AdGetBadValue0MsgID());
      EXPECT_EQ(Utf8(e->GetText()), c.text);
      EXPECT_STREQ(e->GetFile(), "xmlcontent");
      e->Delete();
    }
  }
}
