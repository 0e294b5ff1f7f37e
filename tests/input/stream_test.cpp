#include <cstdio>
#include <fstream>

#include "input_fixtures.h"

namespace {

std::string Repeat(const std::string& s, int n) {
  std::string out;
  for (int k = 0; k < n; ++k) out += s;
  return out;
}

}  // namespace

TEST(IXmlStream, TokensDoNotDependOnReadSizes) {
  // Text, references and multi-byte characters cut at every place a read can
  // end, a text longer than a chunk, and a start tag larger than a chunk
  // followed by more elements (nothing may be held back at the end).
  const std::string longText = Repeat("0123456789\xC3\xA9\xE4\xB8\xAD&amp;", 700);
  const std::string bigValue = Repeat("v", 10000);
  const std::string xml = "<root a=\"1\" b=\"x&lt;y\">\n<t>caf\xC3\xA9 &#x4E2D;&#xE9; a&amp;b</t><l>" + longText +
                          "</l><big x=\"" + bigValue + "\"/><b/>\n<c>\xF0\x9F\x98\x80</c></root>";
  const std::vector<std::string> expected = TokensOf(xml, {4096});
  ASSERT_EQ(expected.size(), 15u);
  EXPECT_EQ(expected[0], "S root a=1 b=x<y");
  EXPECT_EQ(expected[2], "T caf\xC3\xA9 \xE4\xB8\xAD\xC3\xA9 a&b");
  EXPECT_EQ(expected[5], "T " + Repeat("0123456789\xC3\xA9\xE4\xB8\xAD&", 700));
  EXPECT_EQ(expected[7], "S big x=" + bigValue);
  EXPECT_EQ(expected[10], "E b");
  EXPECT_EQ(expected[14], "E root");
  const std::vector<std::vector<long>> patterns = {{1}, {2}, {3}, {1, 2, 3, 4, 5}, {4095}, {7, 4096, 1}};
  for (const auto& sizes : patterns) {
    SCOPED_TRACE(sizes[0]);
    EXPECT_EQ(TokensOf(xml, sizes), expected);
  }
}

// The line and column of a byte as expat counts them: a line feed, a
// carriage return or the two together end a line, and a character of any
// length is one column.
void PlaceOf(const std::string& doc, long long byte, long long& line, long long& column) {
  line = 1;
  column = 0;
  for (long long k = 0; k < byte; ++k) {
    const unsigned char c = static_cast<unsigned char>(doc[static_cast<std::size_t>(k)]);
    if (c == '\n' || c == '\r') {
      ++line;
      column = 0;
      if (c == '\r' && k + 1 < byte && doc[static_cast<std::size_t>(k + 1)] == '\n') ++k;
    } else if ((c & 0xC0) != 0x80) {
      ++column;
    }
  }
}

TEST(IXmlStream, LocationsAreExpatsLineAndColumnOfTheTokensByte) {
  // Every kind of line end, characters of one to four bytes, a byte order
  // mark, tags and texts cut by reads, and places past 16-byte runs.
  const std::string wide = Repeat("\xC3\xA9\xE4\xB8\xADx\r\ny\rz\n\xF0\x9F\x98\x80", 400);
  const std::vector<std::string> docs = {
      "<r>\r\n<a x=\"1\"\r\n y='2'>t\xC3\xA9xt\r\nmore</a>\r<b/>\r\r\n<c>\xF0\x9F\x98\x80z</c>\n\t<d>&amp;&#xE9;x</d></r>",
      "\xEF\xBB\xBF<r>\n<a/>\xE4\xB8\xAD<b>\r\n\r\n</b></r>",
      "<r>" + wide + "<a v=\"" + wide + "\">" + wide + "</a>\r\n<b/></r>",
      "<r\n>\n\n<a\r\n/>\n" + Repeat("0123456789abcdef\n", 300) + "<b\t/></r\r\n>",
  };
  for (const std::string& doc : docs) {
    for (const std::vector<long>& sizes : std::vector<std::vector<long>>{{ReadSize()}, {1}, {7, 4096, 3}}) {
      IXmlStream in(new TrickleSource(doc, sizes));
      int tokens = 0;
      while (XmlToken* raw = in.GetNextToken()) {
        NXSmartPtr<XmlToken> token(raw);
        long long line = 0, column = 0, byte = 0, wantLine = 0, wantColumn = 0;
        token->GetLocation().Position(line, column, byte);
        PlaceOf(doc, byte, wantLine, wantColumn);
        ASSERT_EQ(line, wantLine) << Describe(*token) << " at byte " << byte;
        ASSERT_EQ(column, wantColumn) << Describe(*token) << " at byte " << byte;
        ++tokens;
      }
      EXPECT_GT(tokens, 4);
    }
  }
  // Expat reads an input that starts with a zero byte as UTF-16: a column
  // is still a character, two bytes here.
  const std::string wide16("\0<\0a\0>\0x\0\xE9\0<\0/\0a\0>", 18);
  IXmlStream in(new TrickleSource(wide16));
  std::vector<long long> columns;
  while (XmlToken* raw = in.GetNextToken()) {
    NXSmartPtr<XmlToken> token(raw);
    long long line = 0, column = 0, byte = 0;
    token->GetLocation().Position(line, column, byte);
    columns.push_back(column);
  }
  EXPECT_EQ(columns, (std::vector<long long>{0, 3, 5}));
}

