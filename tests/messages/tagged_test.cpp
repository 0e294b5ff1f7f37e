// Tagged messages at each level of diagnostic 170. The level is latched for
// the process, so these tests run once in the plain suite (level 0) and
// again in a process of their own for each of the levels 1, 3, 5 and 7.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "input/input_fixtures.h"
#include "nxdiagnostics.h"
#include "nxmessages.h"
#include "nxtagged.h"

namespace {

// A catalogue message whose parameters are set out of their order in the
// text, one of them empty; its text holds "&" and "<".
std::string NxMessage() {
  QmMessage message(27304);
  message.SetParam("%_ARG2_%", Obx_String::FromUtf8("disk & <full>"));
  message.SetParam("%_LOCATION_%", Obx_String());
  message.SetParam("%_ARG1_%", Obx_String::FromUtf8("out.xml"));
  return message.GetMessageText().ToUtf8();
}

std::string CommandOutput(const std::string& output, int exitCode) {
  const Obx_String body = XmlCharData(Obx_String::FromUtf8(output.c_str())).GetImage(nullptr);
  Obx_String text = AdUtilCommandHead(NX_U16(u"nxxml check"));
  text += body;
  text += AdUtilCommandTail(NX_U16(u"nxxml check"), exitCode);
  return text.ToUtf8();
}

struct Expected {
  long level;
  const char* nx;
  const char* nxEmpty;
  const char* resource;
  const char* resourceEmpty;
  const char* command;
};

const char* const kPlain = "Cannot open the output file out.xml: disk & <full>.";
const char* const kPlainCommand = "a &lt; b &amp; c&#xA;";

const Expected kLevels[] = {
    {0, kPlain, "", "Writing to the output failed.", "", kPlainCommand},
    {1, "<NXMessage><id>27304</id></NXMessage>", "<NXMessage><id>0</id></NXMessage>",
     "<RESMessage><id>27320</id></RESMessage>", "<RESMessage><id>1</id></RESMessage>", nullptr},
    {3,
     "<NXMessage><id>27304</id><message>Cannot open the output file out.xml: disk &amp; &lt;full&gt;.</message>"
     "</NXMessage>",
     "<NXMessage><id>0</id></NXMessage>",
     "<RESMessage><id>27320</id><message>Writing to the output failed.</message></RESMessage>",
     "<RESMessage><id>1</id><message></message></RESMessage>", nullptr},
    {5,
     "<NXMessage><id>27304</id><data><name>%_ARG2_%</name><value>disk &amp; &lt;full&gt;</value></data>"
     "<data><name>%_ARG1_%</name><value>out.xml</value></data></NXMessage>",
     "<NXMessage><id>0</id></NXMessage>", "<RESMessage><id>27320</id></RESMessage>",
     "<RESMessage><id>1</id></RESMessage>", nullptr},
    {7,
     "<NXMessage><id>27304</id><data><name>%_ARG2_%</name><value>disk &amp; &lt;full&gt;</value></data>"
     "<data><name>%_ARG1_%</name><value>out.xml</value></data>"
     "<message>Cannot open the output file out.xml: disk &amp; &lt;full&gt;.</message></NXMessage>",
     "<NXMessage><id>0</id></NXMessage>",
     "<RESMessage><id>27320</id><message>Writing to the output failed.</message></RESMessage>",
     "<RESMessage><id>1</id><message></message></RESMessage>", nullptr},
};

const char* const kTaggedCommand =
    "<CLIMessage><id>nxxml check</id><message>a &lt; b &amp; c&#xA;</message>"
    "<data><name>exitCode</name><value>3</value></data></CLIMessage>";

const Expected* ForThisProcess() {
  const long level = AdDiagnostic::GetDiagnosticIdLevel(170);
  for (const Expected& e : kLevels)
    if (e.level == level) return &e;
  return nullptr;
}

// First here, so that in the processes of their own the two threads make
// the very first builder calls, which latch the level.
TEST(TaggedMessages, FirstCallsFromTwoThreads) {
  const Expected* expected = ForThisProcess();
  if (!expected) GTEST_SKIP() << "diagnostic 170 is set to a level without expectations";
  std::string a, b;
  std::thread one([&] { a = NxMessage(); });
  std::thread two([&] { b = NxMessage(); });
  one.join();
  two.join();
  EXPECT_EQ(a, expected->nx);
  EXPECT_EQ(b, expected->nx);
}

TEST(TaggedMessages, EachFormAtThisLevel) {
  const Expected* expected = ForThisProcess();
  if (!expected) GTEST_SKIP() << "diagnostic 170 is set to a level without expectations";
  EXPECT_EQ(NxMessage(), expected->nx);
  EXPECT_EQ(QmMessage(Obx_String()).GetMessageText().ToUtf8(), expected->nxEmpty);
  EXPECT_EQ(AdLoadString(27320).ToUtf8(), expected->resource);
  // An id the catalogue lacks loads an empty text.
  EXPECT_EQ(AdLoadString(1).ToUtf8(), expected->resourceEmpty);
  EXPECT_EQ(CommandOutput("a < b & c\n", 3), expected->command ? expected->command : kTaggedCommand);
  // Format strings are never tagged: a location still renders.
  Obx_String format;
  format.LoadString(27310);
  EXPECT_EQ(format.ToUtf8(), "line %lld, column %lld, byte %lld");
}

// Head and tail around any output read back as one element that holds the
// output and the exit code.
TEST(TaggedMessages, CommandOutputIsOneElement) {
  if (!(AdDiagnostic::GetDiagnosticIdLevel(170) & 1)) GTEST_SKIP() << "command output is not tagged at this level";
  const std::string output = "x\t<y>&amp;]]>\r\n\"'\xC3\xA9";
  IXmlStream in(new TrickleSource(CommandOutput(output, -2), {4096}));
  XmlElement message;
  in >> message;
  EXPECT_TRUE(in.End());
  EXPECT_EQ(message.GetSTag().GetName().ToUtf8(), "CLIMessage");
  ASSERT_EQ(message.GetNumberofSubElements(), 3);
  EXPECT_EQ(message.GetImage(nullptr).ToUtf8(),
            "<CLIMessage><id>nxxml check</id><message>x&#x9;&lt;y&gt;&amp;amp;]]&gt;&#xD;&#xA;\"'\xC3\xA9</message>"
            "<data><name>exitCode</name><value>-2</value></data></CLIMessage>");
}

}  // namespace
