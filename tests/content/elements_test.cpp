#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <typeinfo>

#include "xmlcontent.h"

namespace {

std::string Utf8(const Obx_String& s) { return s.ToUtf8(); }

}  // namespace

// Growth figures are the code's own business; what is appended is not,
// and the sanitizer build catches a buffer that grows too little.
TEST(XmlCharData, CopyAndAppend) {
  EXPECT_EQ(Utf8(XmlCharData(u"abcdef", 2).GetData()), "ab");
  // A copy is an unowned token at no place in the input; a copy of a
  // subclass is plain.
  struct Sub : XmlCharData {
    using XmlCharData::XmlCharData;
  };
  NXSmartPtr<XmlCharData> held(new Sub(u"hello"));
  held->m_location.Set(3, 4, 5);
  const XmlCharData copy(*held);
  EXPECT_TRUE(copy.GetRefCount() == 0 && !copy.GetLocation().HasBeenSet());
  XmlElement parent(u"p");
  parent.AddCharData(*held);
  EXPECT_TRUE(typeid(*parent.GetContentAsCharData(0)) == typeid(XmlCharData));
  XmlCharData data(u"");
  const struct {
    const char16_t* piece;
    long length;
    std::string text;
  } steps[] = {
      {u"0123456789", 10, "0123456789"},
      {u"a", 1, "0123456789a"},
      {u"bcd", -1, "0123456789abcd"},   // up to the zero
      {u"efgh", 1, "0123456789abcde"},  // only length units are taken
      {u"f\0g", 3, std::string("0123456789abcdef\0\0", 18)},  // past a zero: zeros
  };
  for (const auto& step : steps) {
    data.AppendData(NX_U16(step.piece), step.length);
    EXPECT_EQ(Utf8(data.GetData()), step.text);
  }
}

TEST(XmlElement, IndexAndNameQueries) {
  // [text, a, text, A, a]: content indices 0..4, sub-element indices 0..2.
  XmlElement e(u"e");
  const NXSmartPtr<XmlCharData> t0 = e.AddCharData(u"t0");
  const NXSmartPtr<XmlElement> a = e.AddSubElement(u"a");
  e.AddLongData(-42);
  const NXSmartPtr<XmlElement> upper = e.AddSubElement(Obx_String(u"A"));
  const NXSmartPtr<XmlElement> last = e.AddSubElement(NX_U16(u"a"));
  EXPECT_EQ(e.GetNumberofSubElements(), 3);
  EXPECT_TRUE(e.GetSubElement(2) == last && !e.GetSubElement(3) && !e.GetSubElement(-1));
  EXPECT_TRUE(e.GetContentAsElement(1) == a && e.GetContentAsCharData(0) == t0);
  EXPECT_EQ(Utf8(e.GetContentAsCharData(2)->GetData()), "-42");
  for (int i : {0, 5, -1}) EXPECT_FALSE(e.GetContentAsElement(i) || e.GetContentAsCharData(i == 0 ? 1 : i)) << i;
  // Lookups by name are case-sensitive; the last one walks backwards.
  EXPECT_TRUE(e.GetSubElement(u"a") == a && e.GetLastSubElement(u"a") == last && e.GetLastSubElement(u"A") == upper);
  EXPECT_FALSE(e.GetSubElement(u"t0") || e.GetLastSubElement(u""));

  std::ostringstream console;
  std::ostream* previous = get_nxcout().SetTarget(&console);
  NXSmartPtr<XmlContent> item;
  EXPECT_EQ(e.GetContentByIndex(item, 4), 1);
  for (int i : {5, -1}) EXPECT_EQ(e.GetContentByIndex(item, i), 6);  // out of range: item untouched, silent
  EXPECT_TRUE(item == last && console.str().empty());
  // A null item is reported on the console; a copy leaves it out.
  NXSmartPtr<XmlElement> none;
  e.AddSubElement(none);
  EXPECT_EQ(e.GetContentByIndex(item, 5), 6);
  EXPECT_FALSE(item);
  EXPECT_EQ(console.str(), "*** error from GetElementByIndex\n");
  get_nxcout().SetTarget(previous);
  EXPECT_EQ(XmlElement(e).GetContentCount(), 5);
}

TEST(XmlElement, SharingCopyingMergingAndClean) {
  XmlElement source(u"src");
  source.GetSTag().SetAttribute(NX_U16(u"q"), NX_U16(u"2"), 1);
  source.GetETag()(NX_U16(u"src"));
  NXSmartPtr<XmlElement> shared(new XmlElement(u"s"));
  source.AddSubElement(shared);
  const XmlElement copied(u"c");
  source.AddSubElement(copied);
  NXSmartPtr<XmlCharData> text(new XmlCharData(u"t"));
  source.AddCharData(text);
  // Shared and returned items are filled in place; copies are not.
  shared->AddCharData(u"in s");
  source.AddSubElement(u"m")->GetSTag().SetAttribute(NX_U16(u"k"), NX_U16(u"v"), 1);
  text->AppendData(NX_U16(u"+"), 1);
  const std::string image = "<src q=\"2\">\n<s>in s</s><c/>t+<m k=\"v\"/>\n</src>";
  EXPECT_EQ(Utf8(source.GetImage(nullptr)), image);

  // Assignment merges the attributes, copies the end tag's named flag and
  // appends deep copies after the target's own items.
  XmlElement target(u"dst");
  target.GetSTag()(NX_U16(u"dst")).SetAttribute(NX_U16(u"p"), NX_U16(u"1"), 1);
  target.AddCharData(u"x");
  target = source;
  EXPECT_EQ(target.GetSTag().IsNamed(), 0);
  EXPECT_EQ(target.GetETag().IsNamed(), 1);
  EXPECT_EQ(XmlElement(copied).GetETag().IsNamed(), 0);
  EXPECT_EQ(Utf8(target.GetImage(nullptr)), "<src p=\"1\" q=\"2\">\nx<s>in s</s><c/>t+<m k=\"v\"/>\n</src>");
  target.GetSubElement(u"s")->AddCharData(u"!");
  target.GetContentAsCharData(3)->AppendData(NX_U16(u"!"), 1);
  EXPECT_EQ(Utf8(source.GetImage(nullptr)), image);
  EXPECT_EQ(Utf8(XmlElement(source).GetImage(nullptr)), image);  // the copy starts empty

  // Self-assignment doubles the content rather than looping.
  XmlElement& alias = source;
  source = alias;
  EXPECT_EQ(source.GetContentCount(), 8);
  EXPECT_EQ(shared->GetRefCount(), 2);
  // Clean drops the items, releasing shared ones, and the attributes; the
  // names stay.
  source.Clean();
  EXPECT_EQ(Utf8(source.GetImage(nullptr)), "<src/>");
  EXPECT_TRUE(shared->GetRefCount() == 1 && text->GetRefCount() == 1);
}
