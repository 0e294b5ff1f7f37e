#include <expat.h>

#include "ids.h"
#include "input/helper.h"
#include "xmlstream.h"

namespace {

const char* const kUnit = "xmlstream";
const unsigned short* const AD_IDS_XML_STREAM = NX_U16(u"Xmlstream");

[[noreturn]] void RaiseNameMismatch(long id, const Obx_String& expected, const Obx_String& found,
                                    const Obx_String& location) {
  QmMessage message(id);
  message.SetParam("%_ARG1_%", expected);
  message.SetParam("%_ARG2_%", found);
  message.SetParam("%_LOCATION_%", location);
  AdThrowMsgExcept(message, "", kUnit, __LINE__);
}

}  // namespace

void XmlHelper::NeedTokenType(XmlToken* token, XmlToken_t expected) {
  const XmlToken_t actual = token->GetType();
  if (actual == XT_ILLEGAL) {
    // A queued error: its text is the whole report. It stays at the head.
    // (An element pushed back by the application also reports this type.)
    const XmlCharData* error = dynamic_cast<const XmlCharData*>(token);
    AdThrowMsgExcept(QmMessage(error ? error->GetData() : Obx_String(XmlTokenTypeDescriptions[XT_ILLEGAL])), "",
                     kUnit, __LINE__);
  }
  if (expected == XT_ILLEGAL || expected == actual) return;
  const unsigned short* const* pp = XmlTokenTypeDescriptions;
  AdThrowMsgExcept(QmMessage(Obx_String::Format(27301L, pp[expected], pp[actual])), "", kUnit, __LINE__);
}

XmlToken_t IXmlStream::GetNextTokenType() {
  if (!Parse_More()) return XT_EOF;
  XmlHelper::NeedTokenType(Head(), XT_ILLEGAL);
  return Head()->GetType();
}

XmlToken_t IXmlStream::GetNextTokenType(XmlSTag& tag) {
  const XmlToken_t type = GetNextTokenType();
  if (type == XT_STAG) tag = *static_cast<XmlSTag*>(Head());
  return type;
}

bool IXmlStream::GetNextTokenName(Obx_String& name) {
  const XmlToken_t type = GetNextTokenType();
  if (type != XT_STAG && type != XT_ETAG) return false;
  name = static_cast<XmlETag*>(Head())->GetName();
  return true;
}

IXmlStream& operator>>(IXmlStream& in, XmlSTag& tag) {
  tag.Clean();
  if (!in.Parse_More()) return in;
  XmlToken* token = in.Head();
  XmlHelper::NeedTokenType(token, XT_STAG);
  XmlSTag* head = static_cast<XmlSTag*>(token);
  static const char* const kOperator = "operator >> (IXmlStream&, XmlSTag&)";
  if (AdDiagnostic::m_DiagnosticFlags[47] && AdDiagnostic::IsEnabled(47, 2, 0))
    AdDiagnostic::Report(AD_IDS_XML_STREAM,
                         Obx_String::Format("%s: extracted start tag named: %s", kOperator, head->GetName()));
  // The location rendered is the caller's tag's own, as the caller set it.
  if (tag.m_named && tag.m_name != head->m_name)
    RaiseNameMismatch(27305, tag.m_name, head->m_name, in.RenderSourceLocation(tag.m_location));
  if (head->IsConverted()) {
    // A tag the application put back: already converted, so taken as it is.
    tag = *head;
    in.PopHead();
    return in;
  }
  tag.m_named = 0;
  // The tag remembers where it was read, so later messages about it (and
  // about its element) can name the place.
  tag.m_location = head->m_location;
  // The head is destroyed below: its name and attributes move into the tag
  // (which Clean() left without attributes) rather than being copied.
  tag.m_name = std::move(head->m_name);
  tag.m_attributes = std::move(head->m_attributes);
  XmlConverter* converter = XmlHelper::Converter(in);
  for (int k = 0; k < tag.m_attributes.GetCount(); ++k) {
    const Obx_String& name = tag.m_attributes.KeyAt(k);
    Obx_String& value = tag.m_attributes.ValueAt(k);
    if (AdDiagnostic::m_DiagnosticFlags[47] && AdDiagnostic::IsEnabled(47, 3, 0))
      AdDiagnostic::Report(AD_IDS_XML_STREAM, Obx_String::Format("%s: extracted attr (name, value): (%s,%s)",
                                                                 kOperator, name, value));
    converter->AttrMemoryImage(name, value);
  }
  in.PopHead();
  delete head;
  tag.SetConverted();
  converter->TokenMonitor(in, tag);
  return in;
}

IXmlStream& operator>>(IXmlStream& in, XmlETag& tag) {
  if (!in.Parse_More()) return in;
  XmlToken* token = in.Head();
  XmlHelper::NeedTokenType(token, XT_ETAG);
  XmlETag* head = static_cast<XmlETag*>(token);
  if (tag.m_named && tag.m_name != head->m_name)
    RaiseNameMismatch(27306, tag.m_name, head->m_name, in.RenderSourceLocation(tag.m_location));
  tag.m_named = head->m_named;
  tag.m_name = std::move(head->m_name);
  tag.m_location = head->m_location;
  in.PopHead();
  delete head;
  XmlHelper::Converter(in)->TokenMonitor(in, tag);
  return in;
}

