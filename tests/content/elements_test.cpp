// Character data and elements: growth, the two index numberings, name
// lookups, sharing against copying, the merging assignment, Clean, and the
// lifetime of shared items.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <typeinfo>

#include "xmlcontent.h"

namespace {

std::string Utf8(const Obx_String& s) { return s.ToUtf8(); }

// Reads the growth figure that AppendData keeps.
struct CharDataProbe : XmlCharData {
  using XmlCharData::XmlCharData;
  explicit CharDataProbe(const XmlCharData& other) : XmlCharData(other) {}
  int Capacity() const { return m_capacity; }
};

// Counts live instances, so that a test sees exactly when shared items die.
struct CountedText : XmlCharData {
  static int live;
  explicit CountedText(const char16_t* text) : XmlCharData(text) { ++live; }
  ~CountedText() override { --live; }
};
int CountedText::live = 0;

}  // namespace

TEST(XmlCharData, CopyAndAppendGrowth) {
  EXPECT_EQ(Utf8(XmlCharData(u"abcdef", 2).GetData()), "ab");
  EXPECT_EQ(XmlCharData(u"abc").GetType(), XT_CHARDATA);

  // A copy is a new, unowned token at no place in the input; its growth
  // figure starts at its length, and a copy of a subclass is plain.
  NXSmartPtr<XmlCharData> held(new CountedText(u"hello"));
  held->m_location.Set(3, 4, 5);
  const CharDataProbe copy(*held);
  EXPECT_EQ(copy.GetRefCount(), 0);
  EXPECT_FALSE(copy.GetLocation().HasBeenSet());
  EXPECT_EQ(copy.Capacity(), 5);
  XmlElement parent(u"p");
  parent.AddCharData(*held);
  EXPECT_TRUE(typeid(*parent.GetContentAsCharData(0)) == typeid(XmlCharData));

  CharDataProbe data(u"");
  const struct {
    const char16_t* piece;
    long length;
    const char* text;
    int capacity;
  } steps[] = {
      {u"0123456789", 10, "0123456789", 11},  // the first append always grows
      {u"a", 1, "0123456789a", 11},           // fits: no growth
      {u"bcd", -1, "0123456789abcd", 15},     // up to the zero; 14 * 1.1
      {u"efgh", 1, "0123456789abcde", 15},    // only length units are taken
  };
  for (const auto& step : steps) {
    data.AppendData(NX_U16(step.piece), step.length);
    EXPECT_EQ(Utf8(data.GetData()), step.text);
    EXPECT_EQ(data.Capacity(), step.capacity) << step.text;
  }
  // A length beyond a zero unit in the data is filled with zeros.
  data.AppendData(NX_U16(u"f\0g"), 3);
  EXPECT_EQ(data.GetData().GetLength(), 18);
  EXPECT_EQ(data.GetData()[17], 0);
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
  EXPECT_EQ(e.GetSubElement(1), upper);
  EXPECT_EQ(e.GetSubElement(2), last);
  EXPECT_FALSE(e.GetSubElement(3));
  EXPECT_FALSE(e.GetSubElement(-1));
  EXPECT_EQ(e.GetContentAsElement(1), a);
  EXPECT_EQ(e.GetContentAsCharData(0), t0);
  EXPECT_EQ(Utf8(e.GetContentAsCharData(2)->GetData()), "-42");
  for (int i : {0, 2, 5, -1}) EXPECT_FALSE(e.GetContentAsElement(i)) << i;
  for (int i : {1, 4, 5, -1}) EXPECT_FALSE(e.GetContentAsCharData(i)) << i;

  // Lookups by name are case-sensitive; the last one walks backwards.
  EXPECT_EQ(e.GetSubElement(u"a"), a);
  EXPECT_EQ(e.GetLastSubElement(u"a"), last);
  EXPECT_EQ(e.GetLastSubElement(u"A"), upper);
  EXPECT_FALSE(e.GetSubElement(u"t0"));
  EXPECT_FALSE(e.GetLastSubElement(u""));

  std::ostringstream console;
  std::ostream* previous = get_nxcout().SetTarget(&console);
  NXSmartPtr<XmlContent> item;
  EXPECT_EQ(e.GetContentByIndex(item, 0), 0);
  EXPECT_EQ(item, t0);
  EXPECT_EQ(e.GetContentByIndex(item, 4), 1);
  // Out of range: code 6, the output untouched, nothing written.
  for (int i : {5, -1}) EXPECT_EQ(e.GetContentByIndex(item, i), 6);
  EXPECT_EQ(item, last);
  EXPECT_EQ(console.str(), "");

  // A null item, shared from a null pointer, is reported on the console; a
  // copy of the element leaves it out.
  NXSmartPtr<XmlElement> none;
  e.AddSubElement(none);
  EXPECT_EQ(e.GetContentByIndex(item, 5), 6);
  EXPECT_FALSE(item);
  EXPECT_EQ(console.str(), "*** error from GetElementByIndex\n");
  get_nxcout().SetTarget(previous);
  EXPECT_EQ(XmlElement(e).GetContentCount(), 5);
}

