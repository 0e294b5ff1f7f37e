// Base64 attachments: a file written as the text of an element and decoded
// back however the parser cuts that text, and the failures of the text and
// of the files. The encoder writes through the stream's own text writes,
// whose cut across a series the roundtrip fuzzer checks.
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include <cstdlib>
#include <iterator>
#include <random>

#include "input/input_fixtures.h"
#include "nxmime.h"
#include "input/input_fixtures.h"

namespace {

class Mime64Test : public TempDirTest {
 protected:
  void WriteFile(const std::string& name, const std::string& bytes) {
    std::ofstream(Path(name), std::ios::binary) << bytes;
  }
  // <a>, the base64 of the file, </a>, in memory.
  std::string Attach(const std::string& name) {
    OXmlStream out(0);
    out << XmlSTag(u"a");
    out.Mime64_Encode_File(Wide(name));
    out << XmlETag(u"a");
    return out.Str();
  }
  // Decodes the text of the element at the head of in into the file "out";
  // the element's end tag must be left next. Returns what Capture reports.
  std::string Extract(IXmlStream& in) {
    return Capture([&] {
      XmlSTag start(u"a");
      in >> start;
      in.Mime64_Decode(Wide("out"));
      if (in.GetNextTokenType() != XT_ETAG) return std::string("end tag not next");
      XmlETag end(u"a");
      in >> end;
      return Read(Path("out"));
    });
  }
  std::string Extract(const std::string& xml, std::vector<long> sizes = {4096}) {
    IXmlStream in(new TrickleSource(xml, std::move(sizes)));
    return Extract(in);
  }
};

std::string RandomBytes(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::string bytes(n, '\0');
  for (char& c : bytes) c = static_cast<char>(rng());
  return bytes;
}

TEST_F(Mime64Test, RoundTripAtEveryCut) {
  // 64 characters a line; padding of one and two characters.
  WriteFile("man", "Man is");
  EXPECT_EQ(Attach("man"), "<a>TWFuIGlz\n</a>");
  WriteFile("m", "M");
  EXPECT_EQ(Attach("m"), "<a>TQ==\n</a>");
  for (std::size_t size : {0, 1, 2, 49, 100}) {
    const std::string bytes = RandomBytes(size, static_cast<unsigned>(size));
    WriteFile("in", bytes);
    const std::string xml = Attach("in");
    // The first read ends at each offset in turn, later ones every 1 to 4
    // bytes: the text reaches the decoder in pieces cut everywhere, the
    // padding and the line ends included.
    for (std::size_t cut = 1; cut < xml.size(); ++cut)
      ASSERT_EQ(Extract(xml, {static_cast<long>(cut), static_cast<long>(cut % 4 + 1)}), bytes)
          << size << " bytes, first read " << cut;
  }
}

TEST_F(Mime64Test, EmptyElementGivesAnEmptyFile) {
  for (const char* xml : {"<a></a>", "<a/>", "<a>\n \n</a>"}) {
    WriteFile("out", "old");
    EXPECT_EQ(Extract(xml), "") << xml;
    EXPECT_TRUE(Exists(Path("out")));
  }
}

// Each failure names the file, and no file is left behind: not for text
// that is not base64 (whatever the pieces), nor for an error of the input
// met after some bytes were written.
TEST_F(Mime64Test, FailuresLeaveNoFile) {
  const std::string out = Path("out");
  const std::string notBase64 = "!20012 The text decoded into " + out + " is not base64 (after ";
  const std::string removed = " bytes); the file was removed. @nxmime";
  const struct {
    const char* xml;
    std::vector<long> sizes;
    std::string expected;
  } cases[] = {
      {"<a>TWFu TWE</a>", {4096}, notBase64 + "3" + removed},           // a group cut short
      {"<a>TWFuTW!u</a>", {4096}, notBase64 + "3" + removed},           // not of the alphabet
      {"<a>TWFu-TWFu</a>", {4096}, notBase64 + "3" + removed},          // no end marks here
      {"<a>TWFu\xC3\xA9TWFu</a>", {4096}, notBase64 + "3" + removed},  // not ASCII
      {"<a>TQ==TWFu</a>", {4096}, notBase64 + "0" + removed},           // data after the padding
      {"<a>TQ==\nTWFu</a>", {1}, notBase64 + "1" + removed},            // the same, in other pieces
      {"<a>TWFuTWFu</b>", {4096}, "!0 *** Fatal error from XML_parse(): TAG_MISMATCH: mismatched tag at line 1, column 13, byte 13, near \"<a>TWFuTWFu</b>\" @xmlstream"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Extract(c.xml, c.sizes), c.expected) << c.xml;
    EXPECT_FALSE(Exists(out)) << c.xml;
  }
  // Padding cut by a line end and by the pieces is still padding.
  EXPECT_EQ(Extract("<a>TQ=\n=</a>", {1}), "M");

  // A file that cannot be read, a file that cannot be written.
  OXmlStream memory(0);
  EXPECT_EQ(Capture([&] { memory.Mime64_Encode_File(Wide("missing")); }),
            "!20010 Cannot read the file " + Path("missing") + ": No such file or directory. @nxmime");
  EXPECT_EQ(memory.Str(), "");
  IXmlStream in(new TrickleSource("TWFu", {4096}));
  EXPECT_EQ(Capture([&] { in.Mime64_Decode(Wide("no/such/folder")); }),
            "!20011 Cannot write the file " + Path("no/such/folder") + ": No such file or directory. @nxmime");
  // A write that fails half-way (the file size limit of the process).
  {
    std::string text = "<a>";
    for (int k = 0; k < 30000; ++k) text += "TWFu";
    IXmlStream big(new TrickleSource(text + "</a>", {4096}));
    XmlSTag start;
    big >> start;
    struct rlimit old;
    ::getrlimit(RLIMIT_FSIZE, &old);
    struct rlimit small = old;
    small.rlim_cur = 10000;
    void (*previous)(int) = std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &small);
    const std::string got = Capture([&] { big.Mime64_Decode(Wide("out")); });
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, previous);
    EXPECT_EQ(got, "!20011 Cannot write the file " + out + ": File too large. @nxmime");
    EXPECT_FALSE(Exists(out));
  }
  ::mkdir(Path("folder").c_str(), 0700);
  EXPECT_EQ(Capture([&] { in.Mime64_Decode(Wide("folder")); }),
            "!20011 Cannot write the file " + Path("folder") + ": Is a directory. @nxmime");
  EXPECT_TRUE(Exists(Path("folder")));
}

}  // namespace
