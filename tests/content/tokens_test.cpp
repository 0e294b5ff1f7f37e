#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xmlcontent.h"

namespace {

// Counts live instances so that tests see exactly when a token dies.
struct CountedTag : XmlETag {
  static int live;
  CountedTag() : XmlETag(NX_U16(u"t")) { ++live; }
  ~CountedTag() override { --live; }
};
int CountedTag::live = 0;

// Captures the reference trace while diagnostic 36 is on at a high level.
class RefTrace {
 public:
  RefTrace() {
    AdDiagnostic::SetDiagnosticIdLevel(36, 1000);
    AdDiagnostic::SetSink([this](const Obx_String& source, const Obx_String& text) {
      lines.push_back(source.ToUtf8() + " " + text.ToUtf8());
    });
  }
  ~RefTrace() {
    AdDiagnostic::SetSink(nullptr);
    AdDiagnostic::SetDiagnosticIdLevel(36, 0);
  }
  std::vector<std::string> lines;
};

std::string AddressOf(const void* p) { return Obx_String::Format("%08x", p).ToUtf8(); }

}  // namespace

TEST(NXSmartPtr, CountsAndDeletesOnLastRelease) {
  {
    CountedTag* raw = new CountedTag;
    EXPECT_EQ(raw->GetRefCount(), 0);
    NXSmartPtr<XmlETag> a(raw);
    EXPECT_EQ(raw->GetRefCount(), 1);
    {
      NXSmartPtr<XmlETag> b(a);
      NXSmartPtr<XmlToken> c(b);  // converting copy shares the same count
      EXPECT_EQ(raw->GetRefCount(), 3);
      NXSmartPtr<XmlETag> moved(std::move(b));
      EXPECT_EQ(raw->GetRefCount(), 3);
      EXPECT_FALSE(b);
    }
    EXPECT_EQ(raw->GetRefCount(), 1);
    a = raw;  // the pointer it already holds: nothing changes
    EXPECT_EQ(raw->GetRefCount(), 1);
    EXPECT_EQ(CountedTag::live, 1);
  }
  EXPECT_EQ(CountedTag::live, 0);

  // Assigning A (holding X) from B (holding Y): Y gains, X loses and dies.
  CountedTag* x = new CountedTag;
  CountedTag* y = new CountedTag;
  NXSmartPtr<XmlETag> a(x), b(y);
  a = b;
  EXPECT_EQ(CountedTag::live, 1);
  EXPECT_EQ(y->GetRefCount(), 2);
  a.reset();
  EXPECT_FALSE(a);
  EXPECT_EQ(y->GetRefCount(), 1);

  // Copies of a token do not copy its count.
  XmlETag original(NX_U16(u"n"));
  NXSmartPtr<XmlETag> holder(new XmlETag(original));
  EXPECT_EQ(holder->GetRefCount(), 1);
  EXPECT_EQ(original.GetRefCount(), 0);
}

TEST(NXSmartPtr, TraceReportsLevelSignAndCountInOrder) {
  XmlETag* raw = new XmlETag(NX_U16(u"e"));
  const std::string at = "@0x" + AddressOf(raw);
  RefTrace trace;
  {
    NXSmartPtr<XmlETag> a(raw);
    NXSmartPtr<XmlETag> b(a);  // count 1 -> level 2, "+", 2
    a = raw;                   // same pointer: no trace
    b.reset();                 // level 2, "-", 2
  }
  ASSERT_EQ(trace.lines.size(), 4u);
  EXPECT_EQ(trace.lines[0], "Refs XmlETag*" + at + " +1");
  EXPECT_EQ(trace.lines[1], "Refs XmlETag*" + at + " +2");
  EXPECT_EQ(trace.lines[2], "Refs XmlETag*" + at + " -2");
  EXPECT_EQ(trace.lines[3], "Refs XmlETag*" + at + " -1");

  // Assignment takes the new reference before dropping the old one.
  trace.lines.clear();
  XmlETag* x = new XmlETag(NX_U16(u"x"));
  XmlETag* y = new XmlETag(NX_U16(u"y"));
  NXSmartPtr<XmlETag> px(x);
  NXSmartPtr<XmlETag> py(y);
  trace.lines.clear();
  px = py;
  ASSERT_EQ(trace.lines.size(), 2u);
  EXPECT_EQ(trace.lines[0], "Refs XmlETag*@0x" + AddressOf(y) + " +2");
  EXPECT_EQ(trace.lines[1], "Refs XmlETag*@0x" + AddressOf(x) + " -1");

  // The level is the count: a trace set to level 1 shows only the first
  // reference.
  trace.lines.clear();
  AdDiagnostic::SetDiagnosticIdLevel(36, 1);
  NXSmartPtr<XmlETag> again(py);
  EXPECT_TRUE(trace.lines.empty());
}