TEST(IXmlStream, NewlineRuleDropsOnlyTheFirstLineFeedAfterATag) {
  struct Case {
    const char* xml;
    std::vector<std::string> tokens;
  } cases[] = {
      {"<a>\nx</a>", {"S a", "T x", "E a"}},
      {"<a>\n\nx</a>", {"S a", "T \nx", "E a"}},
      {"<a>\n</a>", {"S a", "E a"}},
      {"<a>\n<b/>\n  <c/></a>", {"S a", "S b", "E b", "T   ", "S c", "E c", "E a"}},
      {"<a>x\ny</a>", {"S a", "T x\ny", "E a"}},
      {"<a>&#xA;x</a>", {"S a", "T x", "E a"}},  // a reference is a line feed like any other
      {"<a>\r\nx</a>", {"S a", "T x", "E a"}},   // expat folds CR LF into LF first
      {"\n<a/>\n", {"S a", "E a"}},              // line breaks outside the root are layout
  };
  for (const Case& c : cases) EXPECT_EQ(TokensOf(c.xml), c.tokens) << c.xml;
}

TEST(IXmlStream, RejectedMarkupRaisesWithItsLocation) {
  const long unreached = AdGetHitUnreachedMsgID();
  const struct {
    const char* xml;
    long id;
  } cases[] = {{"<?xml version=\"1.0\"?><a/>", 27308}, {"<a><!-- note --></a>", 27308}, {"<a><?pi data?></a>", 27308},
               {"<a>\n<b/> <!-- after text --></a>", 27308}, {"<a><![CDATA[x]]></a>", unreached},
               {"<!DOCTYPE a><a/>", unreached}};
  for (const auto& c : cases) {
    IXmlStream in(new TrickleSource(c.xml));
    QmMsgException* e = Raised([&] {
      while (XmlToken* t = in.GetNextToken()) delete t;
    });
    ASSERT_NE(e, nullptr) << c.xml;
    EXPECT_EQ(e->GetMessage(0).GetId(), c.id) << c.xml;
    if (c.id == 27308) {
      EXPECT_NE(Utf8(e->GetFullText()).find(" at line "), std::string::npos) << c.xml;
    }
    e->Delete();
  }
  // Raised from the parse that met it: the tokens parsed in an earlier read
  // are handed out first.
  IXmlStream in(new TrickleSource("<a><b/><!-- x --></a>", {1}));
  in.Parse_First();
  XmlToken* first = in.GetNextToken();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(Describe(*first), "S a");
  delete first;
  QmMsgException* e = Raised([&] {
    while (XmlToken* t = in.GetNextToken()) delete t;
  });
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(Utf8(e->GetMessage(0).GetParam("%_LOCATION_%")), "line 1, column 7, byte 7");
  e->Delete();
}

