#include <gtest/gtest.h>

#include <ctime>
#include <sstream>
#include <vector>

#include "nxdatetime.h"
#include "nxdiagnostics.h"
#include "nxmessages.h"

TEST(QmMessage, ParametersCatalogueAndExceptions) {
  QmMessage m(27305);
  m.SetParam("%_ARG1_%", Obx_String(u"record"));
  m.SetParam("%_ARG2_%", Obx_String(u"%_ARG1_%"));  // not expanded again
  m.SetParam("%_LOCATION_%", Obx_String(u"line 1"));
  EXPECT_EQ(m.GetParam("missing"), u"");
  EXPECT_EQ(m.FullMsg(), u"Expected the start tag <record> but found <%_ARG1_%> at line 1.");
  QmMessage cp(27319);
  cp.SetParam("_CPNUM_", Obx_String(u"Client"));
  cp.SetParam("_ERRORNUM_", Obx_String(u"-1"));
  EXPECT_EQ(cp.FullMsg(), u"Conversion to code page Client produced nothing (error -1).");
  QmMessage text(Obx_String(u"Expected a but found b."));
  EXPECT_TRUE(text.GetId() == 0 && text.FullMsg() == u"Expected a but found b.");
  for (long id = 27301; id <= 27322; ++id) {
    Obx_String loaded;
    EXPECT_TRUE(loaded.LoadString(id) && !loaded.IsEmpty()) << id;
  }
  for (long id : {AdGetBadValue0MsgID(), AdGetHitUnreachedMsgID()}) EXPECT_NE(AdCatalogueText(id), nullptr);
  Obx_String unknown(u"x");
  EXPECT_FALSE(unknown.LoadString(1));
  EXPECT_TRUE(unknown.IsEmpty());

  // Thrown by pointer, with the condition, the unit and the line.
  try {
    AD_ASSERT_TEXT(1 + 1 == 3, "m_source != __null", "xmlstream");
    ADD_FAILURE() << "nothing raised";
  } catch (QmMsgException* e) {
    EXPECT_EQ(e->GetMessage(0).GetId(), AdGetBadValue0MsgID());
    EXPECT_EQ(e->GetText(), u"m_source != __null");
    EXPECT_STREQ(e->GetFile(), "xmlstream");
    EXPECT_GT(e->GetLine(), 0);
    e->AddMessage(QmMessage(27309));
    EXPECT_EQ(e->GetMessageCount(), 2);
    e->Delete();
  }
}

// Text round trips go through the time attributes; here: the absolute
// instant, whatever the process's time zone.
TEST(AdDateTime, ParsesGmtWhateverTheZone) {
  setenv("TZ", "America/New_York", 1);
  tzset();
  AdDateTime t;
  const bool parsed = t.ParseDateTimeGMT(NX_U16(u"2004-05-06 07:08:09"));
  EXPECT_EQ(AdDateTime(2004, 5, 6, 7, 8, 9).FormatGMT("%Y-%m-%d %H:%M:%S"), u"2004-05-06 07:08:09");
  unsetenv("TZ");
  tzset();
  EXPECT_TRUE(parsed);
  EXPECT_EQ(t.GetSecondsSinceEpoch(), 1083827289);
  // A failed parse leaves the instant as it was.
  for (const char16_t* bad : {u"", u"2004-05-06", u"2004-05-06 07:08:09 extra", u"yesterday"}) {
    AdDateTime kept(42);
    EXPECT_FALSE(kept.ParseDateTimeGMT(NX_U16(bad)));
    EXPECT_EQ(kept.GetSecondsSinceEpoch(), 42);
  }
}

// The sink and the level gate are exercised by the reference trace; here:
// the settings string, the flags and the console.
TEST(AdDiagnostic, SettingsReportAndConsole) {
  AdDiagnostic::Configure("36=2, 47=3,bogus,900=x,5000=1");
  EXPECT_EQ(AdDiagnostic::GetDiagnosticIdLevel(36) * 10 + AdDiagnostic::GetDiagnosticIdLevel(47), 23);
  EXPECT_TRUE(AdDiagnostic::m_DiagnosticFlags[36]);
  EXPECT_FALSE(AdDiagnostic::IsEnabled(5000, 1, 0));
  AdDiagnostic::SetDiagnosticIdLevel(36, 0);
  AdDiagnostic::SetDiagnosticIdLevel(47, 0);
  EXPECT_FALSE(AdDiagnostic::m_DiagnosticFlags[36]);
  std::ostringstream captured;
  std::ostream* previous = get_nxcout().SetTarget(&captured);
  get_nxcout() << NX_U16(u"*** \u00e9") << 5L << AdUTF16OStream::endl;
  get_nxcout().SetTarget(previous);
  EXPECT_EQ(captured.str(), "*** \xC3\xA9" "5\n");
}