int IXmlStream::GetCharDataUnaccumulated(XmlCharData& text) {
  if (!Parse_More()) return 0;
  XmlToken* token = Head();
  XmlHelper::NeedTokenType(token, XT_CHARDATA);
  XmlCharData* head = static_cast<XmlCharData*>(token);
  text.TakeDataFrom(*head);
  text.m_location = head->m_location;
  PopHead();
  delete head;
  m_converter->TokenMonitor(*this, text);
  return 1;
}

IXmlStream& operator>>(IXmlStream& in, XmlCharData& text) {
  XmlHelper::Accumulate(in) = 1;
  in.GetCharDataUnaccumulated(text);
  XmlHelper::Accumulate(in) = 0;
  return in;
}

IXmlStream& operator>>(IXmlStream& in, XmlElement& element) {
  element.Clean();
  in >> element.GetSTag();
  element.m_location = element.GetSTag().m_location;
  for (;;) {
    switch (in.GetNextTokenType()) {
      case XT_STAG: {
        NXSmartPtr<XmlElement> child(new XmlElement());
        element.AddSubElement(child);
        in >> *child;
        break;
      }
      case XT_ETAG: {
        XmlETag& etag = element.GetETag();
        in >> etag;
        if (etag.GetName() == element.GetSTag().GetName()) return in;
        RaiseNameMismatch(27307, etag.GetName(), element.GetSTag().GetName(),
                          in.RenderSourceLocation(element.m_location));
      }
      case XT_CHARDATA:
      case XT_CDSECTION:
        XmlHelper::ExtractCharDataItem(in, element);
        break;
      case XT_EOF:
        // Cut off by the end of the input: returned as far as it was read.
        return in;
      case XT_ILLEGAL:
        AdThrowMsgExcept(QmMessage(27302), "", kUnit, __LINE__);
      default:
        break;
    }
  }
}

void XmlHelper::ExtractCharDataItem(IXmlStream& in, XmlElement& element) {
  in.m_accumulate = 1;
  int more;
  try {
    more = in.Parse_More();
  } catch (...) {
    // Reading into a new item would have left it empty in the element.
    element.AddCharData(NX_U16(u""));
    throw;
  }
  XmlToken* token = more ? in.Head() : nullptr;
  // The queued token is a plain, unshared text of the stream's own making:
  // it becomes the element's item itself instead of handing its text over
  // to a new one. Anything else (a token the application pushed) is read
  // into a new item as usual.
  if (token && token->GetType() == XT_CHARDATA && typeid(*token) == typeid(XmlCharData) &&
      token->GetRefCount() == 0) {
    XmlCharData* head = static_cast<XmlCharData*>(token);
    in.PopHead();
    NXSmartPtr<XmlCharData> item(head);
    element.AddCharData(item);
    in.m_converter->TokenMonitor(in, *head);
    in.m_accumulate = 0;
    return;
  }
  NXSmartPtr<XmlCharData> data = element.AddCharData(NX_U16(u""));
  in >> *data;
}

void IXmlStream::SkipElement() {
  XmlToken_t type = GetNextTokenType();
  int depth = 0;
  for (;;) {
    switch (type) {
      case XT_STAG:
        ++depth;
        SkipToken();
        break;
      case XT_ETAG:
        SkipToken();
        if (--depth == 0) return;
        break;
      case XT_CHARDATA:
        SkipToken();
        if (depth == 0) return;
        break;
      case XT_EOF:
        return;
      default:
        SkipToken();
        break;
    }
    type = GetNextTokenType();
  }
}

namespace {
const char kLabelBegin[] = "<queazy>";
const char kLabelEnd[] = "</queazy>";
}  // namespace

void IXmlStream::SetEmbeddedElementMode(int on) {
  if (on) {
    // An artificial root goes to expat ahead of the source, so the source
    // may hold any number of top-level elements; its tag is then dropped.
    ParseBytes(kLabelBegin, 8, 0);
    m_embedded = true;
    XmlSTag root(static_cast<const unsigned short*>(nullptr));
    *this >> root;
  } else {
    if (m_finished) return;
    m_finished = true;
    m_embedded = false;
    // Expat is told here that the input has ended; what that reveals (a cut
    // last element) is raised by the read below, at its place.
    const long long start = m_bytesParsed;
    if (!ParseBytes(kLabelEnd, 9, 1) && !m_parseStopped) QueueParseError(kLabelEnd, 9, start);
    m_parseStopped = true;
    XmlETag root(static_cast<const unsigned short*>(nullptr));
    *this >> root;
  }
}

void IXmlStream::CloseEmbedded() {
  m_embedded = false;
  // An element left open would only meet the artificial end tag: say what
  // it is instead of reporting a mismatch with a tag the input never had.
  if (m_depth > 1) {
    RefuseAndStop(nxmsg::kEndsInsideMsgId, m_depth - 1);
    return;
  }
  // A failure here lies in what the input left unfinished, never in the
  // artificial end tag: no excerpt of that tag is shown.
  if (!ParseBytes(kLabelEnd, 9, 1)) {
    if (!m_parseStopped) QueueParseError(nullptr, 0, m_bytesParsed);
    return;
  }
  // The artificial end tag is the last token; the reader never sees it.
  if (!m_tokens.empty() && m_tokens.back()->GetType() == XT_ETAG) {
    delete m_tokens.back();
    m_tokens.pop_back();
  }
}
