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

struct EmptyNameConverter : XmlConverter {
  const unsigned short* TagNameImage(const unsigned short*) override { return NX_U16(u""); }
};

}  // namespace

TEST(Images, EscapingTagsAndConverterHooks) {
  // Entities are not recognised; units from 0x3F up pass as they are.
  const char16_t* const text = u"a<b>\"c\"'d'\t\n\r&amp;\u00e9?@\uF800";
  const std::string rest = "&#x9;&#xA;&#xD;&amp;amp;\xC3\xA9?@\xEF\xA0\x80";
  EXPECT_EQ(Utf8(XmlCharData(text).GetImage(nullptr)), "a&lt;b&gt;\"c\"'d'" + rest);
  EXPECT_EQ(Utf8(XmlCharData(u"").GetImage(nullptr)), "");
  XmlSTag tag(u"t");
  tag.SetAttribute(NX_U16(u"x"), NX_U16(text), 1);
  EXPECT_EQ(Utf8(tag.GetImage(nullptr)), "<t x=\"a&lt;b&gt;&quot;c&quot;&apos;d&apos;" + rest + "\">\n");

  XmlConverter defaults;
  RenamingConverter renaming;
  XmlSTag two(u"a"), inlined(u"a");
  two.SetAttribute(NX_U16(u"x"), NX_U16(u"1&2"), 1);
  two.SetAttribute(NX_U16(u"y"), NX_U16(u""), 1);
  EXPECT_EQ(Utf8(two.GetImage(NX_U16(u"/>"), nullptr)), "<a x=\"1&amp;2\" y=\"\"/>\n");
  // The default stream hook escapes as text, then as an attribute.
  EXPECT_EQ(Utf8(two.GetImage(&defaults)), "<a x=\"1&amp;amp;2\" y=\"\">\n");
  EXPECT_EQ(Utf8(two.GetImage(&renaming)), "<ns:a x(1&2!)=\"1&amp;2!\" y(!)=\"!\">\n");
  EXPECT_EQ(Utf8(two.GetAttributeByName(NX_U16(u"x"))), "1&2");  // rendering changes nothing
  // Inline text: escaped as text, through the hook, after the line feed.
  inlined.SetAttribute(NX_U16(u"x"), NX_U16(u"1"), 1);
  inlined.SetInlineText(Obx_String(u"i<j"));
  EXPECT_EQ(Utf8(inlined.GetImage(&renaming)), "<ns:a x(1!)=\"1!\">\ni&lt;j!");
  EXPECT_EQ(Utf8(XmlETag(u"a").GetImage(&renaming)), "</ns:a>");
  EXPECT_EQ(Utf8(XmlCharData(u"a&b").GetImage(&renaming)), "a&amp;b");  // no hook for text

  EXPECT_TRUE(defaults.SetConvertFlag(false));
  EXPECT_FALSE(defaults.SetConvertFlag(true));
}

TEST(Images, Elements) {
  EXPECT_EQ(Utf8(XmlElement(u"a").GetImage(nullptr)), "<a/>");
  // An empty text item is content: the end tag is written.
  XmlElement a(u"a");
  a.AddSubElement(u"b")->AddCharData(u"");
  a.AddCharData(u"1<2\n\"");
  a.AddSubElement(u"c")->AddCharData(u"u");
  EXPECT_EQ(Utf8(a.GetImage(nullptr)), "<a><b></b>1&lt;2&#xA;\"<c>u</c></a>");
  RenamingConverter renaming;
  EXPECT_EQ(Utf8(a.GetImage(&renaming)), "<ns:a><ns:b></ns:b>1&lt;2&#xA;\"<ns:c>u</ns:c></ns:a>");
  // Names that differ only in case: each tag keeps its own.
  XmlElement upper(u"a");
  upper.GetETag()(NX_U16(u"A"));
  upper.AddCharData(u"x");
  EXPECT_EQ(Utf8(upper.GetImage(nullptr)), "<a>x</A>");
}

TEST(Images, AssertionsCarryTheirExactTexts) {
  EmptyNameConverter emptyNames;
  XmlSTag inlined(u"t");
  inlined.SetInlineText(Obx_String(u"x"));
  XmlElement mismatched(u"a"), badChild(u"p");
  mismatched.GetETag()(NX_U16(u"ab"));
  badChild.AddSubElement(NX_U16(u""));
  // A null item (stored by AddSubElement with a null pointer) once made the
  // UTF-16 image dereference it.
  XmlElement nullItem(u"n");
  NXSmartPtr<XmlElement> none;
  nullItem.AddSubElement(none);
  const char* const names = "AdIsNonEmpty(name)";
  const char* const agree = "AdIsEqualNoCase(m_stag.GetName(), m_etag.GetName())";
  const struct {
    std::function<void()> render;
    const char* text;
  } cases[] = {
      {[] { XmlSTag().GetImage(nullptr); }, names},
      {[&] { XmlSTag(u"a").GetImage(&emptyNames); }, names},
      {[&] { badChild.GetImage(nullptr); }, names},
      {[&] { inlined.GetImage(nullptr); }, "cvrtr != __null"},
      {[&] { nullItem.GetImage(nullptr); }, "item != __null"},
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
