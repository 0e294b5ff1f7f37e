#include "nxtagged.h"

#include <atomic>

#include "nxmessages.h"

namespace {

// Atomic so that a thread formatting a message while the library that
// registered the hook is loaded or unloaded sees either the old hook or
// the new one.
std::atomic<QmMessage::TaggedMsgCallback> g_messageHook{nullptr};
std::atomic<AdLoadStringTaggedMsgCallback> g_loadStringHook{nullptr};
std::atomic<AdUtilTaggedMsgCallback> g_commandHook{nullptr};

Obx_String CommandText(const unsigned short* id, int isStart, int exitCode) {
  Obx_String text;
  if (AdUtilTaggedMsgCallback hook = g_commandHook.load(std::memory_order_acquire))
    hook(text, id ? id : NX_U16(u""), isStart, exitCode);
  return text;
}

}  // namespace

void QmMessage::InitTaggedMsgCallback(TaggedMsgCallback callback) {
  g_messageHook.store(callback, std::memory_order_release);
}

Obx_String QmMessage::GetMessageText() const {
  Obx_String text = FullMsg();
  if (TaggedMsgCallback hook = g_messageHook.load(std::memory_order_acquire)) hook(text, m_params, m_id);
  return text;
}

void AdLoadStringInitTaggedMsgCallback(AdLoadStringTaggedMsgCallback callback) {
  g_loadStringHook.store(callback, std::memory_order_release);
}

Obx_String AdLoadString(long id) {
  Obx_String text;
  text.LoadString(id);
  if (AdLoadStringTaggedMsgCallback hook = g_loadStringHook.load(std::memory_order_acquire)) hook(text, id);
  return text;
}

void AdUtilInitTaggedMsgCallback(AdUtilTaggedMsgCallback callback) {
  g_commandHook.store(callback, std::memory_order_release);
}

Obx_String AdUtilCommandHead(const unsigned short* id) { return CommandText(id, 1, 0); }

Obx_String AdUtilCommandTail(const unsigned short* id, int exitCode) { return CommandText(id, 0, exitCode); }
