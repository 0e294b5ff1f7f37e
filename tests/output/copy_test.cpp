// Copying an input stream to an output stream, token by token.
#include <cstring>

#include "input/input_fixtures.h"
#include "output/output_fixtures.h"

namespace {

TEST(CopyToOXmlStream, WritesEveryTokenAsItsImage) {
  const std::pair<const char*, const char*> cases[] = {
      {"<a x=\"1&amp;2\">\n<b>t &lt; u</b></a>", "<a x=\"1&amp;2\">\n<b>t &lt; u</b></a>"},
      // Text reaches the output whole, however expat split it.
      {"<a>caf\xC3\xA9 &#x4E2D; &amp; more\ttext</a>", "<a>caf\xC3\xA9 \xE4\xB8\xAD &amp; more&#x9;text</a>"},
      // The line feed after a tag is layout; one after the first is text.
      {"<a>\n<b/>\n\nx</a>", "<a><b></b>&#xA;x</a>"},
      {"<a>\xEF\xA0\x80\xEF\xA0\x81</a>", "<a>\xEF\xA0\x80\xEF\xA0\x81</a>"},
  };
  for (const auto& [input, output] : cases) {
    std::istringstream source(input);
    IXmlStream in(source);
    OXmlStream out(0LL);
    EXPECT_EQ(Caught([&] {
                while (!in.End()) in >> out;
                in >> out;  // at the end: nothing
              }),
              "")
        << input;
    EXPECT_EQ(out.Str(), output) << input;
  }
}

// A token that cannot be written, an error or one past the limit, is raised
// and stays at the head of the input.
TEST(CopyToOXmlStream, ATokenNotWrittenStaysWithTheInput) {
  struct Case {
    const char* input;
    long long limit;
    const char* raised;
    const char* written;
    const char* next;
  };
  const Case cases[] = {
      {"<a><b>x</a>", 0, "TAG_MISMATCH", "<a><b>x", "! "},
      {"<a><b>long text</b></a>", 8, "!full", "<a><b>lo", "T long text"},
  };
  for (const Case& c : cases) {
    std::istringstream source(c.input);
    IXmlStream in(source);
    OXmlStream out(c.limit);
    const std::string raised = Caught([&] {
      while (!in.End()) in >> out;
    });
    EXPECT_NE(raised.find(c.raised), std::string::npos) << raised;
    EXPECT_EQ(out.Str(), c.written);
    const std::vector<std::string> rest = AllTokens(in);
    ASSERT_FALSE(rest.empty()) << c.input;
    EXPECT_EQ(rest[0].substr(0, std::strlen(c.next)), c.next);
  }
}

}  // namespace
