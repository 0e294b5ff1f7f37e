#include <cstdio>
#include <fstream>

#include "input_fixtures.h"

namespace {

std::unique_ptr<IXmlStream> Over(const std::string& xml) {
  return std::unique_ptr<IXmlStream>(new IXmlStream(new TrickleSource(xml)));
}

// Rewrites every attribute value read into upper case ASCII, counting calls.
struct UpperConverter : XmlConverter {
  int memoryImages = 0;
  int monitored = 0;
  void AttrMemoryImage(const unsigned short*, Obx_String& value) override {
    ++memoryImages;
    for (unsigned short& u : value.Std())
      if (u >= 'a' && u <= 'z') u = static_cast<unsigned short>(u - 32);
  }
  void TokenMonitor(IXmlStream&, XmlToken&) override { ++monitored; }
};

}  // namespace

TEST(Extraction, TypedOperatorsElementsAndSkipping) {
  auto in = Over("<a x=\"1\" y=\"2\">\n<b>t&lt;u</b><c><d/>t</c><rec id=\"1\"><f>a&amp;b</f><g/>tail</rec></a>");
  XmlSTag tag(NX_U16(u"stale"));
  tag.SetAttribute(NX_U16(u"old"), NX_U16(u"gone"), 1);
  Obx_String name;
  EXPECT_TRUE(in->GetNextTokenType(tag) == XT_STAG && in->GetNextTokenName(name) && name == u"a");
  *in >> tag;
  EXPECT_EQ(tag.GetAttributeCount(), 2);  // Clean() first: nothing stale survives
  EXPECT_TRUE(tag.IsConverted() == 1 && tag.IsNamed() == 0);
  tag(NX_U16(u"b"));
  *in >> tag;  // named and matching
  XmlCharData text(NX_U16(u""));
  *in >> text;
  EXPECT_EQ(text.GetData(), u"t<u");
  XmlETag end(NX_U16(u""));
  *in >> end(NX_U16(u"b"));
  in->SkipElement();  // a whole element
  XmlElement rec;
  *in >> rec;
  EXPECT_EQ(rec.GetSubElement(NX_U16(u"f"))->GetContentAsCharData(0)->GetData(), u"a&b");
  EXPECT_EQ(Utf8(rec.GetImage(nullptr)), "<rec id=\"1\">\n<f>a&amp;b</f><g/>tail</rec>");
  EXPECT_TRUE(in->GetNextTokenName(name) && name == u"a");
  *in >> end;
  EXPECT_EQ(in->GetNextTokenType(), XT_EOF);
  EXPECT_FALSE(in->GetNextTokenName(name));
  tag.SetAttribute(NX_U16(u"k"), NX_U16(u"v"), 1);
  *in >> tag;  // at the end: cleaned, nothing raised
  EXPECT_EQ(tag.GetAttributeCount(), 0);
  EXPECT_EQ(in->GetCharDataUnaccumulated(text), 0);

  // SkipElement on a text skips the text alone; an element cut off by the
  // end of the input comes back as far as read.
  auto skip = Over("<r>t<c/></r>");
  *skip >> tag;
  skip->SkipElement();
  EXPECT_TRUE(skip->GetNextTokenName(name) && name == u"c");
  auto cut = Over("<a><b>x</b><c>");
  *cut >> rec;
  EXPECT_EQ(rec.GetNumberofSubElements(), 2);
  // Embedded mode: any number of top-level elements.
  auto many = Over("<x a=\"1\"/>\n<y>t</y>\n<x/>");
  many->SetEmbeddedElementMode(1);
  std::string names;
  while (many->GetNextTokenType() == XT_STAG) {
    XmlElement e;
    *many >> e;
    names += Utf8(e.GetSTag().GetName());
  }
  many->SetEmbeddedElementMode(0);
  EXPECT_EQ(names, "xyx");
  EXPECT_TRUE(many->End());
}

