#include <gtest/gtest.h>

#include <ctime>
#include <sstream>
#include <vector>

#include "nxdatetime.h"
#include "nxdiagnostics.h"
#include "nxmessages.h"

TEST(QmMessage, ParametersAreSubstitutedOnceWhereverTheyStand) {
  QmMessage m(27305);
  m.SetParam("%_ARG1_%", Obx_String(u"record"));
  m.SetParam("%_ARG2_%", Obx_String(u"%_ARG1_%"));  // not expanded again
  m.SetParam("%_LOCATION_%", Obx_String(u"line 1"));
  EXPECT_EQ(m.GetId(), 27305);
  EXPECT_EQ(m.GetParam("%_ARG1_%"), u"record");
  EXPECT_EQ(m.GetParam("missing"), u"");
  EXPECT_EQ(m.FullMsg(), u"Expected the start tag <record> but found <%_ARG1_%> at line 1.");

  QmMessage cp(27319);
  cp.SetParam("_CPNUM_", Obx_String(u"Client"));
  cp.SetParam("_ERRORNUM_", Obx_String(u"-1"));
  EXPECT_EQ(cp.FullMsg(), u"Conversion to code page Client produced nothing (error -1).");

  QmMessage text(Obx_String(u"Expected a but found b."));
  EXPECT_EQ(text.GetId(), 0);
  EXPECT_EQ(text.FullMsg(), u"Expected a but found b.");
}

TEST(QmMessage, CatalogueCoversEveryIdOfTheLibrary) {
  for (long id = 27301; id <= 27321; ++id) {
    Obx_String text;
    EXPECT_TRUE(text.LoadString(id)) << id;
    EXPECT_FALSE(text.IsEmpty()) << id;
  }
  for (long id : {AdGetBadValue0MsgID(), AdGetHitUnreachedMsgID()}) EXPECT_NE(AdCatalogueText(id), nullptr);
  Obx_String unknown(u"x");
  EXPECT_FALSE(unknown.LoadString(1));
  EXPECT_TRUE(unknown.IsEmpty());
}

TEST(QmMsgException, ThrownByPointerWithTextFileAndLine) {
  QmMsgException* caught = nullptr;
  try {
    AD_ASSERT_TEXT(1 + 1 == 3, "m_source != __null", "xmlstream");
  } catch (QmMsgException* e) {
    caught = e;
  }
  ASSERT_NE(caught, nullptr);
  EXPECT_EQ(caught->GetMessageCount(), 1);
  EXPECT_EQ(caught->GetMessage(0).GetId(), AdGetBadValue0MsgID());
  EXPECT_EQ(caught->GetText(), u"m_source != __null");
  EXPECT_STREQ(caught->GetFile(), "xmlstream");
  EXPECT_GT(caught->GetLine(), 0);
  caught->AddMessage(QmMessage(27309));
  EXPECT_EQ(caught->GetMessageCount(), 2);
  caught->Delete();

  try {
    QmMessage m(27309);
    m.SetParam("%_ARG1_%", Obx_String(u"in.xml"));
    AdThrowMsgExcept(m, "", "xmlstream", 7);
  } catch (QmMsgException* e) {
    EXPECT_EQ(e->GetFullText(), u"Cannot open the input file in.xml.");
    EXPECT_EQ(e->GetLine(), 7);
    e->Delete();
  }
}

TEST(AdDateTime, GmtFormatAndParseRoundTrip) {
  const AdDateTime t(2004, 5, 6, 7, 8, 9);
  EXPECT_EQ(t.FormatGMT("%Y-%m-%d %H:%M:%S"), u"2004-05-06 07:08:09");
  AdDateTime back;
  ASSERT_TRUE(back.ParseDateTimeGMT(NX_U16(u"2004-05-06 07:08:09")));
  EXPECT_EQ(back, t);
  EXPECT_EQ(back.GetSecondsSinceEpoch(), 1083827289);
  // Independent of the process's time zone.
  setenv("TZ", "America/New_York", 1);
  tzset();
  AdDateTime inZone;
  ASSERT_TRUE(inZone.ParseDateTimeGMT(NX_U16(u"2004-05-06 07:08:09")));
  EXPECT_EQ(inZone, t);
  unsetenv("TZ");
  tzset();
  // A failed parse leaves the instant as it was.
  for (const char16_t* bad : {u"", u"2004-05-06", u"2004-05-06 07:08:09 extra", u"yesterday"}) {
    AdDateTime kept(42);
    EXPECT_FALSE(kept.ParseDateTimeGMT(NX_U16(bad)));
    EXPECT_EQ(kept.GetSecondsSinceEpoch(), 42);
  }
}

TEST(AdDiagnostic, LevelsFlagsSettingsAndSink) {
  AdDiagnostic::Configure("36=2, 47=3,bogus,900=x,5000=1");
  EXPECT_EQ(AdDiagnostic::GetDiagnosticIdLevel(36), 2);
  EXPECT_EQ(AdDiagnostic::GetDiagnosticIdLevel(47), 3);
  EXPECT_TRUE(AdDiagnostic::m_DiagnosticFlags[36]);
  EXPECT_TRUE(AdDiagnostic::IsEnabled(36, 2, 0));
  EXPECT_FALSE(AdDiagnostic::IsEnabled(36, 3, 0));
  EXPECT_FALSE(AdDiagnostic::IsEnabled(5000, 1, 0));

  std::vector<std::string> lines;
  AdDiagnostic::SetSink([&](const Obx_String& source, const Obx_String& text) {
    lines.push_back(source.ToUtf8() + "|" + text.ToUtf8());
  });
  AdDiagnostic::TestAndReportV(36, 2, 0, "Refs", "%S %s%ld", "T*", "+", 2L);
  AdDiagnostic::TestAndReportV(36, 3, 0, "Refs", "%S %s%ld", "T*", "+", 3L);  // above the level
  AdDiagnostic::Report(NX_U16(u"Xmlstream"), Obx_String(u"hello"));
  AdDiagnostic::SetSink(nullptr);
  AdDiagnostic::SetDiagnosticIdLevel(36, 0);
  AdDiagnostic::SetDiagnosticIdLevel(47, 0);
  EXPECT_FALSE(AdDiagnostic::m_DiagnosticFlags[36]);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "Refs|T* +2");
  EXPECT_EQ(lines[1], "Xmlstream|hello");

  std::ostringstream captured;
  std::ostream* previous = get_nxcout().SetTarget(&captured);
  get_nxcout() << NX_U16(u"*** \u00e9") << 5L << AdUTF16OStream::endl;
  get_nxcout().SetTarget(previous);
  EXPECT_EQ(captured.str(), "*** \xC3\xA9" "5\n");
}
