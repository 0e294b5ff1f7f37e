// Tagged messages: the XML forms of the platform's messages, resource
// strings and command outputs, switched by diagnostic 170 (bit 0: tag at
// all, bit 1: with the human text, bit 2: with the parameters).
#include <atomic>
#include <mutex>

#include "nxdiagnostics.h"
#include "nxmessages.h"
#include "nxtagged.h"
#include "xmlcontent.h"

namespace {

const AdDiagnosticId kTaggedMsgDiagnosticId = 170;

// Latched at the first builder call. The first calls may come from two
// threads at once: one of them reads the level under the once flag, and
// every later call pays only the acquire load of s_diagValueInitialized.
std::atomic<int> s_diagValueInitialized{0};
std::once_flag s_diagValueOnce;
int s_diagValue = 0;
int s_createXmlOutput = 0;
int s_includeMessageText = 0;
int s_includeDataParams = 0;

void ReadSwitches() {
  if (s_diagValueInitialized.load(std::memory_order_acquire)) return;
  std::call_once(s_diagValueOnce, [] {
    s_diagValue = static_cast<int>(AdDiagnostic::GetDiagnosticIdLevel(kTaggedMsgDiagnosticId));
    s_createXmlOutput = s_diagValue & 1;
    s_includeMessageText = (s_diagValue >> 1) & 1;
    s_includeDataParams = (s_diagValue >> 2) & 1;
    s_diagValueInitialized.store(1, std::memory_order_release);
  });
}

Obx_String Number(long value) { return Obx_String::Format(NX_U16(u"%ld"), value); }

void BuildTaggedResMessage(Obx_String& text, long id) {
  ReadSwitches();
  if (!s_createXmlOutput) return;
  const Obx_String copy = text;
  XmlElement message(u"RESMessage");
  message.AddSubElement(u"id")->AddCharData(Number(id));
  if (s_includeMessageText) message.AddSubElement(u"message")->AddCharData(copy);
  text = message.GetImage(nullptr);
}

void BuildTaggedCLIMessage(Obx_String& text, const unsigned short* id, int isStart, int exitCode) {
  ReadSwitches();
  if (!s_createXmlOutput) return;
  if (isStart) {
    // Both elements stay open: the command's output follows as the text of
    // "message".
    text = XmlSTag(u"CLIMessage").GetImage(NX_U16(u">"), nullptr);
    XmlElement idElement(u"id");
    idElement.AddCharData(id);
    text.Append(idElement.GetImage(nullptr));
    text.Append(XmlSTag(u"message").GetImage(NX_U16(u">"), nullptr));
    return;
  }
  text = XmlETag(u"message").GetImage(nullptr);
  XmlElement data(u"data");
  data.AddSubElement(u"name")->AddCharData(u"exitCode");
  data.AddSubElement(u"value")->AddCharData(Number(exitCode));
  text.Append(data.GetImage(nullptr));
  text.Append(XmlETag(u"CLIMessage").GetImage(nullptr));
}

void BuildTaggedNxMessage(Obx_String& text, const CMapStringToString& params, long id) {
  ReadSwitches();
  if (!s_createXmlOutput) return;
  const Obx_String copy = text;
  XmlElement message(u"NXMessage");
  message.AddSubElement(u"id")->AddCharData(Number(id));
  if (s_includeDataParams) {
    Obx_String key, value;
    for (POSITION pos = params.GetStartPosition(); pos;) {
      params.GetNextAssoc(pos, key, value);
      if (value.IsEmpty()) continue;
      NXSmartPtr<XmlElement> data = message.AddSubElement(u"data");
      data->AddSubElement(u"name")->AddCharData(key);
      data->AddSubElement(u"value")->AddCharData(value);
    }
  }
  // Unlike a resource string, an empty text gives no "message" element.
  if (s_includeMessageText && !copy.IsEmpty()) message.AddSubElement(u"message")->AddCharData(copy);
  text = message.GetImage(nullptr);
}

// Hands the builders to the platform while the library is loaded.
class NxXmlTaggedMsgInit {
 public:
  NxXmlTaggedMsgInit() {
    QmMessage::InitTaggedMsgCallback(BuildTaggedNxMessage);
    AdUtilInitTaggedMsgCallback(BuildTaggedCLIMessage);
    AdLoadStringInitTaggedMsgCallback(BuildTaggedResMessage);
  }
  ~NxXmlTaggedMsgInit() {
    QmMessage::InitTaggedMsgCallback(nullptr);
    AdUtilInitTaggedMsgCallback(nullptr);
    AdLoadStringInitTaggedMsgCallback(nullptr);
  }
  NxXmlTaggedMsgInit(const NxXmlTaggedMsgInit&) = delete;
  NxXmlTaggedMsgInit& operator=(const NxXmlTaggedMsgInit&) = delete;
};

const NxXmlTaggedMsgInit s_SetUpQmMessageCallback;

}  // namespace
