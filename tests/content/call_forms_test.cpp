// The call forms applications write against the UTF-16 interfaces must keep
// compiling, and keep choosing the same functions, now that UTF-8 overloads
// stand beside them: a literal 0 or NULL, const unsigned short* (NX_U16),
// char16_t literals, Obx_String (through its conversion to a pointer).
#include <gtest/gtest.h>

#include <cstddef>
#include <sstream>

#include "xmlstream.h"

namespace {

// Compiled, never run: some of these pass null names the library does not
// promise to accept; what matters is that overload resolution still picks one.
[[maybe_unused]] void ExistingCallForms(XmlElement& e, XmlSTag& t, XmlETag& et, OXmlStream& out, IXmlStream& in) {
  const Obx_String obx(u"a");
  XmlETag e1, e2(NX_U16(u"a")), e3(u"a"), e4(obx);
  et(NX_U16(u"b"))(u"b")(obx);
  XmlSTag s1, s2(NX_U16(u"a")), s3(u"a"), s4(obx);
  t(NX_U16(u"b"))(u"c")(obx);
  t.SetAttribute(NX_U16(u"a"), obx, 1), t.SetAttribute(obx, NX_U16(u"v"), 1), t.SetAttribute(NX_U16(u"a"), 0, 1);
  t.SetAttribute(0, 0, 1), t.SetAttribute(NULL, NULL, 1);
  t.SetLongAttr(NX_U16(u"n"), 5L, 1), t.SetLongAttr(obx, 5, 0), t.SetTimeAttr(obx, AdDateTime(), 1);
  t.DoesAttributeExist(obx), t.DoesAttributeExist(0), t.DoesAttributeExist(NULL);
  t.GetAttributeByName(obx), t.GetAttributeByName(0), t.GetAttributeByName(NULL);
  t.GetLongAttr(obx), t.GetLongAttr(NULL), t.GetTimeAttr(NX_U16(u"t")), t.GetTimeAttr(obx);
  t.SetInlineText(obx), t.SetInlineText(NX_U16(u"x")), t.SetInlineText(u"x");
  XmlCharData c1(NX_U16(u"x")), c2(u"x"), c3(obx), c4(Obx_String(u"x")), c5(NX_U16(u"xy"), 1), c6(u"xy", 1L);
  c1.AppendData(NX_U16(u"y"), 1), c1.AppendData(obx, -1), c1.AppendData(NULL, 0);
  XmlElement x1, x2(NX_U16(u"a")), x3(u"a"), x4(obx);
  NXSmartPtr<XmlElement> sub = e.AddSubElement(NX_U16(u"s"));
  e.AddSubElement(u"s"), e.AddSubElement(obx), e.AddSubElement(sub), e.AddSubElement(*sub), e.AddSubElement(x1);
  NXSmartPtr<XmlCharData> text = e.AddCharData(NX_U16(u"t"));
  e.AddCharData(u"t"), e.AddCharData(obx), e.AddCharData(text), e.AddCharData(c1);
  e.GetSubElement(0), e.GetSubElement(1L), e.GetSubElement(std::size_t(1)), e.GetSubElement(NX_U16(u"s"));
  e.GetSubElement(u"s"), e.GetSubElement(obx), e.GetLastSubElement(u"s"), e.GetLastSubElement(obx);
  e.GetContentAsElement(0), e.GetContentAsCharData(0);
  OXmlStream o1(NX_U16(u"f"), 0, 0), o2(obx, 10, 1), o3(NULL, 0, 0), o4(0);
  std::ostringstream os;
  OXmlStream o5(os, 0);
  out << NX_U16(u"x") << u"x" << obx << 5L << 5 << 'c' << e << c1 << t << et;
  out.write("raw", 3), out.write(NX_U16(u"x"), 1);
  std::istringstream is("<a/>");
  CStringArray names;
  IXmlStream i1(is), i2(names), i3(nullptr), i4(new IXmlStreamStringSource(is), false, true);
  IXmlStreamMultiFileSource m1(names);
  Obx_String name;
  in.GetNextTokenName(name);
}

}  // namespace

TEST(CallForms, ExistingFormsStillCompile) { SUCCEED(); }
