#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "xmlcontent.h"

namespace {

// Collects the reference trace of diagnostic 36 at the given level.
struct RefTrace {
  std::vector<std::string> lines;
  explicit RefTrace(int level) {
    AdDiagnostic::SetDiagnosticIdLevel(36, level);
    AdDiagnostic::SetSink([this](const Obx_String& source, const Obx_String& text) {
      lines.push_back(source.ToUtf8() + " " + text.ToUtf8());
    });
  }
  ~RefTrace() {
    AdDiagnostic::SetSink(nullptr);
    AdDiagnostic::SetDiagnosticIdLevel(36, 0);
  }
};

std::string Ref(const char* type, const void* p, const char* change) {
  return std::string("Refs ") + type + "*@0x" + Obx_String::Format("%08x", p).ToUtf8() + " " + change;
}

}  // namespace

// The trace carries every count change, so it checks the counting too; the
// sanitizer build checks that the last release deletes.
TEST(NXSmartPtr, CountsAndTraceInOrder) {
  XmlETag* x = new XmlETag(u"x");
  XmlETag* y = new XmlETag(u"y");
  {
    RefTrace trace(1000);
    {
      NXSmartPtr<XmlETag> a(x);
      NXSmartPtr<XmlToken> b(a);  // a converting copy shares the count
      NXSmartPtr<XmlETag> moved(std::move(a));
      EXPECT_FALSE(a);
      moved = x;  // the pointer it already holds: nothing
      EXPECT_EQ(XmlETag(*x).GetRefCount(), 0);  // a copy does not copy the count
      NXSmartPtr<XmlETag> py(y);
      moved = py;  // takes the new reference before dropping the old one
    }
    EXPECT_EQ(trace.lines, (std::vector<std::string>{
                               Ref("XmlETag", x, "+1"), Ref("XmlToken", x, "+2"), Ref("XmlETag", y, "+1"),
                               Ref("XmlETag", y, "+2"), Ref("XmlETag", x, "-2"), Ref("XmlETag", y, "-2"),
                               Ref("XmlETag", y, "-1"), Ref("XmlToken", x, "-1")}));
  }
  // The level is the count: level 1 shows only the first reference.
  XmlETag* z = new XmlETag(u"z");
  RefTrace trace(1);
  {
    NXSmartPtr<XmlETag> a(z), b(a);
  }
  EXPECT_EQ(trace.lines, (std::vector<std::string>{Ref("XmlETag", z, "+1"), Ref("XmlETag", z, "-1")}));
}

// Replacing keeps a name's place, names are case-sensitive, a value is
// stored up to its first zero; assignment merges and never copies the
// named flag, the inline text or the place.
TEST(XmlSTag, AttributesAndAssignment) {
  XmlSTag tag(u"record");
  EXPECT_EQ(tag.SetAttribute(NX_U16(u"a"), NX_U16(u"1"), 0), 1);
  EXPECT_EQ(tag.SetAttribute(NX_U16(u"a"), NX_U16(u"2"), 0), 0);
  EXPECT_EQ(tag.GetAttributeByName(NX_U16(u"a")), u"1");
  EXPECT_EQ(tag.SetAttribute(NX_U16(u"A"), NX_U16(u"3"), 0), 1);
  const unsigned short withZero[] = {'x', 0, 'y'};
  tag.SetAttribute(NX_U16(u"z"), Obx_String(withZero, 3), 1);
  EXPECT_EQ(tag.GetAttributeByName(NX_U16(u"z")), u"x");
  const unsigned short* missing = NX_U16(u"missing");  // numbers and times are the UTF-8 test's
  EXPECT_TRUE(tag.GetLongAttr(missing) == 0 && tag.GetTimeAttr(missing) == AdDateTime());
  CStringArray names;
  names.Add(Obx_String(u"stale"));
  tag.GetAttributeNames(names);
  ASSERT_EQ(names.GetSize(), 3);
  EXPECT_TRUE(names[0] == u"a" && names[2] == u"z");

  XmlSTag source(u"src");
  source(u"src").SetAttribute(NX_U16(u"b"), NX_U16(u"2"), 1);
  source.SetAttribute(NX_U16(u"a"), NX_U16(u"new"), 1);
  source.SetConverted();
  source.SetInlineText(Obx_String(u"inline"));
  source.m_location.Set(1, 2, 3);
  XmlSTag target(u"dst");
  target(u"dst").SetAttribute(NX_U16(u"a"), NX_U16(u"old"), 1);
  target.SetAttribute(NX_U16(u"c"), NX_U16(u"3"), 1);
  target = source;
  EXPECT_TRUE(target.GetName() == u"src" && target.IsNamed() == 0 && target.IsConverted() == 1);
  EXPECT_EQ(target.GetAttributeCount(), 3);  // {a, c} merged with {b, a}
  EXPECT_EQ(target.GetAttributeByName(NX_U16(u"a")), u"new");
  EXPECT_TRUE(target.GetInlineText().IsEmpty() && !target.m_location.HasBeenSet());
  const XmlSTag copy(source);
  EXPECT_TRUE(copy.IsNamed() == 0 && copy.GetAttributeCount() == 2 && copy.GetInlineText().IsEmpty());
  XmlSTag& self = source;
  source = self;
  EXPECT_TRUE(source.IsNamed() == 0 && source.GetAttributeCount() == 2);
  XmlETag e(u"e");
  EXPECT_EQ(e(u"f").IsNamed(), 1);
  EXPECT_EQ(e(u"").IsNamed(), 0);
}