TEST(IXmlStream, ParseErrorsArriveInDocumentOrderWithNameLocationAndExcerpt) {
  // The excerpt comes from the chunk that failed: whole chunks here, the
  // place at every read size.
  const std::vector<std::string> tokens = TokensOf("<a><b>text</c></a>");
  ASSERT_EQ(tokens.size(), 4u);
  EXPECT_EQ(tokens[2], "T text");
  EXPECT_EQ(tokens[3].substr(0, 96),
            "! *** Fatal error from XML_parse(): TAG_MISMATCH: mismatched tag at line 1, column 12, byte 12, ");
  EXPECT_EQ(TokensOf("<a><b>text</c></a>", {4096})[3],
            "! *** Fatal error from XML_parse(): TAG_MISMATCH: mismatched tag at line 1, column 12, byte 12, "
            "near \"<a><b>text</c></a>\"");

  // Up to 15 bytes before the failing byte and 14 after, cut to whole
  // characters: the excerpt never splits a UTF-8 sequence.
  const std::string prefix = "<r>" + Repeat("\xC3\xA9", 20);  // é é é ...
  const std::vector<std::string> cut = TokensOf(prefix + "</q>" + Repeat("x", 30), {4096});
  ASSERT_FALSE(cut.empty());
  const std::string last = cut.back();
  const std::size_t quote = last.find("near \"");
  ASSERT_NE(quote, std::string::npos) << last;
  // expat places a tag mismatch at the name: "q" is the failing byte.
  EXPECT_EQ(last.substr(quote + 6), Repeat("\xC3\xA9", 6) + "</q>" + Repeat("x", 13) + "\"");

  // A failure at the chunk's end has no excerpt; the location still names it.
  const std::vector<std::string> atEnd = TokensOf("<a>&bogus;</a>");
  EXPECT_EQ(atEnd.back().substr(0, 56), "! *** Fatal error from XML_parse(): UNDEFINED_ENTITY: un");
  EXPECT_EQ(TokensOf("<a></a><b/>").back().substr(0, 60),
            "! *** Fatal error from XML_parse(): JUNK_AFTER_DOC_ELEMENT: ");

  // An unclosed root is no error of the stream: the reader meets the end.
  EXPECT_EQ(TokensOf("<a><b>"), (std::vector<std::string>{"S a", "S b"}));
}

TEST(IXmlStream, HostileNestingIsRefusedAtTheLimit) {
  // At the default limit a tree is read, copied, rendered and freed whole.
  const int depth = IXmlStream::DEFAULT_MAX_ELEMENT_DEPTH;
  const std::string deep = Repeat("<e>", depth) + "x" + Repeat("</e>", depth);
  {
    IXmlStream in(new TrickleSource(deep));
    XmlElement root;
    in >> root;
    XmlElement copy(root);
    EXPECT_EQ(Utf8(copy.GetImage(nullptr)), deep);
  }
  // One more level is refused at the start tag that goes too deep.
  IXmlStream over(new TrickleSource("<e>" + deep + "</e>"));
  XmlElement root;
  EXPECT_EQ(Caught([&] { over >> root; }),
            "Elements nest deeper than the limit of 1000 levels at line 1, column 3000, byte 3000.");
  // A million nested start tags: refused without reading the rest.
  IXmlStream million(new TrickleSource(Repeat("<a>", 1000000)));
  million.SetMaxElementDepth(50);
  const std::vector<std::string> tokens = AllTokens(million);
  ASSERT_EQ(tokens.size(), 51u);
  EXPECT_EQ(tokens.back().substr(0, 46), "! Elements nest deeper than the limit of 50 le");
}

TEST(IXmlStream, DecodingFlagsDecideWhatIsAnError) {
  // Only ASCII allowed, strict: a non-ASCII name, value or text is an error
  // token in place of its token; lenient lets it through.
  const std::string xml = "<a v=\"caf\xC3\xA9\">ok</a>";
  IXmlStream strict(new TrickleSource(xml), true, false), lenient(new TrickleSource(xml), true, true);
  const std::vector<std::string> tokens = AllTokens(strict);
  ASSERT_EQ(tokens.size(), 1u);
  EXPECT_EQ(tokens[0].substr(0, 20), "! Text holds charact");
  EXPECT_NE(tokens[0].find(" raised while parsing at line 1"), std::string::npos) << tokens[0];
  EXPECT_EQ(AllTokens(lenient).front(), "S a v=caf\xC3\xA9");
  // The control-character escape decodes in text, also across reads.
  const std::string escaped = "<a>x\xEF\xA0\x80\xEF\xA0\x81y</a>";
  for (long size : {1L, 2L, 4096L}) {
    EXPECT_EQ(TokensOf(escaped, {size})[1], "T x\x01y") << size;
  }
}
