// Copying an input stream to an output stream, token by token.
#include "input/input_fixtures.h"
#include "output/output_fixtures.h"

namespace {

// Copies every token; the text of what was raised, if anything.
std::string CopyAll(IXmlStream& in, OXmlStream& out) {
  try {
    while (!in.End()) in >> out;
  } catch (QmMsgException* e) {
    const std::string text = e->GetFullText().ToUtf8();
    e->Delete();
    return text;
  }
  return std::string();
}

TEST(CopyToOXmlStream, WritesEveryTokenAsItsImage) {
  struct Case {
    const char* input;
    const char* output;
  };
  const Case cases[] = {
      {"<a x=\"1&amp;2\">\n<b>t &lt; u</b></a>", "<a x=\"1&amp;2\">\n<b>t &lt; u</b></a>"},
      // Text reaches the output whole, however expat split it.
      {"<a>caf\xC3\xA9 &#x4E2D; &amp; more\ttext</a>", "<a>caf\xC3\xA9 \xE4\xB8\xAD &amp; more&#x9;text</a>"},
      // The line feed after a tag is layout; one after the first is text.
      {"<a>\n<b/>\n\nx</a>", "<a><b></b>&#xA;x</a>"},
      {"<a>\xEF\xA0\x80\xEF\xA0\x81</a>", "<a>\xEF\xA0\x80\xEF\xA0\x81</a>"},
  };
  for (const Case& c : cases) {
    std::istringstream source(c.input);
    IXmlStream in(source);
    OXmlStream out(0LL);
    EXPECT_EQ(CopyAll(in, out), "") << c.input;
    EXPECT_EQ(out.Str(), c.output) << c.input;
  }
}

TEST(CopyToOXmlStream, AtTheEndWritesNothing) {
  std::istringstream source("<a/>");
  IXmlStream in(source);
  OXmlStream out(0LL);
  in >> out >> out;
  in >> out;  // nothing left
  EXPECT_EQ(out.Str(), "<a></a>");
}

TEST(CopyToOXmlStream, AnErrorTokenIsRaisedNotWritten) {
  std::istringstream source("<a><b>x</a>");
  IXmlStream in(source);
  OXmlStream out(0LL);
  const std::string error = CopyAll(in, out);
  EXPECT_NE(error.find("TAG_MISMATCH"), std::string::npos) << error;
  EXPECT_EQ(out.Str(), "<a><b>x");
  // The single-token flag is off again: reading on raises the same error.
  EXPECT_EQ(AllTokens(in).back().substr(0, 2), "! ");
}

TEST(CopyToOXmlStream, ATokenThatDoesNotFitStaysWithTheInput) {
  std::istringstream source("<a><b>long text</b></a>");
  IXmlStream in(source);
  OXmlStream out(8LL);
  EXPECT_TRUE(RaisesXmlException([&] {
    while (!in.End()) in >> out;
  }));
  EXPECT_EQ(out.Str(), "<a><b>lo");
  const std::vector<std::string> rest = AllTokens(in);
  ASSERT_EQ(rest.size(), 3u);
  EXPECT_EQ(rest[0], "T long text");
}

}  // namespace
