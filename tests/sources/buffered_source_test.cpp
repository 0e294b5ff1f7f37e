// The buffered source: push-back in front of the wrapped source, its growth,
// bytes and lines taken, and its four assertions with their lines.
#include "sources/sources_fixtures.h"

namespace {

class Buffered : public IXmlBufferedStreamSource {
 public:
  using IXmlBufferedStreamSource::IXmlBufferedStreamSource;
  int Size() const { return m_BufSize; }
};

// Condition text and line of what f raised.
std::string RaisedAt(const std::function<void()>& f) {
  QmMsgException* e = Raised(f);
  if (!e) return "(nothing raised)";
  const std::string text = Utf8(e->GetText()) + " @" + std::to_string(e->GetLine());
  e->Delete();
  return text;
}

}  // namespace

TEST(BufferedSource, PushBackComesFirstAndGrowsToWhatIsNeeded) {
  Buffered in(new TrickleSource("0123456789", {4096}));
  char three[] = "abc";
  in.PushBack(three, 3);
  EXPECT_EQ(in.Size(), 500);
  char buf[8];
  // More asked than pushed back: both in one call.
  ASSERT_EQ(in.read(buf, 5), 5);
  EXPECT_EQ(std::string(buf, 5), "abc01");
  std::string big(498, 'x');
  in.PushBack(&big[0], 498);
  EXPECT_EQ(in.Size(), 500);
  in.PushBack(three, 3);
  EXPECT_EQ(in.Size(), 501);
  EXPECT_EQ(Drain(in, 7), "abc" + big + "23456789");
}

TEST(BufferedSource, BytesAndLines) {
  Buffered in(new TrickleSource("abc\r\ndef", {3}));
  EXPECT_EQ(in.NextByte(), 'a');
  in.PushBackByte();
  char c = 0;
  ASSERT_EQ(in.read(&c, 1), 1);
  EXPECT_EQ(c, 'a');
  in.PushBackByte();
  EXPECT_EQ(Utf8(in.NextLine()), "abc\r");
  EXPECT_EQ(Utf8(in.NextLine()), "def");
  EXPECT_TRUE(in.eof());
  EXPECT_EQ(in.NextByte(), 0);
  EXPECT_TRUE(in.eof());

  Buffered high(new TrickleSource("ab\xC3\xA9\n", {4096}));
  EXPECT_EQ(high.NextByte(), 'a');
  EXPECT_EQ(high.NextByte(), 'b');
  EXPECT_EQ(high.NextByte(), static_cast<char>(0xC3));
}

TEST(BufferedSource, AssertionsCarryTheirLines) {
  EXPECT_EQ(RaisedAt([] { Buffered in(nullptr); }), "source != __null @3758");
  EXPECT_EQ(RaisedAt([] {
              Buffered in(new TrickleSource("x", {1}));
              in.PushBackByte();
            }),
            "m_BufPtr > 0 @3897");
  EXPECT_EQ(RaisedAt([] {
              Buffered in(new TrickleSource("xy", {1}));
              char c;
              in.read(&c, 1);  // forwarded: nothing in the buffer to un-read
              in.PushBackByte();
            }),
            "m_BufPtr > 0 @3897");
  EXPECT_EQ(RaisedAt([] {
              Buffered in(new TrickleSource("a\xE9", {4096}));
              in.NextLine();
            }),
            "((ch >= 0) && (ch <= 127)) @3918");
  // The source given as itself is refused before anything is owned.
  alignas(Buffered) unsigned char storage[sizeof(Buffered)];
  IXmlStreamSource* self = reinterpret_cast<IXmlStreamSource*>(storage);
  EXPECT_EQ(RaisedAt([&] { new (storage) Buffered(self); }), "source != this @3759");
}

TEST(BufferedSource, ParserAndLocationsAreTheWrappedSources) {
  CStringArray names;
  IXmlStreamMultiFileSource* files = new IXmlStreamMultiFileSource(names);
  Buffered in(files);
  int parser = 0;
  in.SetXmlParser(&parser);
  EXPECT_EQ(files->GetXmlParser(), &parser);
  EXPECT_EQ(in.GetXmlParser(), &parser);
}
