// Every UTF-8 overload: a round trip of non-ASCII text, and malformed UTF-8
// raising the stream's decoding error (27317) with nothing changed.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "xmlstream.h"

namespace {

const std::string kText = "caf\xC3\xA9 \xE8\x8C\xB6 \xF0\x9F\x98\x80 \xEF\xA0\x80 \x01";  // é, 茶, an emoji, U+F800, U+0001
const char16_t kUnits[] = u"caf\u00E9 \u8336 \U0001F600 \uF800 \u0001";

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

// The UTF-8 forms are thin: a round trip through each kind (name, value,
// number, time, text) and what is particular to the form.
TEST(Utf8Api, RoundTripsThroughEveryOverload) {
  const Obx_String units(kUnits);
  // Plain text, not the wire form: U+F800 and U+0001 stay themselves.
  XmlSTag tag(kText);
  EXPECT_EQ(tag.GetName(), units);
  EXPECT_EQ(tag.SetAttribute(kText, kText), 1);
  EXPECT_EQ(tag.SetAttribute(kText, "other", 0), 0);
  EXPECT_TRUE(tag.GetAttributeByName(units.GetData()) == units && tag.GetAttributeUtf8(kText) == kText);
  EXPECT_EQ(tag.SetLongAttr("n\xC3\xA9", -42), 1);
  EXPECT_EQ(tag.GetLongAttr(NX_U16(u"n\u00E9")), -42);
  AdDateTime when(2004, 5, 6, 7, 8, 9);
  EXPECT_EQ(tag.SetTimeAttr("t", when), 1);
  EXPECT_TRUE(tag.GetAttributeUtf8("t") == "2004-05-06 07:08:09" && tag.GetTimeAttr("t") == when);
  XmlCharData data(kText);
  data.AppendData(std::string_view("x\0y", 3));  // a zero unit is kept
  EXPECT_EQ(data.GetDataUtf8(), kText + std::string("x\0y", 3));
  XmlElement e(kText);
  NXSmartPtr<XmlElement> sub = e.AddSubElement(kText);
  EXPECT_TRUE(e.GetETag().GetName() == units && e.GetLastSubElement(kText) == sub);

  // The streams: a UTF-8 file name, a UTF-8 text, a list of UTF-8 names.
  const std::string name = ::testing::TempDir() + "utf8 n\xC3\xA4me.xml";
  {
    OXmlStream out(name, 0, 0);
    out << "<r a=\"" << kText << "\">" << std::string_view("t\0u", 3) << "</r>";
  }
  EXPECT_EQ(Slurp(name), "<r a=\"caf\xC3\xA9 \xE8\x8C\xB6 \xF0\x9F\x98\x80 \xEF\xA0\x80\xEF\xA0\x80 \xEF\xA0\x80\xEF\xA0\x81\">"
                         "t\xEF\xA0\x80\xEF\xA0\x80u</r>");
  IXmlStream in(std::vector<std::string>{name});
  std::string next;
  EXPECT_TRUE(in.GetNextTokenName(next) && next == "r");
  XmlSTag read;
  in >> read;
  EXPECT_EQ(read.GetAttributeUtf8("a"), kText);  // the escape undone on the way in
  std::remove(name.c_str());
  // The standard stream operator prints text, not a pointer.
  std::ostringstream os;
  os << e.GetName();
  EXPECT_EQ(os.str(), kText);
}

TEST(Utf8Api, MalformedUtf8RaisesTheStreamsDecodingError) {
  XmlElement e("e");
  e.AddCharData("keep");
  XmlSTag& tag = e.GetSTag();
  tag.SetAttribute("a", "1");
  XmlETag et("et");
  XmlCharData data("d");
  const std::string bad[] = {"a\xFF", "\xED\xA0\x80" /* a surrogate */, "\xC0\xAF" /* overlong */, "\xE8\x8C"};
  std::ostringstream sink;
  OXmlStream out(sink, 0);
  std::istringstream empty;
  IXmlStream in(empty);
  for (const std::string& b : bad) {
    const std::function<void()> calls[] = {
        [&] { XmlETag t(b); }, [&] { et(b); }, [&] { XmlSTag t(b); }, [&] { tag(b); },
        [&] { tag.SetAttribute(b, "v"); }, [&] { tag.SetAttribute("a", b); }, [&] { tag.SetLongAttr(b, 1); },
        [&] { tag.SetTimeAttr(b, AdDateTime()); }, [&] { tag.DoesAttributeExist(b); },
        [&] { tag.GetAttributeByName(b); }, [&] { tag.GetAttributeUtf8(b); }, [&] { tag.GetLongAttr(b); },
        [&] { tag.GetTimeAttr(b); }, [&] { tag.SetInlineText(b); }, [&] { XmlCharData d(b); },
        [&] { data.AppendData(b); }, [&] { XmlElement x(b); }, [&] { e.AddSubElement(b); }, [&] { e.AddCharData(b); },
        [&] { e.GetSubElement(b); }, [&] { e.GetLastSubElement(b); }, [&] { e.SubElements(b); },
        [&] { e.SetText(b); }, [&] { OXmlStream o(b, 0, 0); }, [&] { out << b; },
        [&] { IXmlStream i(std::vector<std::string>{"ok.xml", b}); },
        [&] { IXmlStreamMultiFileSource s(std::vector<std::string>{b}); },
    };
    int k = 0;
    for (const auto& call : calls) {
      try {
        call();
        ADD_FAILURE() << "nothing raised by call " << k;
      } catch (QmMsgException* x) {
        EXPECT_EQ(x->GetMessage(0).GetId(), 27317) << "call " << k;
        EXPECT_EQ(x->GetText().ToUtf8(),
                  "wide.cvtFromMBCS(AdCharset::getUTF8Charset(), data, numBytes, (throwOnDecodeError ? "
                  "AdCharset::Strict : AdCharset::Nonstrict))");
        x->Delete();
      }
      ++k;
    }
  }
  // Nothing was changed by a refused call, and nothing was written.
  EXPECT_EQ(tag.GetName(), Obx_String(u"e"));
  EXPECT_EQ(tag.GetAttributeUtf8("a"), "1");
  EXPECT_EQ(tag.GetAttributes().GetCount(), 1);
  EXPECT_EQ(et.GetNameUtf8(), "et");
  EXPECT_EQ(data.GetDataUtf8(), "d");
  EXPECT_EQ(e.GetContentCount(), 1);
  EXPECT_EQ(e.GetTextUtf8(), "keep");
  EXPECT_EQ(out.Str(), "");
}
