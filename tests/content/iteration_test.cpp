// Range-for over an element's items, its sub-elements (all, or of one name
// ignoring case) and a tag's attributes; an element's text read and set.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xmlcontent.h"

namespace {

// A compact picture of a content list: t:TEXT for character data, the
// element's name for an element.
std::string Items(const XmlElement& e) {
  std::string out;
  for (XmlContent& item : e.Content()) {
    if (!out.empty()) out += ' ';
    if (XmlCharData* data = item.ToCharData())
      out += "t:" + data->GetDataUtf8();
    else if (XmlElement* sub = item.ToElement())
      out += sub->GetNameUtf8();
  }
  return out;
}

std::string Names(const XmlContentRange<XmlElement>& range) {
  std::string out;
  for (XmlElement& sub : range) out += sub.GetNameUtf8() + ' ';
  return out;
}

}  // namespace

TEST(XmlElementIteration, MixedAndNamedRanges) {
  EXPECT_TRUE(XmlElement("e").Content().empty() && XmlElement("e").SubElements("x").empty());
  // Mixed content, with a null item (which only the sharing add of a null
  // pointer makes): every range skips it.
  XmlElement e("e");
  e.AddCharData("a");
  e.AddSubElement("Rec");
  NXSmartPtr<XmlElement> none;
  e.AddSubElement(none);
  e.AddCharData("b");
  for (const char16_t* name : {u"other", u"REC", u"réc", u"RÉC"}) e.AddSubElement(name);
  EXPECT_EQ(Items(e), "t:a Rec t:b other REC réc RÉC");
  EXPECT_EQ(Names(e.SubElements()), "Rec other REC réc RÉC ");
  // Names match ignoring case (beyond ASCII too), in UTF-16 and in UTF-8.
  EXPECT_EQ(Names(e.SubElements(Obx_String(u"rEc"))), "Rec REC ");
  EXPECT_EQ(Names(e.SubElements("RéC")), "réc RÉC ");
  EXPECT_EQ(Names(e.SubElements("re")) + Names(e.SubElements("")), "");
  // The iteration visits what the index-based calls reach, in their order.
  int k = 0;
  for (XmlElement& sub : e.SubElements()) EXPECT_EQ(&sub, e.GetSubElement(k++).get());
  // Items appended during a loop are visited; a Clean during a loop ends it.
  int visited = 0;
  for (XmlElement& sub : e.SubElements("other")) {
    if (++visited == 1) e.AddSubElement("Other");
    EXPECT_TRUE(AdIsEqualNoCase(sub.GetName(), NX_U16(u"other")));
  }
  EXPECT_EQ(visited, 2);
  visited = 0;
  for (XmlContent& item : e.Content()) {
    (void)item;
    if (++visited == 2) e.Clean();
  }
  EXPECT_EQ(visited, 2);
}

TEST(XmlSTagIteration, AttributesInTheirOrder) {
  XmlSTag tag("t");
  const char* names[] = {"z", "a", "m", "b", "y", "c", "x", "d", "w", "e", "v", "f"};  // past the map's index threshold
  for (const char* name : names) tag.SetAttribute(name, std::string(name) + "1");
  tag.SetAttribute("m", "again");  // a replaced value keeps its place
  std::string seen;
  for (auto [name, value] : tag.Attributes()) seen += name.ToUtf8() + "=" + value.ToUtf8() + " ";
  EXPECT_EQ(seen, "z=z1 a=a1 m=again b=b1 y=y1 c=c1 x=x1 d=d1 w=w1 e=e1 v=v1 f=f1 ");
  std::vector<std::string> utf8Names;
  tag.GetAttributeNames(utf8Names);
  EXPECT_EQ(utf8Names.size() == 12 ? utf8Names.front() + utf8Names.back() : "", "zf");
  int visited = 0;
  for (const XmlAttribute& attribute : tag.Attributes()) {  // removing the attributes ends the loop
    (void)attribute;
    ++visited;
    tag.Clean();
  }
  EXPECT_EQ(visited, 1);
}

TEST(XmlElementText, GetAndSetWithMixedContent) {
  XmlElement e("e");
  e.GetSTag().SetAttribute("k", "v");
  e.SetText("");  // nothing to replace, nothing added
  EXPECT_EQ(e.GetContentCount(), 0);
  e.SetText(u"x");
  e.AddSubElement("a")->SetText("inner");
  NXSmartPtr<XmlCharData> held = e.AddCharData("y");
  e.AddSubElement("b");
  e.AddCharData("z");
  // The element's own text only; the sub-element's is not part of it.
  EXPECT_EQ(e.GetTextUtf8(), "xyz");
  // The new text takes the first text's place; sub-elements, their text and
  // the attributes stay; an item the caller holds keeps its text.
  e.SetText("new");
  EXPECT_EQ(Items(e), "t:new a b");
  EXPECT_EQ(e.GetSubElement("a")->GetTextUtf8(), "inner");
  EXPECT_TRUE(held->GetDataUtf8() == "y" && held->GetRefCount() == 1);
  // An empty text removes the character data; with none left the new text goes last.
  e.SetText(Obx_String());
  EXPECT_EQ(Items(e), "a b");
  e.SetText("&<tail>");
  EXPECT_EQ(e.GetImage(nullptr).ToUtf8(), "<e k=\"v\">\n<a>inner</a><b/>&amp;&lt;tail&gt;</e>");
}
