// Copying an input stream to an output stream, token by token.
#include <cstring>

#include "input/input_fixtures.h"
#include "input/input_fixtures.h"

namespace {

// Every token is written as its image. One that cannot be written, an error
// or one past the limit, is raised and stays at the head of the input.
TEST(CopyToOXmlStream, WritesEveryTokenAsItsImage) {
  struct Case {
    const char* input;
    long long limit;
    const char* output;
    const char* raised;
    const char* next;
  };
  const Case cases[] = {
      {"<a x=\"1&amp;2\">\n<b>t &lt; u</b></a>", 0, "<a x=\"1&amp;2\">\n<b>t &lt; u</b></a>", "", ""},
      {"<a>caf\xC3\xA9 &#x4E2D; &amp; more\ttext</a>", 0, "<a>caf\xC3\xA9 \xE4\xB8\xAD &amp; more&#x9;text</a>", "",
       ""},
      // The line feed after a tag is layout; one after the first is text.
      {"<a>\n<b/>\n\nx</a>", 0, "<a><b></b>&#xA;x</a>", "", ""},
      {"<a>\xEF\xA0\x80\xEF\xA0\x81</a>", 0, "<a>\xEF\xA0\x80\xEF\xA0\x81</a>", "", ""},
      {"<a><b>x</a>", 0, "<a><b>x", "TAG_MISMATCH", "! "},
      {"<a><b>long text</b></a>", 10, "<a><b>long", "!full", "T long text"},
  };
  for (const Case& c : cases) {
    IXmlStream in(new TrickleSource(c.input, {3}));  // text reaches expat in pieces
    OXmlStream out(c.limit);
    const std::string raised = Capture([&] {
      while (!in.End()) in >> out;
      in >> out;  // at the end: nothing
    });
    EXPECT_TRUE(*c.raised ? raised.find(c.raised) != std::string::npos : raised.empty()) << raised;
    EXPECT_EQ(out.Str(), c.output) << c.input;
    const std::vector<std::string> rest = AllTokens(in);
    EXPECT_EQ((rest.empty() ? std::string() : rest[0]).substr(0, std::strlen(c.next)), c.next) << c.input;
  }
}

}  // namespace
