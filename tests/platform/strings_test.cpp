#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "nxcollections.h"
#include "nxstrings.h"

namespace {
typedef std::basic_string<unsigned short> Units;
}  // namespace

TEST(ObxString, Utf8BufferAndHelpers) {
  const Obx_String s = Obx_String::FromUtf8("a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80");
  EXPECT_EQ(s.GetLength(), 5);  // a, é, 中, and a surrogate pair
  EXPECT_EQ(s.ToUtf8(), "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80");
  // The edges of the program substitute rather than fail.
  EXPECT_EQ(Obx_String::FromUtf8("a\xFF" "b").ToUtf8(), "a\xEF\xBF\xBD" "b");
  const unsigned short lone[] = {0xD800, 'x', 0};
  EXPECT_EQ(Obx_String(lone).ToUtf8(), "\xEF\xBF\xBDx");
  EXPECT_EQ(Obx_String(static_cast<const unsigned short*>(nullptr)).GetLength(), 0);

  Obx_String b(u"ab");
  unsigned short* buf = b.GetBuffer(5);
  buf[2] = 'c';
  buf[3] = 0;
  b.ReleaseBuffer();  // up to the first zero unit
  EXPECT_EQ(b, u"abc");
  b.GetBuffer(10)[4] = 'z';
  b.ReleaseBuffer(3);
  EXPECT_EQ(b, u"abc");

  unsigned short dst[6] = {9, 9, 9, 9, 9, 9};
  _tcsncpy(dst, NX_U16(u"ab\0c"), 5);  // stops at the zero unit, zero-fills the rest
  EXPECT_EQ(Units(dst, dst + 6), (Units{'a', 'b', 0, 0, 0, 9}));
  EXPECT_TRUE(_tcslen(nullptr) == 0 && AdIsEmpty(nullptr) && !AdIsEmpty(NX_U16(u" ")));
  EXPECT_TRUE(AdIsEqualNoCase(NX_U16(u"\u00c9T\u00c9"), NX_U16(u"\u00e9t\u00e9")));
  EXPECT_FALSE(AdIsEqualNoCase(NX_U16(u"a"), NX_U16(u"ab")));
  EXPECT_EQ(AdStr(LONG_MIN), Obx_String::FromUtf8(std::to_string(LONG_MIN).c_str()));
  const struct {
    const char16_t* text;
    long want;
  } numbers[] = {{u"", 0},      {u"  17", 17},        {u"+8x", 8}, {u"x8", 0}, {u"12\u00e934", 12},
                 {u"99999999999999999999", LONG_MAX}, {u"-99999999999999999999", LONG_MIN}};
  for (const auto& n : numbers) EXPECT_EQ(AdStrToLong(NX_U16(n.text)), n.want) << Obx_String(n.text).ToUtf8();
  EXPECT_EQ(AdStrToLong(nullptr), 0);
}

TEST(ObxString, FormatDirectives) {
  const struct {
    Obx_String got;
    const char16_t* want;
  } cases[] = {
      {Obx_String::Format("%d|%5d|%-4d|%05d", 42, 7, 3, -12), u"42|    7|3   |-0012"},
      {Obx_String::Format("%ld %u %x %X %08x", -1L, 4000000000u, 255, 255u, 0xabcu), u"-1 4000000000 ff FF 00000abc"},
      {Obx_String::Format("%s and %S", u"wide", "narrow \xC3\xA9"), u"wide and narrow \u00e9"},
      {Obx_String::Format("[%4s][%-4s][%.2s] 100%% %c %.3f", "ab", "ab", "abcdef", 'x', 2.5),
       u"[  ab][ab  ][ab] 100% x 2.500"},
      {Obx_String::Format("%s@%d", Obx_String(u"name")), u"name@"},  // a missing argument renders nothing
      {Obx_String::Format("%d", 1, 2, 3), u"1"},                     // surplus arguments are ignored
      {Obx_String::Format("%q %d", 5), u"%q 5"},                     // unknown directives stay as text
  };
  for (const auto& c : cases) EXPECT_EQ(c.got, c.want) << c.got.ToUtf8();
}

TEST(CMapStringToString, OrderLookupAndLargeMapsAcrossCopies) {
  CMapStringToString small;
  for (const char16_t* kv : {u"z1", u"a2", u"m3", u"a4"})  // a replaced value keeps its place
    small.SetAt(Obx_String(NX_U16(kv), 1), Obx_String(kv + 1));
  std::string order;
  for (POSITION pos = small.GetStartPosition(); pos;) {
    Obx_String key, value;
    small.GetNextAssoc(pos, key, value);
    order += key.ToUtf8() + value.ToUtf8();
  }
  EXPECT_EQ(order, "z1a4m3");
  Obx_String out(u"untouched");
  EXPECT_FALSE(small.Lookup(NX_U16(u"A"), out));  // keys match exactly, case included
  EXPECT_EQ(out, u"untouched");
  EXPECT_TRUE(small.Lookup(NX_U16(u"m"), out) && out == u"3");
  // Past a handful of names the map switches to an index; copies and
  // replacements must agree with the linear form.
  CMapStringToString map;
  for (int k = 0; k < 200; ++k) map.SetAt(Obx_String::Format("k%d", k), Obx_String::Format("v%d", k));
  for (int k = 0; k < 200; k += 2) map.SetAt(Obx_String::Format("k%d", k), Obx_String::Format("w%d", k));
  CMapStringToString copy(map);
  CMapStringToString assigned;
  assigned.SetAt(Obx_String(u"stale"), Obx_String(u"x"));
  assigned = copy;
  for (const CMapStringToString* m : {&map, &copy, &assigned}) {
    ASSERT_EQ(m->GetCount(), 200);
    EXPECT_EQ(m->PLookup(NX_U16(u"stale")), nullptr);
    for (int k = 0; k < 200; ++k) {
      const Obx_String* v = m->PLookup(Obx_String::Format("k%d", k));
      ASSERT_NE(v, nullptr);
      EXPECT_EQ(*v, Obx_String::Format(k % 2 ? "v%d" : "w%d", k));
      EXPECT_EQ(m->KeyAt(k), Obx_String::Format("k%d", k));
    }
  }
}