TEST(Extraction, MismatchesRaiseWithIdsAndParameters) {
  XmlSTag any(NX_U16(u"")), named(NX_U16(u""));
  XmlETag end(NX_U16(u"")), namedEnd(NX_U16(u""));
  XmlElement element;
  struct Case {
    const char* xml;
    std::function<void(IXmlStream&)> read;
    long id;
    const char* text;
  } cases[] = {
      {"<a>t</a>", [&](IXmlStream& in) { in >> any >> any; }, 0, "Expected an XML start tag but found character data."},
      {"<a/>", [&](IXmlStream& in) { in >> end; }, 0, "Expected an XML end tag but found an XML start tag."},
      // The caller's tag names the place.
      {"<b/>", [&](IXmlStream& in) { named(NX_U16(u"a")).m_location.Set(9, 8, 7), in >> named; }, 27305,
       "Expected the start tag <a> but found <b> at line 9, column 8, byte 7."},
      {"<a><b/></a>", [&](IXmlStream& in) { in >> any >> any >> namedEnd(NX_U16(u"x")); }, 27306,
       "Expected the end tag </x> but found </b> at line 0, column 0, byte 0."},
      // The parser pairs tags itself; only tokens put back can mismatch.
      {"",
       [&](IXmlStream& in) {
         in.PushXmlToken(new XmlETag(u"b")), in.PushXmlToken(new XmlSTag(u"a"));
         in >> element;
       },
       27307, "The end tag </b> does not match the start tag <a> at line 0, column 0, byte 0."},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.text);
    auto in = Over(c.xml);
    QmMsgException* e = Raised([&] { c.read(*in); });
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->GetMessage(0).GetId(), c.id);
    EXPECT_EQ(Utf8(e->GetMessage(0).FullMsg()), c.text);
    e->Delete();
    // A raised check leaves the offending token at the head.
    if (c.id == 0) {
      EXPECT_EQ(in->GetNextTokenType(), c.xml[3] == 't' ? XT_CHARDATA : XT_STAG);
    }
  }
}

TEST(Extraction, ConverterRunsOnceEvenForAPushedBackTag) {
  auto in = Over("<a k=\"low\"><b/></a>");
  UpperConverter* converter = new UpperConverter;
  in->SetConverter(converter);
  XmlSTag tag(NX_U16(u""));
  *in >> tag;
  EXPECT_EQ(tag.GetAttributeByName(NX_U16(u"k")), u"LOW");
  EXPECT_EQ(converter->memoryImages, 1);
  EXPECT_EQ(converter->monitored, 1);
  // Put back ahead of <b> already queued. A converted tag stays the
  // caller's: reading it takes it off the queue without freeing it.
  XmlSTag* pushedTag = new XmlSTag(tag);
  in->PushXmlToken(pushedTag);
  XmlSTag again(NX_U16(u""));
  *in >> again;
  delete pushedTag;
  EXPECT_EQ(again.GetAttributeByName(NX_U16(u"k")), u"LOW");
  EXPECT_EQ(converter->memoryImages, 1);  // not converted twice
  XmlToken* next = in->GetNextToken();
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(Describe(*next), "S b");
  delete next;
  in->SetConverter(nullptr);  // a default one takes its place
  ASSERT_NE(in->GetConverter(), nullptr);
  in->SetConverter(in->GetConverter());  // the one in place again is kept, not freed
  in->PushXmlToken(new XmlCharData(NX_U16(u"pushed")));
  XmlToken* pushed = in->GetNextToken();
  EXPECT_EQ(Describe(*pushed), "T pushed");
  delete pushed;
}

class MultiFileSource : public TempDirTest {
 protected:
  void Write(const std::string& name, const std::string& content) {
    std::ofstream(Path(name), std::ios::binary) << content;
    paths.push_back(Path(name));
  }
  CStringArray Names(const std::vector<std::string>& files) {
    CStringArray names;
    for (const std::string& f : files) names.Add(Obx_String::FromUtf8(f.c_str()));
    return names;
  }
  std::vector<std::string> paths;
};

TEST_F(MultiFileSource, ReadsFilesInOrderAsOneInput) {
  // Exact multiples of the read size, an empty file between them.
  Write("m1.xml", "<r>" + std::string(4093, 'a'));
  Write("m2.xml", "");
  Write("m3.xml", std::string(4096, 'b'));
  Write("m4.xml", "\n<x/></r>");
  CStringArray names = Names(paths);
  IXmlStreamMultiFileSource source(names);
  char buf[4096];
  std::vector<long> reads;
  while (!source.eof()) reads.push_back(source.read(buf, 4096));
  // No read mixes two files, and an empty file does not end the input.
  EXPECT_EQ(reads, (std::vector<long>{4096, 4096, 9}));

  CStringArray again = Names(paths);
  IXmlStream in(again);
  const std::vector<std::string> tokens = AllTokens(in);
  ASSERT_EQ(tokens.size(), 5u) << tokens.back();
  EXPECT_EQ(tokens[0], "S r");
  EXPECT_EQ(tokens[1], "T " + std::string(4093, 'a') + std::string(4096, 'b') + "\n");
}

