// Images byte for byte: escaping in both modes, tag and element images, the
// line feed after a start tag with attributes, the empty-element form,
// converter hooks, inline text, and the assertions.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "xmlcontent.h"

namespace {

std::string Utf8(const Obx_String& s) { return s.ToUtf8(); }

// The condition text of the assertion that render raises, after checking
// that it is the content model's bad-value assertion.
std::string AssertionText(const std::function<void()>& render) {
  try {
    render();
  } catch (QmMsgException* e) {
    EXPECT_EQ(e->GetMessageCount(), 1);
    if (e->GetMessageCount() > 0) {
      EXPECT_EQ(e->GetMessage(0).GetId(), AdGetBadValue0MsgID());
    }
    EXPECT_STREQ(e->GetFile(), "xmlcontent");
    const std::string text = Utf8(e->GetText());
    e->Delete();
    return text;
  }
  return "(nothing raised)";
}

// Rewrites names visibly and leaves values alone, recording what it saw.
class RenamingConverter : public XmlConverter {
 public:
  void AttrStreamImage(const unsigned short* name, Obx_String& value) override {
    streamNames.push_back(Utf8(Obx_String(name)));
    value.Append(u'!');
  }
  const unsigned short* AttrNameImage(const XmlSTag& tag, const unsigned short* name,
                                      const unsigned short* value) override {
    seenTags.push_back(Utf8(tag.GetName()));
    seenValues.push_back(Utf8(Obx_String(value)));
    m_attrName = Obx_String(u"a-");
    m_attrName.Append(name);
    return m_attrName;
  }
  const unsigned short* TagNameImage(const unsigned short* name) override {
    m_tagName = Obx_String(u"ns:");
    m_tagName.Append(name);
    return m_tagName;
  }

  std::vector<std::string> streamNames, seenTags, seenValues;

 private:
  Obx_String m_attrName, m_tagName;
};

// Leaves every value as it is: no second escaping.
class PlainConverter : public XmlConverter {
 public:
  void AttrStreamImage(const unsigned short*, Obx_String&) override {}
};

class EmptyNameConverter : public XmlConverter {
 public:
  const unsigned short* TagNameImage(const unsigned short*) override { return NX_U16(u""); }
};

}  // namespace

TEST(Escaping, CharacterDataAndAttributeModes) {
  const struct {
    const char16_t* text;
    const char* asCharData;
    const char* asAttribute;
  } cases[] = {
      {u"a<b>\"c\"'d'\t\n\r", "a&lt;b&gt;\"c\"'d'&#x9;&#xA;&#xD;",
       "a&lt;b&gt;&quot;c&quot;&apos;d&apos;&#x9;&#xA;&#xD;"},
      {u"plain text \u00e9?@~", "plain text \xC3\xA9?@~", "plain text \xC3\xA9?@~"},
      {u"", "", ""},
      {u"&&", "&amp;&amp;", "&amp;&amp;"},
      // Only quotes: counted as escapable, yet unchanged as character data.
      {u"'\"", "'\"", "&apos;&quot;"},
      // Entities already in the text are escaped again, not recognised.
      {u"&amp;", "&amp;amp;", "&amp;amp;"},
      // Above the table: surrogates, the control escape mark, 0x3F.
      {u"\U0001F600\uF800\uF801?", "\xF0\x9F\x98\x80\xEF\xA0\x80\xEF\xA0\x81?",
       "\xF0\x9F\x98\x80\xEF\xA0\x80\xEF\xA0\x81?"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Utf8(XmlCharData(c.text).GetImage(nullptr)), c.asCharData) << c.asCharData;
    XmlSTag tag(u"t");
    tag.SetAttribute(NX_U16(u"x"), NX_U16(c.text), 1);
    EXPECT_EQ(Utf8(tag.GetImage(nullptr)), std::string("<t x=\"") + c.asAttribute + "\">\n") << c.asAttribute;
  }

  // Character data ignores the converter.
  RenamingConverter converter;
  EXPECT_EQ(Utf8(XmlCharData(u"a&b").GetImage(&converter)), "a&amp;b");
  EXPECT_TRUE(converter.streamNames.empty());
}

