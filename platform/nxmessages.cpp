#include "nxmessages.h"

namespace {

const long kBadValue0MsgId = 20001;
const long kHitUnreachedMsgId = 20002;

struct CatalogueEntry {
  long id;
  const char* text;
};

// Texts of the host catalogue for a stand-alone build. Format messages take
// printf arguments (27301, 27310, 27311, 27313); the others name their
// parameters, which QmMessage::FullMsg substitutes.
const CatalogueEntry kCatalogue[] = {
    {kBadValue0MsgId, "Internal error: a condition that must hold does not."},
    {kHitUnreachedMsgId, "Internal error: code that cannot be reached was reached."},
    {20010, "Cannot read the file %_ARG1_%: %_ARG2_%."},
    {20011, "Cannot write the file %_ARG1_%: %_ARG2_%."},
    {20012, "The text decoded into %_ARG1_% is not base64 (after %_ARG2_% bytes); the file was removed."},
    {27301, "Expected %s but found %s."},
    {27302, "An illegal token was found inside an element."},
    {27303, "The output stream is not ready for writing."},
    {27304, "Cannot open the output file %_ARG1_%: %_ARG2_%."},
    {27305, "Expected the start tag <%_ARG1_%> but found <%_ARG2_%> at %_LOCATION_%."},
    {27306, "Expected the end tag </%_ARG1_%> but found </%_ARG2_%> at %_LOCATION_%."},
    {27307, "The end tag </%_ARG1_%> does not match the start tag <%_ARG2_%> at %_LOCATION_%."},
    {27308,
     "Unsupported markup (XML declaration, comment, processing instruction, CDATA section or document "
     "type declaration) at %_LOCATION_%."},
    {27309, "Cannot open the input file %_ARG1_%: %_ARG2_%."},
    {27310, "line %lld, column %lld, byte %lld"},
    {27311, " of file %s"},
    {27312, "The XML input is not valid."},
    {27313, ": %s at %s, near \"%s\""},
    {27314, "The XML output is not valid."},
    {27315, "Text cannot be converted to the target code page."},
    {27316, "Text holds characters outside ASCII where only ASCII is allowed."},
    {27317, "Text is not valid in its source encoding."},
    {27318, " raised while parsing at "},
    {27319, "Conversion to code page _CPNUM_ produced nothing (error _ERRORNUM_)."},
    {27320, "Writing to the output failed."},
    {27321, "(location not set)"},
    {27322, "Elements nest deeper than the limit of %_ARG1_% levels at %_LOCATION_%."},
    {27323, "Cannot read the input %_ARG1_%: %_ARG2_%."},
    {27324, "A tag or text is longer than the limit of %_ARG1_% bytes at %_LOCATION_%."},
    {27325, "The input ends inside %_ARG1_% open element(s) at %_LOCATION_%."},
    {27326, "The old packet cannot be repaired at %_LOCATION_%."},
};

}  // namespace

const char* AdCatalogueText(long id) {
  for (const CatalogueEntry& e : kCatalogue)
    if (e.id == id) return e.text;
  return nullptr;
}

bool Obx_String::LoadString(long id) {
  const char* text = AdCatalogueText(id);
  *this = text ? FromUtf8(text) : Obx_String();
  return text != nullptr;
}

long AdGetBadValue0MsgID() { return kBadValue0MsgId; }
long AdGetHitUnreachedMsgID() { return kHitUnreachedMsgId; }

Obx_Object::~Obx_Object() = default;
CException::~CException() = default;

void CException::Delete() {
  if (m_bAutoDelete) delete this;
}

QmMessage::QmMessage(long id) : m_id(id) { m_text.LoadString(id); }

QmMessage::QmMessage(const Obx_String& text) : m_id(0), m_text(text) {}

void QmMessage::SetParam(const unsigned short* name, const Obx_String& value) { m_params.SetAt(Obx_String(name), value); }

void QmMessage::SetParam(const char* name, const Obx_String& value) {
  m_params.SetAt(Obx_String::FromUtf8(name), value);
}

Obx_String QmMessage::GetParam(const unsigned short* name) const {
  const Obx_String* value = m_params.PLookup(name);
  return value ? *value : Obx_String();
}

Obx_String QmMessage::GetParam(const char* name) const { return GetParam(Obx_String::FromUtf8(name).GetData()); }

Obx_String QmMessage::FullMsg() const {
  if (m_params.IsEmpty()) return m_text;
  // One pass: a value that happens to hold a parameter name is not expanded
  // again.
  const Obx_StdString& text = m_text.Std();
  Obx_StdString out;
  out.reserve(text.size());
  std::size_t k = 0;
  while (k < text.size()) {
    bool replaced = false;
    for (int p = 0; p < m_params.GetCount(); ++p) {
      const Obx_StdString& name = m_params.KeyAt(p).Std();
      if (!name.empty() && text.compare(k, name.size(), name) == 0) {
        out.append(m_params.ValueAt(p).Std());
        k += name.size();
        replaced = true;
        break;
      }
    }
    if (!replaced) out.push_back(text[k++]);
  }
  return Obx_String(std::move(out));
}

QmMsgException::QmMsgException(const QmMessage& message, const char* text, const char* file, int line)
    : CException(true), m_text(Obx_String::FromUtf8(text)), m_file(file ? file : ""), m_line(line) {
  m_messages.push_back(message);
}

QmMsgException::~QmMsgException() = default;

Obx_String QmMsgException::GetFullText() const {
  Obx_String out;
  for (const QmMessage& m : m_messages) {
    if (!out.IsEmpty()) out.Append(u'\n');
    out.Append(m.GetMessageText());
  }
  if (!m_text.IsEmpty()) {
    if (!out.IsEmpty()) out.Append(NX_U16(u" ["));
    out.Append(m_text);
    if (m_messages.size()) out.Append(u']');
  }
  return out;
}

void AdThrowMsgExcept(long messageId, const char* text, const char* file, int line) {
  AdThrowMsgExcept(QmMessage(messageId), text, file, line);
}

void AdThrowMsgExcept(const QmMessage& message, const char* text, const char* file, int line) {
  throw new QmMsgException(message, text, file, line);
}