TEST(XmlToken, TypesAndDescriptions) {
  XmlSTag s(NX_U16(u"a"));
  XmlETag e(NX_U16(u"a"));
  EXPECT_EQ(s.GetType(), XT_STAG);  // a start tag is also an end tag by class, not by type
  EXPECT_NE(dynamic_cast<XmlETag*>(&s), nullptr);
  EXPECT_EQ(e.GetType(), XT_ETAG);
  EXPECT_FALSE(s.m_location.HasBeenSet());
  EXPECT_EQ(Obx_String(XmlTokenTypeDescriptions[XT_CDSECTION]), u"an XML CD secion");
  EXPECT_EQ(Obx_String(XmlTokenTypeDescriptions[XT_ILLEGAL]), u"an illegal token");
  EXPECT_EQ(Obx_String(XmlTokenTypeDescriptions[XT_EOF]), u"end of file");
}

TEST(XmlSourceLocation, SetUnsetAndFileIndex) {
  XmlSourceLocation loc;
  int line = -1, column = -1, byte = -1, file = -1;
  bool hasFile = true;
  loc.Values(line, column, byte, hasFile, file);  // readable even when unset
  EXPECT_FALSE(loc.HasBeenSet());
  EXPECT_EQ(line, 0);
  EXPECT_FALSE(hasFile);

  loc.Set(3, 4, 50, 2);
  EXPECT_TRUE(loc.Index(file));
  EXPECT_EQ(file, 2);
  loc.Set(5, 6, 70);
  EXPECT_FALSE(loc.Index(file));
  loc.Unset();
  loc.Values(line, column, byte, hasFile, file);
  EXPECT_FALSE(loc.HasBeenSet());
  EXPECT_EQ(line, 5);  // unset clears the flag only
  EXPECT_EQ(byte, 70);
}