TEST(TagImages, WithoutConverter) {
  XmlSTag bare(u"a");
  XmlSTag one(u"a");
  one.SetAttribute(NX_U16(u"x"), NX_U16(u"1&2"), 1);
  XmlSTag two(u"a");
  two.SetAttribute(NX_U16(u"x"), NX_U16(u"1"), 1);
  two.SetAttribute(NX_U16(u"y"), NX_U16(u""), 1);
  const struct {
    const XmlToken* tag;
    const char* image;
  } cases[] = {
      {&bare, "<a>"},
      {&one, "<a x=\"1&amp;2\">\n"},
      {&two, "<a x=\"1\" y=\"\">\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(Utf8(c.tag->GetImage(nullptr)), c.image);
  EXPECT_EQ(Utf8(bare.GetImage(NX_U16(u"/>"), nullptr)), "<a/>");
  EXPECT_EQ(Utf8(one.GetImage(NX_U16(u"/>"), nullptr)), "<a x=\"1&amp;2\"/>\n");
  EXPECT_EQ(Utf8(XmlETag(u"a").GetImage(nullptr)), "</a>");
}

TEST(TagImages, ConverterHooks) {
  XmlSTag tag(u"r");
  tag.SetAttribute(NX_U16(u"x"), NX_U16(u"1&2"), 1);
  RenamingConverter converter;
  // The value reaches the name hook already rewritten by the stream hook.
  EXPECT_EQ(Utf8(tag.GetImage(&converter)), "<ns:r a-x=\"1&amp;2!\">\n");
  EXPECT_EQ(converter.streamNames, std::vector<std::string>{"x"});
  EXPECT_EQ(converter.seenTags, std::vector<std::string>{"r"});
  EXPECT_EQ(converter.seenValues, std::vector<std::string>{"1&2!"});
  EXPECT_EQ(Utf8(XmlETag(u"r").GetImage(&converter)), "</ns:r>");
  // The stored attribute is not touched by rendering.
  EXPECT_EQ(Utf8(tag.GetAttributeByName(NX_U16(u"x"))), "1&2");

  // The default stream hook escapes as character data, then the attribute
  // escaping runs: values are escaped twice.
  XmlConverter defaults;
  XmlSTag doubled(u"a");
  doubled.SetAttribute(NX_U16(u"x"), NX_U16(u"1&2\"<"), 1);
  EXPECT_EQ(Utf8(doubled.GetImage(&defaults)), "<a x=\"1&amp;amp;2&quot;&amp;lt;\">\n");

  EXPECT_TRUE(defaults.SetConvertFlag(false));
  EXPECT_FALSE(defaults.SetConvertFlag(false));
  EXPECT_FALSE(defaults.SetConvertFlag(true));
  EXPECT_TRUE(defaults.GetConvertFlag());
}

TEST(TagImages, InlineText) {
  XmlConverter defaults;
  PlainConverter plain;
  RenamingConverter renaming;
  XmlSTag bare(u"t");
  bare.SetInlineText(Obx_String(u"a<b"));
  XmlSTag withAttribute(u"t");
  withAttribute.SetAttribute(NX_U16(u"x"), NX_U16(u"1"), 1);
  withAttribute.SetInlineText(Obx_String(u"a<b"));
  const struct {
    const XmlSTag* tag;
    XmlConverter* converter;
    const char* image;
  } cases[] = {
      // Escaped as character data, then by the default stream hook again.
      {&bare, &defaults, "<t>a&amp;lt;b"},
      {&bare, &plain, "<t>a&lt;b"},
      // The inline text comes after the line feed that ends the tag.
      {&withAttribute, &plain, "<t x=\"1\">\na&lt;b"},
      {&bare, &renaming, "<ns:t>a&lt;b!"},
  };
  for (const auto& c : cases) EXPECT_EQ(Utf8(c.tag->GetImage(c.converter)), c.image) << c.image;
  // The stream hook is handed the tag's name for the inline text.
  EXPECT_EQ(renaming.streamNames, std::vector<std::string>{"t"});
}

TEST(ElementImages, ByteForByte) {
  const struct {
    const char* image;
    std::function<void(XmlElement&)> build;
  } cases[] = {
      {"<a/>", [](XmlElement&) {}},
      {"<a>x</a>", [](XmlElement& e) { e.AddCharData(u"x"); }},
      {"<a y=\"1\">\nx</a>",
       [](XmlElement& e) {
         e.GetSTag().SetAttribute(NX_U16(u"y"), NX_U16(u"1"), 1);
         e.AddCharData(u"x");
       }},
      {"<a y=\"1\"/>\n", [](XmlElement& e) { e.GetSTag().SetAttribute(NX_U16(u"y"), NX_U16(u"1"), 1); }},
      // No separators between items, adjacent text is not merged but
      // renders as one run.
      {"<a>xy</a>",
       [](XmlElement& e) {
         e.AddCharData(u"x");
         e.AddCharData(u"y");
       }},
      {"<a><b/>t<c>u</c></a>",
       [](XmlElement& e) {
         e.AddSubElement(u"b");
         e.AddCharData(u"t");
         e.AddSubElement(u"c")->AddCharData(u"u");
       }},
      {"<a>1&lt;2&#xA;\"</a>", [](XmlElement& e) { e.AddCharData(u"1<2\n\""); }},
      {"<a><b z=\"&apos;\">\n</b></a>",
       [](XmlElement& e) {
         e.AddSubElement(u"b")->GetSTag().SetAttribute(NX_U16(u"z"), NX_U16(u"'"), 1);
         e.GetSubElement(0)->AddCharData(u"");
       }},
      // Tags whose names differ only in case render each with its own name.
      {"<a>x</A>",
       [](XmlElement& e) {
         e.GetETag()(NX_U16(u"A"));
         e.AddCharData(u"x");
       }},
      {"<a/>", [](XmlElement& e) { e.GetETag()(NX_U16(u"A")); }},
  };
  for (const auto& c : cases) {
    XmlElement e(u"a");
    c.build(e);
    EXPECT_EQ(Utf8(e.GetImage(nullptr)), c.image) << c.image;
    // A deep copy renders the same text.
    EXPECT_EQ(Utf8(XmlElement(e).GetImage(nullptr)), c.image) << c.image;
  }

  // The converter reaches every nested tag.
  XmlElement root(u"r");
  root.GetSTag().SetAttribute(NX_U16(u"x"), NX_U16(u"1&2"), 1);
  root.AddCharData(u"a<b");
  root.AddSubElement(u"c");
  root.AddSubElement(u"d")->AddCharData(u"e");
  RenamingConverter converter;
  EXPECT_EQ(Utf8(root.GetImage(&converter)), "<ns:r a-x=\"1&amp;2!\">\na&lt;b<ns:c/><ns:d>e</ns:d></ns:r>");
}

TEST(ImageAssertions, ExactTexts) {
  EmptyNameConverter emptyNames;
  XmlSTag inlineOnly(u"t");
  inlineOnly.SetInlineText(Obx_String(u"x"));
  XmlElement mismatched(u"a");
  mismatched.GetETag()(NX_U16(u"b"));
  XmlElement mismatchedWithContent(u"a");
  mismatchedWithContent.GetETag()(NX_U16(u"ab"));
  mismatchedWithContent.AddCharData(u"x");
  // A failing item fails its parent's whole image.
  XmlElement badChild(u"p");
  badChild.AddSubElement(NX_U16(u""));

  const struct {
    const char* what;
    std::function<void()> render;
    const char* text;
  } cases[] = {
      {"end tag without name", [] { XmlETag().GetImage(nullptr); }, "AdIsNonEmpty(name)"},
      {"start tag without name", [] { XmlSTag().GetImage(nullptr); }, "AdIsNonEmpty(name)"},
      {"converter empties end tag", [&] { XmlETag(u"a").GetImage(&emptyNames); }, "AdIsNonEmpty(name)"},
      {"converter empties start tag", [&] { XmlSTag(u"a").GetImage(&emptyNames); }, "AdIsNonEmpty(name)"},
      {"element without name", [] { XmlElement().GetImage(nullptr); }, "AdIsNonEmpty(name)"},
      {"nested element without name", [&] { badChild.GetImage(nullptr); }, "AdIsNonEmpty(name)"},
      {"inline text without converter", [&] { inlineOnly.GetImage(nullptr); }, "cvrtr != __null"},
      {"empty element, other end name", [&] { mismatched.GetImage(nullptr); },
       "AdIsEqualNoCase(m_stag.GetName(), m_etag.GetName())"},
      {"element, other end name", [&] { mismatchedWithContent.GetImage(nullptr); },
       "AdIsEqualNoCase(m_stag.GetName(), m_etag.GetName())"},
  };
  for (const auto& c : cases) EXPECT_EQ(AssertionText(c.render), c.text) << c.what;
}