TEST(XmlElement, SharingCopyingAndMergingAssignment) {
  XmlElement source(u"src");
  source.GetSTag().SetAttribute(NX_U16(u"q"), NX_U16(u"2"), 1);
  source.GetETag()(NX_U16(u"src"));
  NXSmartPtr<XmlElement> shared(new XmlElement(u"s"));
  source.AddSubElement(shared);
  const XmlElement copied(u"c");
  source.AddSubElement(copied);
  NXSmartPtr<XmlCharData> text(new XmlCharData(u"t"));
  source.AddCharData(text);
  EXPECT_EQ(shared->GetRefCount(), 2);
  EXPECT_NE(source.GetSubElement(1).get(), &copied);

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
  EXPECT_NE(target.GetSubElement(u"s"), shared);
  target.GetSubElement(u"s")->AddCharData(u"!");
  EXPECT_EQ(Utf8(source.GetImage(nullptr)), image);

  // The copy constructor starts empty: an exact copy sharing nothing.
  const XmlElement copy(source);
  EXPECT_EQ(Utf8(copy.GetImage(nullptr)), image);
  for (int i = 0; i < copy.GetContentCount(); ++i) EXPECT_NE(copy.GetContentAsCharData(i), text);

  // Self-assignment doubles the content rather than looping.
  XmlElement& alias = source;
  source = alias;
  EXPECT_EQ(source.GetContentCount(), 8);
  EXPECT_NE(source.GetSubElement(3), shared);
  EXPECT_EQ(shared->GetRefCount(), 2);
}

TEST(XmlElement, CleanAndSharedLifetimes) {
  ASSERT_EQ(CountedText::live, 0);
  {
    NXSmartPtr<XmlElement> root(new XmlElement(u"r"));
    root->GetSTag().SetAttribute(NX_U16(u"a"), NX_U16(u"1"), 1);
    NXSmartPtr<XmlElement> child;
    {
      XmlElement other(u"o");
      NXSmartPtr<XmlCharData> text(new CountedText(u"t"));
      root->AddCharData(text);
      other.AddCharData(text);
      child = root->AddSubElement(u"c");
      child->AddCharData(text);
      other.AddSubElement(child);
      EXPECT_EQ(text->GetRefCount(), 4);
      const XmlElement copy(other);
      EXPECT_EQ(CountedText::live, 1);
    }
    EXPECT_EQ(CountedText::live, 1);
    // Clean drops the items and the attributes, keeps the names.
    root->Clean();
    EXPECT_EQ(Utf8(root->GetImage(nullptr)), "<r/>");
    EXPECT_EQ(child->GetRefCount(), 1);
    EXPECT_EQ(CountedText::live, 1);
  }
  EXPECT_EQ(CountedText::live, 0);
}