TEST(XmlSTag, SetAttributeOverwriteAndTypedValues) {
  XmlSTag tag(NX_U16(u"record"));
  EXPECT_EQ(tag.SetAttribute(NX_U16(u"a"), NX_U16(u"1"), 0), 1);
  EXPECT_EQ(tag.SetAttribute(NX_U16(u"a"), NX_U16(u"2"), 0), 0);
  EXPECT_EQ(tag.GetAttributeByName(NX_U16(u"a")), u"1");
  EXPECT_EQ(tag.SetAttribute(NX_U16(u"a"), NX_U16(u"2"), 1), 1);
  EXPECT_EQ(tag.GetAttributeByName(NX_U16(u"a")), u"2");
  EXPECT_EQ(tag.SetAttribute(NX_U16(u"A"), NX_U16(u"3"), 0), 1);  // names are case-sensitive
  EXPECT_EQ(tag.GetAttributeCount(), 2);

  const unsigned short withZero[] = {'x', 0, 'y'};
  tag.SetAttribute(NX_U16(u"z"), Obx_String(withZero, 3), 1);  // stored as zero-terminated text
  EXPECT_EQ(tag.GetAttributeByName(NX_U16(u"z")), u"x");

  tag.SetLongAttr(NX_U16(u"n"), -42, 1);
  EXPECT_EQ(tag.GetAttributeByName(NX_U16(u"n")), u"-42");
  EXPECT_EQ(tag.GetLongAttr(NX_U16(u"n")), -42);
  EXPECT_EQ(tag.GetLongAttr(NX_U16(u"missing")), 0);
  EXPECT_EQ(tag.DoesAttributeExist(NX_U16(u"missing")), 0);
  EXPECT_EQ(tag.GetAttributeByName(NX_U16(u"missing")), u"");

  const AdDateTime when(2004, 5, 6, 7, 8, 9);
  tag.SetTimeAttr(NX_U16(u"t"), when, 1);
  EXPECT_EQ(tag.GetAttributeByName(NX_U16(u"t")), u"2004-05-06 07:08:09");
  EXPECT_EQ(tag.GetTimeAttr(NX_U16(u"t")), when);
  EXPECT_EQ(tag.GetTimeAttr(NX_U16(u"missing")), AdDateTime());

  CStringArray names;
  names.Add(Obx_String(u"stale"));
  tag.GetAttributeNames(names);
  ASSERT_EQ(names.GetSize(), 5);
  EXPECT_EQ(names[0], u"a");
  EXPECT_EQ(names[4], u"t");
  tag.Clean();
  tag.GetAttributeNames(names);
  EXPECT_EQ(names.GetSize(), 0);
  EXPECT_EQ(tag.GetName(), u"record");
}

TEST(XmlSTag, AssignmentMergesAndNeverCopiesTheNamedFlag) {
  XmlSTag source(NX_U16(u"src"));
  source(NX_U16(u"src"));
  ASSERT_EQ(source.IsNamed(), 1);
  source.SetAttribute(NX_U16(u"b"), NX_U16(u"2"), 1);
  source.SetAttribute(NX_U16(u"a"), NX_U16(u"new"), 1);
  source.SetConverted();
  source.SetInlineText(Obx_String(u"inline"));
  source.m_location.Set(1, 2, 3);

  XmlSTag target(NX_U16(u"dst"));
  target(NX_U16(u"dst"));
  target.SetAttribute(NX_U16(u"a"), NX_U16(u"old"), 1);
  target.SetAttribute(NX_U16(u"c"), NX_U16(u"3"), 1);
  target = source;
  EXPECT_EQ(target.GetName(), u"src");
  EXPECT_EQ(target.IsNamed(), 0);
  EXPECT_EQ(target.IsConverted(), 1);
  EXPECT_EQ(target.GetAttributeCount(), 3);  // {a, c} merged with {b, a}
  EXPECT_EQ(target.GetAttributeByName(NX_U16(u"a")), u"new");
  EXPECT_EQ(target.GetAttributeByName(NX_U16(u"c")), u"3");
  EXPECT_EQ(target.GetInlineText(), u"");
  EXPECT_FALSE(target.m_location.HasBeenSet());

  XmlSTag exact(NX_U16(u"x"));
  exact.SetAttribute(NX_U16(u"c"), NX_U16(u"3"), 1);
  exact.Clean();
  exact = source;
  EXPECT_EQ(exact.GetAttributeCount(), 2);

  const XmlSTag copy(source);
  EXPECT_EQ(copy.IsNamed(), 0);
  EXPECT_EQ(copy.GetAttributeCount(), 2);
  EXPECT_EQ(copy.GetInlineText(), u"");

  XmlSTag& self = source;
  source = self;
  EXPECT_EQ(source.IsNamed(), 0);
  EXPECT_EQ(source.GetAttributeCount(), 2);

  XmlETag e(NX_U16(u"e"));
  EXPECT_EQ(e.IsNamed(), 0);
  EXPECT_EQ(&e(NX_U16(u"f")), &e);
  EXPECT_EQ(e.IsNamed(), 1);
  e(NX_U16(u""));
  EXPECT_EQ(e.IsNamed(), 0);
  EXPECT_EQ(e.GetName(), u"");
}
