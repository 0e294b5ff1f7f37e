// Character data and elements: construction, growth, the two index
// numberings, name lookups, sharing against copying, the merging assignment,
// Clean, and ownership of shared items.
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

// Counts live instances so that tests see exactly when shared items die.
struct CountedText : XmlCharData {
  static int live;
  explicit CountedText(const char16_t* text) : XmlCharData(text) { ++live; }
  ~CountedText() override { --live; }
};
int CountedText::live = 0;

// Stands for the error token: character data of another dynamic class.
struct ErrorLikeText : XmlCharData {
  explicit ErrorLikeText(const char16_t* text) : XmlCharData(text) {}
  XmlToken_t GetType() const override { return XT_ILLEGAL; }
};

// Content that is neither character data nor an element.
struct OtherContent : XmlContent {
  XmlToken_t GetType() const override { return XT_COMMENT; }
  Obx_String GetImage(XmlConverter*) const override { return Obx_String(u"?"); }
};

// Puts items into the content list that the public add operations cannot.
struct ElementProbe : XmlElement {
  explicit ElementProbe(const char16_t* name) : XmlElement(name) {}
  void AddRaw(XmlContent* item) { m_content.emplace_back(item); }
};

// Captures the UTF-16 console stream for the life of the object.
class ConsoleCapture {
 public:
  ConsoleCapture() : m_previous(get_nxcout().SetTarget(&m_text)) {}
  ~ConsoleCapture() { get_nxcout().SetTarget(m_previous); }
  std::string Text() const { return m_text.str(); }

 private:
  std::ostringstream m_text;
  std::ostream* m_previous;
};

}  // namespace

TEST(XmlCharData, ConstructionAndCopy) {
  const XmlCharData whole(u"abc");
  const XmlCharData part(u"abcdef", 2);
  const XmlCharData fromString(Obx_String(u"xyz"));
  EXPECT_EQ(Utf8(whole.GetData()), "abc");
  EXPECT_EQ(Utf8(part.GetData()), "ab");
  EXPECT_EQ(Utf8(fromString.GetData()), "xyz");
  EXPECT_EQ(whole.GetType(), XT_CHARDATA);
  EXPECT_EQ(whole.GetRefCount(), 0);
  EXPECT_FALSE(whole.GetLocation().HasBeenSet());
  EXPECT_EQ(CharDataProbe(u"abc").Capacity(), 0);

  // A copy is a new, unowned token at no place in the input whose growth
  // figure starts at its length; a copy of a subclass is plain.
  NXSmartPtr<XmlCharData> held(new ErrorLikeText(u"hello"));
  held->m_location.Set(3, 4, 5);
  const CharDataProbe copy(*held);
  EXPECT_EQ(copy.GetRefCount(), 0);
  EXPECT_FALSE(copy.GetLocation().HasBeenSet());
  EXPECT_EQ(copy.Capacity(), 5);
  EXPECT_EQ(Utf8(copy.GetData()), "hello");
  EXPECT_EQ(held->GetRefCount(), 1);

  XmlElement parent(u"p");
  parent.AddCharData(*held);
  const NXSmartPtr<XmlCharData> stored = parent.GetContentAsCharData(0);
  ASSERT_TRUE(stored);
  EXPECT_NE(stored.get(), held.get());
  EXPECT_EQ(typeid(*stored), typeid(XmlCharData));
  EXPECT_EQ(stored->GetType(), XT_CHARDATA);
}

TEST(XmlCharData, AppendDataGrowsByATenth) {
  CharDataProbe data(u"");
  const struct {
    const char16_t* piece;
    long length;
    const char* text;
    int capacity;
  } steps[] = {
      {u"0123456789", 10, "0123456789", 11},   // the first append always grows
      {u"a", 1, "0123456789a", 11},            // fits: no growth
      {u"bcd", -1, "0123456789abcd", 15},      // up to the zero; 14 * 1.1
      {u"efgh", 1, "0123456789abcde", 15},     // only length units are taken
      {u"", 0, "0123456789abcde", 15},
  };
  for (const auto& step : steps) {
    data.AppendData(NX_U16(step.piece), step.length);
    EXPECT_EQ(Utf8(data.GetData()), step.text) << step.text;
    EXPECT_EQ(data.Capacity(), step.capacity) << step.text;
  }

  // A length beyond a zero unit in the data is filled with zeros.
  CharDataProbe zeros(u"x");
  zeros.AppendData(NX_U16(u"ab\0cd"), 4);
  ASSERT_EQ(zeros.GetData().GetLength(), 5);
  EXPECT_EQ(zeros.GetData()[2], u'b');
  EXPECT_EQ(zeros.GetData()[3], 0);
  EXPECT_EQ(zeros.GetData()[4], 0);
}

