// The token queue's out-of-line parts: the type check of the head, and
// freeing what is left.
#include "input/queue.h"

#include "ids.h"

using namespace nxmsg;

void NeedTokenType(const XmlToken* token, XmlToken_t expected) {
  const XmlToken_t actual = token->GetType();
  if (actual == XT_ILLEGAL) {
    // A queued error: its text is the whole report. It stays at the head.
    // (An element pushed back by the application also reports this type.)
    const XmlCharData* error = dynamic_cast<const XmlCharData*>(token);
    AdThrowMsgExcept(QmMessage(error ? error->GetData() : Obx_String(XmlTokenTypeDescriptions[XT_ILLEGAL])), "",
                     kStreamUnit, __LINE__);
  }
  if (expected == XT_ILLEGAL || expected == actual) return;
  const unsigned short* const* pp = XmlTokenTypeDescriptions;
  AdThrowMsgExcept(QmMessage(Obx_String::Format(kWrongTokenMsgId, pp[expected], pp[actual])), "", kStreamUnit,
                   __LINE__);
}

void XmlTokenQueue::Clear() {
  for (XmlToken* token : m_tokens) delete token;
  m_tokens.clear();
}
