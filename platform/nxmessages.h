// Messages and errors: catalogue messages with named parameters, the message
// exception thrown by pointer, and the raisers every failure goes through.
#pragma once

#include <vector>

#include "nxcollections.h"
#include "nxplatform_export.h"
#include "nxstrings.h"

class NXPLATFORM_API Obx_Object {
 public:
  virtual ~Obx_Object();
};

// Base of the exceptions thrown by pointer. A heap exception made with
// autoDelete set frees itself in Delete(); the catcher always calls Delete().
class NXPLATFORM_API CException : public virtual Obx_Object {
 public:
  explicit CException(bool autoDelete = true) : m_bAutoDelete(autoDelete) {}
  ~CException() override;
  void Delete();

 protected:
  bool m_bAutoDelete;
};

// A message of the catalogue (by id) or a ready text (id 0), with named
// parameters that FullMsg substitutes wherever their names occur in the text.
class NXPLATFORM_API QmMessage {
 public:
  explicit QmMessage(long id);
  explicit QmMessage(const Obx_String& text);
  QmMessage(const QmMessage&) = default;
  QmMessage& operator=(const QmMessage&) = default;

  long GetId() const { return m_id; }
  void SetParam(const unsigned short* name, const Obx_String& value);
  void SetParam(const char* name, const Obx_String& value);
  Obx_String GetParam(const unsigned short* name) const;
  Obx_String GetParam(const char* name) const;
  const CMapStringToString& GetParams() const { return m_params; }
  // The catalogue text (or the text the message was made from) with every
  // parameter name replaced by its value.
  Obx_String FullMsg() const;
  // FullMsg as a user is shown it: handed to the tagged-message hook, when
  // one is registered, which may replace it by a tagged form.
  Obx_String GetMessageText() const;

  // The tagged-message hook: text holds the formatted text and may be
  // replaced. Null unregisters. Registered once at load, not while
  // messages are being formatted.
  typedef void (*TaggedMsgCallback)(Obx_String& text, const CMapStringToString& params, long id);
  static void InitTaggedMsgCallback(TaggedMsgCallback callback);

 private:
  long m_id;
  Obx_String m_text;
  CMapStringToString m_params;
};

class NXPLATFORM_API QmMsgException : public CException {
 public:
  QmMsgException(const QmMessage& message, const char* text, const char* file, int line);
  ~QmMsgException() override;

  int GetMessageCount() const { return static_cast<int>(m_messages.size()); }
  const QmMessage& GetMessage(int i) const { return m_messages[static_cast<std::size_t>(i)]; }
  void AddMessage(const QmMessage& message) { m_messages.push_back(message); }
  // The condition text the exception was raised with (empty for user errors).
  Obx_String GetText() const { return m_text; }
  const char* GetFile() const { return m_file; }
  int GetLine() const { return m_line; }
  // Every message's text as a user is shown it (GetMessageText), one a
  // line, then the condition text if any.
  Obx_String GetFullText() const;

 private:
  std::vector<QmMessage> m_messages;
  Obx_String m_text;
  const char* m_file;
  int m_line;
};

// Throws a new QmMsgException by pointer. file is a static text (the unit's
// name), kept by pointer.
[[noreturn]] NXPLATFORM_API void AdThrowMsgExcept(long messageId, const char* text, const char* file, int line);
[[noreturn]] NXPLATFORM_API void AdThrowMsgExcept(const QmMessage& message, const char* text, const char* file,
                                                  int line);

// Id of the message raised when an internal condition does not hold.
NXPLATFORM_API long AdGetBadValue0MsgID();
// Id of the message raised when code that cannot be reached was reached.
NXPLATFORM_API long AdGetHitUnreachedMsgID();

// Raises the bad-value message with the condition's own text when cond fails.
#define AD_ASSERT_TEXT(cond, text, file)                                  \
  do {                                                                    \
    if (!(cond)) AdThrowMsgExcept(AdGetBadValue0MsgID(), text, file, __LINE__); \
  } while (0)

// The English texts of the catalogue, for ids this build knows; null for
// others. Obx_String::LoadString reads them.
NXPLATFORM_API const char* AdCatalogueText(long id);