TEST(XmlElement, ConstructionAndTags) {
  const XmlElement unnamed;
  EXPECT_TRUE(unnamed.GetSTag().GetName().IsEmpty());
  EXPECT_TRUE(unnamed.GetETag().GetName().IsEmpty());
  EXPECT_EQ(unnamed.GetContentCount(), 0);
  EXPECT_EQ(unnamed.GetType(), XT_ILLEGAL);

  XmlElement named(Obx_String(u"rec"));
  EXPECT_EQ(Utf8(named.GetSTag().GetName()), "rec");
  EXPECT_EQ(Utf8(named.GetETag().GetName()), "rec");
  EXPECT_EQ(named.GetSTag().IsNamed(), 0);
  EXPECT_EQ(named.GetETag().IsNamed(), 0);

  // The tags are the element's own: attributes set through them stay.
  named.GetSTag().SetAttribute(NX_U16(u"id"), NX_U16(u"7"), 1);
  const XmlElement& view = named;
  EXPECT_EQ(Utf8(view.GetSTag().GetAttributeByName(NX_U16(u"id"))), "7");
}

TEST(XmlElement, IndexNumberings) {
  // [text, A, text, B]: content indices 0..3, sub-element indices 0..1.
  XmlElement e(u"e");
  const NXSmartPtr<XmlCharData> t0 = e.AddCharData(u"t0");
  const NXSmartPtr<XmlElement> a = e.AddSubElement(u"A");
  e.AddCharData(u"t2");
  const NXSmartPtr<XmlElement> b = e.AddSubElement(u"B");

  EXPECT_EQ(e.GetContentCount(), 4);
  EXPECT_EQ(e.GetNumberofSubElements(), 2);
  EXPECT_EQ(e.GetSubElement(0), a);
  EXPECT_EQ(e.GetSubElement(1), b);
  EXPECT_FALSE(e.GetSubElement(2));
  EXPECT_FALSE(e.GetSubElement(-1));

  EXPECT_EQ(e.GetContentAsElement(1), a);
  EXPECT_EQ(e.GetContentAsElement(3), b);
  EXPECT_EQ(e.GetContentAsCharData(0), t0);
  for (int i : {0, 2, 4, -1}) EXPECT_FALSE(e.GetContentAsElement(i)) << i;
  for (int i : {1, 3, 4, -1}) EXPECT_FALSE(e.GetContentAsCharData(i)) << i;

  ConsoleCapture console;
  NXSmartPtr<XmlContent> item;
  EXPECT_EQ(e.GetContentByIndex(item, 0), 0);
  EXPECT_EQ(item, t0);
  EXPECT_EQ(e.GetContentByIndex(item, 3), 1);
  EXPECT_EQ(item, b);
  // Out of range: code 6, the output untouched, nothing written.
  for (int i : {4, -1, 1000}) {
    EXPECT_EQ(e.GetContentByIndex(item, i), 6) << i;
    EXPECT_EQ(item, b) << i;
  }
  EXPECT_EQ(console.Text(), "");
}

TEST(XmlElement, SlotsOfNoKnownKind) {
  // A null item (shared from a null pointer) and an item of another class
  // are reported on the console with code 6; readers skip them and copies
  // leave them out.
  ElementProbe e(u"e");
  NXSmartPtr<XmlElement> none;
  e.AddSubElement(none);
  e.AddRaw(new OtherContent);
  NXSmartPtr<XmlCharData> noText;
  e.AddCharData(noText);
  EXPECT_EQ(e.GetContentCount(), 3);
  EXPECT_EQ(e.GetNumberofSubElements(), 0);
  EXPECT_FALSE(e.GetContentAsElement(0));
  EXPECT_FALSE(e.GetContentAsCharData(1));

  ConsoleCapture console;
  NXSmartPtr<XmlContent> item(new XmlCharData(u"old"));
  EXPECT_EQ(e.GetContentByIndex(item, 0), 6);
  EXPECT_FALSE(item);
  EXPECT_EQ(e.GetContentByIndex(item, 1), 6);
  EXPECT_TRUE(item);
  EXPECT_EQ(console.Text(), "*** error from GetElementByIndex\n*** error from GetElementByIndex\n");

  const XmlElement copy(e);
  EXPECT_EQ(copy.GetContentCount(), 0);
}

