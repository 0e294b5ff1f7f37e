// The ends of an input: nothing at all, what only the end reveals, inputs
// that cannot be read, tokens too large, and places past 2 GiB.
#include <dlfcn.h>
#include <expat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "input/input_fixtures.h"
#include "sanitizer.h"

// A caller's stream and a source; the tool's test reads an empty file and
// an empty standard input.
TEST(EndOfInput, EmptyInputIsTheEnd) {
  std::istringstream text("");
  IXmlStream fromString(text), fromSource(new TrickleSource("", {1}));
  for (IXmlStream* in : {&fromString, &fromSource}) {
    EXPECT_TRUE(in->End());
    EXPECT_EQ(in->GetNextToken(), nullptr);
    EXPECT_EQ(in->GetNextTokenType(), XT_EOF);
    EXPECT_FALSE(in->Finish());
    EXPECT_FALSE(in->Finish());
  }
}

// Each case at several read sizes: the end must be judged the same however
// the bytes arrive.
TEST(EndOfInput, FinishJudgesWhatOnlyTheEndReveals) {
  const std::string unclosedToken = "*** Fatal error from XML_parse(): UNCLOSED_TOKEN: unclosed token at line 1, column 8, byte 8, near \"\"";
  const struct {
    std::string xml;
    std::vector<std::string> tokens;
  } cases[] = {
      {"<a>x</a>", {"S a", "T x", "E a"}},
      {"<a>x</a>\n\n", {"S a", "T x", "E a"}},
      {"<a>x</a><!", {"S a", "T x", "E a", "! " + unclosedToken}},
      {"<a>x</a><!-- c", {"S a", "T x", "E a", "! " + unclosedToken}},
      {"<a>x</a>\xC3",
       {"S a", "T x", "E a",
        "! *** Fatal error from XML_parse(): PARTIAL_CHAR: partial character at line 1, column 8, byte 8, near \"\""}},
      // Text expat holds back until the end is delivered before the error.
      {"<a>x]]", {"S a", "T x", "T ]]", "! The input ends inside 1 open element(s) at line 1, column 6, byte 6."}},
      {"<a><b>", {"S a", "S b", "! The input ends inside 2 open element(s) at line 1, column 6, byte 6."}},
      {"\n\n", {}},
  };
  for (const auto& c : cases)
    for (long size : {1L, 3L, 4096L}) {
      IXmlStream in(new TrickleSource(c.xml, {size}));
      EXPECT_EQ(AllTokens(in, true), c.tokens) << c.xml << " read " << size << " at a time";
    }
  // Finish before the reader is done judges the rest of the input too,
  // which the reader then reads as before.
  IXmlStream early(new TrickleSource("<a><b/>tail</a>junk", {2}));
  XmlSTag a(NX_U16(u"a"));
  early >> a;
  EXPECT_EQ(AllTokens(early, true),
            (std::vector<std::string>{"S b", "E b", "T tail", "E a",
                                      "! *** Fatal error from XML_parse(): JUNK_AFTER_DOC_ELEMENT: junk after document "
                                      "element at line 1, column 15, byte 15, near \"\""}));
}

TEST(EndOfInput, EmbeddedClosingStepReportsACutRecord) {
  IXmlStream good(new TrickleSource("<a/>\n<b>t</b>\n"));
  good.SetEmbeddedElementMode(1);
  EXPECT_EQ(AllTokens(good, true), (std::vector<std::string>{"S a", "E a", "S b", "T t", "E b"}));
  IXmlStream cut(new TrickleSource("<a/><b"));
  cut.SetEmbeddedElementMode(1);
  EXPECT_EQ(AllTokens(cut, true).back(),
            "! *** Fatal error from XML_parse(): INVALID_TOKEN: not well-formed (invalid token) at line 1, column "
            "14, byte 14, near \"\"");
  IXmlStream open(new TrickleSource("<a/><b>"));
  open.SetEmbeddedElementMode(1);
  EXPECT_EQ(AllTokens(open, true).back(), "! The input ends inside 1 open element(s) at line 1, column 15, byte 15.");
  // Leaving embedded mode, the documented way out, raises the cut record too.
  IXmlStream closing(new TrickleSource("<a/><b"));
  closing.SetEmbeddedElementMode(1);
  AllTokens(closing);
  EXPECT_NE(Capture([&] { closing.SetEmbeddedElementMode(0); }).find("INVALID_TOKEN"), std::string::npos);
}

namespace {

// Counts the bytes handed out.
class CountingSource : public TrickleSource {
 public:
  CountingSource(std::string data, long* count) : TrickleSource(std::move(data), {4096}), m_count(count) {}
  long read(char* buf, long n) override {
    const long got = TrickleSource::read(buf, n);
    *m_count += got;
    return got;
  }

 private:
  long* m_count;
};

// Notes its own end.
class NotingSource : public TrickleSource {
 public:
  explicit NotingSource(bool* deleted) : TrickleSource("<a/>", {1}), m_deleted(deleted) {}
  ~NotingSource() override { *m_deleted = true; }

 private:
  bool* m_deleted;
};

bool g_failParserCreate = false;

}  // namespace

// Stands in for expat's own (the library's call finds the program's
// definition first), so that a test can make parser creation fail.
extern "C" __attribute__((visibility("default"))) XML_Parser XML_ParserCreate(const XML_Char* encoding) {
  if (g_failParserCreate) return nullptr;
  using Create = XML_Parser (*)(const XML_Char*);
  static const Create real = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "XML_ParserCreate"));
  return real(encoding);
}

