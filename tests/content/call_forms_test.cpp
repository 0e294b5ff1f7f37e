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
// promise to accept; what matters is that overload resolution still picks
// one. The NX_U16 and char16_t forms are called throughout the other tests;
// these are the forms nothing else calls.
[[maybe_unused]] void ExistingCallForms(XmlElement& e, XmlSTag& t, XmlETag& et, OXmlStream& out) {
  const Obx_String obx(u"a");
  XmlETag e1, e4(obx);
  et(obx);
  XmlSTag s1, s4(obx);
  t(obx), t.SetAttribute(NX_U16(u"a"), obx, 1), t.SetAttribute(obx, NX_U16(u"v"), 1);
  t.SetAttribute(NX_U16(u"a"), 0, 1), t.SetAttribute(0, 0, 1), t.SetAttribute(NULL, NULL, 1);
  t.SetLongAttr(obx, 5, 0), t.SetTimeAttr(obx, AdDateTime(), 1);
  t.DoesAttributeExist(obx), t.DoesAttributeExist(0), t.DoesAttributeExist(NULL);
  t.GetAttributeByName(obx), t.GetAttributeByName(0), t.GetAttributeByName(NULL);
  t.GetLongAttr(obx), t.GetLongAttr(NULL), t.GetTimeAttr(obx), t.SetInlineText(obx), t.SetInlineText(u"x");
  XmlCharData c3(obx), c5(NX_U16(u"xy"), 1), c6(u"xy", 1L);
  c3.AppendData(obx, -1), c3.AppendData(NULL, 0);
  XmlElement x1, x4(obx);
  NXSmartPtr<XmlElement> sub = e.AddSubElement(obx);
  e.AddSubElement(*sub), e.AddSubElement(x1), e.AddCharData(obx), e.AddCharData(c3);
  e.GetSubElement(0), e.GetSubElement(1L), e.GetSubElement(std::size_t(1)), e.GetSubElement(obx);
  e.GetLastSubElement(obx), e.GetContentAsElement(0), e.GetContentAsCharData(0);
  OXmlStream o2(obx, 10, 1), o3(NULL, 0, 0), o4(0);
  out << obx << 5 << 'c' << et;
  IXmlStream i3(nullptr);
}

}  // namespace

TEST(CallForms, ExistingFormsStillCompile) { SUCCEED(); }