TEST(XmlElement, NameLookupsAreCaseSensitive) {
  XmlElement e(u"e");
  const NXSmartPtr<XmlElement> first = e.AddSubElement(u"a");
  const NXSmartPtr<XmlElement> upper = e.AddSubElement(u"A");
  e.AddCharData(u"a");
  const NXSmartPtr<XmlElement> last = e.AddSubElement(Obx_String(u"a"));

  EXPECT_EQ(e.GetSubElement(u"a"), first);
  EXPECT_EQ(e.GetLastSubElement(u"a"), last);
  EXPECT_EQ(e.GetSubElement(u"A"), upper);
  EXPECT_EQ(e.GetLastSubElement(u"A"), upper);
  EXPECT_FALSE(e.GetSubElement(u"b"));
  EXPECT_FALSE(e.GetLastSubElement(u"aa"));
  EXPECT_FALSE(e.GetSubElement(u""));
  EXPECT_FALSE(XmlElement(u"x").GetLastSubElement(u"x"));
}

TEST(XmlElement, SharingAgainstCopying) {
  XmlElement parent(u"p");
  NXSmartPtr<XmlElement> shared(new XmlElement(u"s"));
  const XmlElement copied(u"c");
  parent.AddSubElement(shared);
  parent.AddSubElement(copied);
  EXPECT_EQ(shared->GetRefCount(), 2);
  EXPECT_EQ(parent.GetSubElement(0), shared);
  EXPECT_NE(parent.GetSubElement(1).get(), &copied);

  // The caller keeps filling the shared and the returned items in place.
  shared->AddCharData(u"in s");
  const NXSmartPtr<XmlElement> made = parent.AddSubElement(u"m");
  EXPECT_EQ(made->GetRefCount(), 2);
  made->GetSTag().SetAttribute(NX_U16(u"k"), NX_U16(u"v"), 1);
  NXSmartPtr<XmlCharData> text(new XmlCharData(u"t"));
  parent.AddCharData(text);
  text->AppendData(NX_U16(u"+"), 1);
  XmlCharData copiedText(u"u");
  parent.AddCharData(copiedText);
  copiedText.AppendData(NX_U16(u"-"), 1);

  EXPECT_EQ(Utf8(parent.GetImage(nullptr)), "<p><s>in s</s><c/><m k=\"v\"/>\nt+u</p>");
}

TEST(XmlElement, AssignmentMergesAndAppendsDeepCopies) {
  XmlElement source(u"src");
  source.GetSTag().SetAttribute(NX_U16(u"q"), NX_U16(u"2"), 1);
  source.GetETag()(NX_U16(u"src"));
  source.AddCharData(u"y");
  const NXSmartPtr<XmlElement> child = source.AddSubElement(u"c");
  child->AddCharData(u"z");

  XmlElement target(u"dst");
  target.GetSTag().SetAttribute(NX_U16(u"p"), NX_U16(u"1"), 1);
  target.GetSTag()(NX_U16(u"dst"));
  target.AddCharData(u"x");
  target = source;

  EXPECT_EQ(Utf8(target.GetSTag().GetName()), "src");
  EXPECT_EQ(target.GetSTag().IsNamed(), 0);
  EXPECT_EQ(target.GetETag().IsNamed(), 1);
  EXPECT_EQ(Utf8(target.GetImage(nullptr)), "<src p=\"1\" q=\"2\">\nxy<c>z</c></src>");

  // Nothing is shared: changing the copies leaves the source alone.
  const NXSmartPtr<XmlElement> copiedChild = target.GetSubElement(u"c");
  EXPECT_NE(copiedChild, child);
  EXPECT_NE(target.GetContentAsCharData(1), source.GetContentAsCharData(0));
  copiedChild->AddCharData(u"!");
  EXPECT_EQ(Utf8(source.GetImage(nullptr)), "<src q=\"2\">\ny<c>z</c></src>");

  // Self-assignment doubles the content rather than looping.
  XmlElement& alias = source;
  source = alias;
  EXPECT_EQ(Utf8(source.GetImage(nullptr)), "<src q=\"2\">\ny<c>z</c>y<c>z</c></src>");
  EXPECT_NE(source.GetSubElement(0), source.GetSubElement(1));

  // The copy constructor starts empty, so it gives an exact deep copy.
  source.m_location.Set(1, 2, 3);
  const XmlElement copy(source);
  EXPECT_EQ(Utf8(copy.GetImage(nullptr)), Utf8(source.GetImage(nullptr)));
  EXPECT_EQ(copy.GetRefCount(), 0);
  EXPECT_FALSE(copy.GetLocation().HasBeenSet());
  for (int i = 0; i < copy.GetContentCount(); ++i) {
    NXSmartPtr<XmlContent> mine, theirs;
    copy.GetContentByIndex(mine, i);
    source.GetContentByIndex(theirs, i);
    EXPECT_NE(mine, theirs) << i;
  }
}