TEST(EndOfInput, ParseFirstReadsOnlyTheFirstTokenAndConstructionCleansUp) {
  long count = 0;
  IXmlStream in(new CountingSource("<abcdefgh>" + std::string(100, 'x') + "</abcdefgh>", &count));
  EXPECT_TRUE(in.Parse_First());
  EXPECT_EQ(count, 10);
  EXPECT_EQ(AllTokens(in).front(), "S abcdefgh");

  // A parser that cannot be made: the stream frees what it took.
  bool deleted = false;
  g_failParserCreate = true;
  EXPECT_THROW(IXmlStream(new NotingSource(&deleted)), std::bad_alloc);
  g_failParserCreate = false;
  EXPECT_TRUE(deleted);
}

TEST(EndOfInput, UnreadableInputsNameTheFileAndTheReason) {
  const std::filesystem::path folder = std::filesystem::temp_directory_path();
  std::ifstream directory(folder, std::ios::binary);
  IXmlStream fromFolder(directory);
  EXPECT_EQ(Capture([&] { fromFolder.End(); }),
            "!27323 Cannot read the input (the caller's stream): Is a directory. @xmlstream");

  CStringArray names;
  names.Add(Obx_String::FromUtf8(folder.c_str()));
  IXmlStream joined(names);
  EXPECT_EQ(Capture([&] { joined.End(); }),
            "!27323 Cannot read the input " + folder.string() + ": Is a directory. @xmlstream");

  CStringArray missing;
  missing.Add(Obx_String::FromUtf8("/nonexistent/nxxml.xml"));
  IXmlStream none(missing);
  EXPECT_EQ(Capture([&] { none.End(); }),
            "!27309 Cannot open the input file /nonexistent/nxxml.xml: No such file or directory. @xmlstream");
}

TEST(EndOfInput, TokensPastTheSizeLimitAreRefusedAtTheirPlace) {
  const std::string refused = "! A tag or text is longer than the limit of 100 bytes at ";
  const struct {
    std::string xml;
    std::string last;
  } cases[] = {
      {"<r><" + std::string(100, 'n') + "/></r>", refused + "line 1, column 3, byte 3."},
      {"<r><a v='" + std::string(92, 'v') + "'/></r>", refused + "line 1, column 3, byte 3."},
      {"<r>" + std::string(101, 't') + "</r>", refused + "line 1, column 3, byte 3."},
      // Exactly at the limit is accepted.
      {"<r>" + std::string(100, 't') + "</r>", "E r"},
      {"<r><a v='" + std::string(91, 'v') + "'/></r>", "E r"},
  };
  for (const auto& c : cases)
    for (long size : {1L, 7L, 4096L}) {
      IXmlStream in(new TrickleSource(c.xml, {size}));
      in.SetMaxTokenSize(100);
      EXPECT_EQ(AllTokens(in, true).back(), c.last) << c.xml.substr(0, 12) << " read " << size << " at a time";
    }
  // A tag that never ends is refused once expat holds more of it than the
  // limit, long before the input ends.
  long count = 0;
  IXmlStream endless(new CountingSource("<r><a v='" + std::string(1 << 20, 'v'), &count));
  endless.SetMaxTokenSize(10000);
  EXPECT_EQ(AllTokens(endless, true).back().substr(0, refused.size() - 20), refused.substr(0, refused.size() - 20));
  EXPECT_LT(count, 100000);
}

TEST(EndOfInput, PlacesPast2GiBDoNotWrap) {
  XmlSourceLocation loc;
  loc.SetPosition(3, 3000000000LL, 5000000000LL);
  std::istringstream nothing("");
  IXmlStreamStringSource plain(nothing);
  EXPECT_EQ(Utf8(plain.RenderSourceLocation(loc)), "line 3, column 3000000000, byte 5000000000");
  long long line = 0, column = 0, byte = 0;
  loc.Position(line, column, byte);
  EXPECT_EQ(byte, 5000000000LL);
  int l = 0, c = 0, b = 0, f = 0;
  bool hasFile = true;
  loc.Values(l, c, b, hasFile, f);
  EXPECT_FALSE(hasFile);
}

namespace {

// Text of the given size inside one element, made as it is read, then a
// mismatched end tag.
class LongTextSource : public IXmlStreamSource {
 public:
  explicit LongTextSource(long long textBytes) : m_left(textBytes) {}
  bool eof() override { return m_stage == 3; }
  long read(char* buf, long n) override {
    if (m_stage == 0) {
      m_stage = 1;
      std::memcpy(buf, "<r>", 3);
      return 3;
    }
    if (m_stage == 1) {
      const long k = m_left < n ? static_cast<long>(m_left) : n;
      std::memset(buf, ' ', static_cast<std::size_t>(k));
      if (k > 0) buf[k - 1] = '\n';
      m_left -= k;
      if (m_left == 0) m_stage = 2;
      return k;
    }
    m_stage = 3;
    std::memcpy(buf, "</x>", 4);
    return 4;
  }

 private:
  long long m_left;
  int m_stage = 0;
};

}  // namespace

TEST(EndOfInput, AnErrorPast2GiBIsReportedWhole) {
  if (NXXML_ASAN) GTEST_SKIP() << "2 GiB of input takes minutes under the address sanitizer";
  const long long text = (2LL << 30) + 4096 * 3;
  IXmlStream in(new LongTextSource(text));
  std::string error;
  try {
    while (in.SkipToken()) {
    }
  } catch (QmMsgException* e) {
    error = Utf8(e->GetFullText());
    e->Delete();
  }
  EXPECT_NE(error.find("byte " + std::to_string(text + 3 + 2)), std::string::npos) << error;
}