TEST_F(MultiFileSource, LocationsNameTheFileAndMissingFilesRaise) {
  Write("l1.xml", "<r>\n<a/>\n");
  Write("l2.xml", "<b/>\n");
  Write("l3.xml", "<c v=\"" + std::string(10000, 'v') + "\"/></r>");  // larger than a read
  CStringArray names = Names(paths);
  IXmlStream in(names);
  std::string places;
  while (XmlToken* raw = in.GetNextToken()) {
    NXSmartPtr<XmlToken> t(raw);
    int line, column, byte, file;
    bool hasFile;
    t->GetLocation().Values(line, column, byte, hasFile, file);
    places += std::to_string(file) + ":" + std::to_string(line) + (hasFile ? " " : "? ");
  }
  EXPECT_EQ(places, "0:1 0:2 0:2 1:3 1:3 2:4 2:4 2:4 ");  // lines counted from the first file
  IXmlStream located(new IXmlStreamMultiFileSource(names));
  XmlSTag root(NX_U16(u""));
  located >> root;
  EXPECT_EQ(Utf8(located.RenderSourceLocation(root.m_location)), "line 1, column 0, byte 0 of file " + paths[0]);

  CStringArray missing = Names({paths[0], Path("no-such-file.xml"), paths[2]});
  IXmlStreamMultiFileSource broken(missing);
  char buf[4096];
  EXPECT_GT(broken.read(buf, 4096), 0);
  QmMsgException* e = Raised([&] { broken.read(buf, 4096); });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->GetMessage(0).GetId(), 27309);
  EXPECT_EQ(Utf8(e->GetMessage(0).GetParam("%_ARG1_%")), Path("no-such-file.xml"));
  e->Delete();
  EXPECT_GT(broken.read(buf, 4096), 0);  // the name was passed: reading goes on with the next file

  CStringArray none;
  IXmlStreamMultiFileSource emptyList(none);
  EXPECT_TRUE(emptyList.eof() && emptyList.read(buf, 4096) == 0);
  XmlSourceLocation unset;
  EXPECT_EQ(Caught([&] { emptyList.RenderSourceLocation(unset); }), "IndexIsValid");
}

TEST(Extraction, DiagnosticsReportExtractedTagsAndAttributes) {
  std::vector<std::string> lines;
  AdDiagnostic::SetSink([&](const Obx_String& source, const Obx_String& text) {
    lines.push_back(Utf8(source) + ": " + Utf8(text));
  });
  auto in = Over("<a k=\"v\"><b x=\"1\" y=\"2\"/><c z=\"3\"/></a>");
  XmlSTag tag(NX_U16(u""));
  for (int level : {2, 3}) {  // tags only, then attributes too
    AdDiagnostic::SetDiagnosticIdLevel(47, level);
    *in >> tag;
  }
  AdDiagnostic::SetDiagnosticIdLevel(47, 0);
  in->SkipToken();
  *in >> tag;  // off: nothing more
  AdDiagnostic::SetSink(nullptr);
  const std::string head = "Xmlstream: operator >> (IXmlStream&, XmlSTag&): extracted ";
  EXPECT_EQ(lines, (std::vector<std::string>{head + "start tag named: a", head + "start tag named: b",
                                             head + "attr (name, value): (x,1)", head + "attr (name, value): (y,2)"}));
}

TEST(Extraction, UnaccumulatedTextMayComeInPieces) {
  // Without accumulation a long text may come in pieces; the readers that
  // accumulate always see it whole.
  const std::string xml = "<a>" + std::string(10000, 't') + "</a>";
  IXmlStream pieces(new TrickleSource(xml)), whole(new TrickleSource(xml));
  XmlSTag a(NX_U16(u""));
  XmlCharData piece(NX_U16(u""));
  pieces >> a;
  ASSERT_EQ(pieces.GetCharDataUnaccumulated(piece), 1);
  EXPECT_LT(piece.GetData().GetLength(), 10000);
  int total = piece.GetData().GetLength();
  while (pieces.GetNextTokenType() == XT_CHARDATA && pieces.GetCharDataUnaccumulated(piece))
    total += piece.GetData().GetLength();
  EXPECT_EQ(total, 10000);
  whole >> a >> piece;
  EXPECT_EQ(piece.GetData().GetLength(), 10000);
}