TEST(XmlElement, CleanKeepsOnlyTheNames) {
  XmlElement e(u"e");
  e.GetSTag().SetAttribute(NX_U16(u"a"), NX_U16(u"1"), 1);
  NXSmartPtr<XmlElement> kept = e.AddSubElement(u"k");
  e.AddCharData(u"t");
  e.Clean();
  EXPECT_EQ(e.GetContentCount(), 0);
  EXPECT_EQ(e.GetSTag().GetAttributeCount(), 0);
  EXPECT_EQ(Utf8(e.GetSTag().GetName()), "e");
  EXPECT_EQ(Utf8(e.GetETag().GetName()), "e");
  EXPECT_EQ(kept->GetRefCount(), 1);
  EXPECT_EQ(Utf8(e.GetImage(nullptr)), "<e/>");

  // Clean then assign is the exact copy the merging assignment is not.
  XmlElement other(u"o");
  other.GetSTag().SetAttribute(NX_U16(u"b"), NX_U16(u"2"), 1);
  e.GetSTag().SetAttribute(NX_U16(u"a"), NX_U16(u"1"), 1);
  e.Clean();
  e = other;
  EXPECT_EQ(Utf8(e.GetImage(nullptr)), "<o b=\"2\"/>\n");
}

TEST(XmlElement, NumberAndTimeData) {
  XmlElement e(u"e");
  EXPECT_EQ(Utf8(e.AddLongData(-42)->GetData()), "-42");
  EXPECT_EQ(Utf8(e.AddLongData(0)->GetData()), "0");
  EXPECT_EQ(Utf8(e.AddTimeData(AdDateTime(2004, 5, 6, 7, 8, 9))->GetData()), "2004-05-06 07:08:09");
  EXPECT_EQ(e.GetContentCount(), 3);
}

TEST(XmlElement, SharedItemsLiveAsLongAsAHolder) {
  ASSERT_EQ(CountedText::live, 0);
  {
    NXSmartPtr<XmlElement> root(new XmlElement(u"r"));
    {
      XmlElement other(u"o");
      NXSmartPtr<XmlCharData> text(new CountedText(u"t"));
      root->AddCharData(text);
      other.AddCharData(text);
      NXSmartPtr<XmlElement> child = root->AddSubElement(u"c");
      child->AddCharData(text);
      other.AddSubElement(child);
      EXPECT_EQ(text->GetRefCount(), 4);
      // A copy made of a tree with shared items owns copies, not the items.
      const XmlElement copy(other);
      EXPECT_EQ(text->GetRefCount(), 4);
      EXPECT_EQ(CountedText::live, 1);
    }
    EXPECT_EQ(CountedText::live, 1);
    NXSmartPtr<XmlElement> child = root->GetSubElement(0);
    root->Clean();
    EXPECT_EQ(CountedText::live, 1);
    EXPECT_EQ(child->GetRefCount(), 1);
  }
  EXPECT_EQ(CountedText::live, 0);
}
