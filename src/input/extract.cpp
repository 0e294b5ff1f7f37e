// Typed extraction: the readers that take tokens from the head of the
// queue into the caller's objects, checking their type and name, the
// look-ahead queries, skipping, and embedded element mode.
#include <expat.h>

#include "ids.h"
#include "input/queue.h"
#include "xmlstream.h"

using namespace nxmsg;

namespace {

[[noreturn]] void RaiseNameMismatch(long id, const Obx_String& expected, const Obx_String& found,
                                    const Obx_String& location) {
  QmMessage message(id);
  message.SetParam("%_ARG1_%", expected);
  message.SetParam("%_ARG2_%", found);
  message.SetParam("%_LOCATION_%", location);
  AdThrowMsgExcept(message, "", kStreamUnit, __LINE__);
}

}  // namespace

XmlToken_t IXmlStream::GetNextTokenType() {
  if (!Parse_More()) return XT_EOF;
  m_tokens->NeedHeadType(XT_ILLEGAL);
  return m_tokens->Head()->GetType();
}

XmlToken_t IXmlStream::GetNextTokenType(XmlSTag& tag) {
  const XmlToken_t type = GetNextTokenType();
  if (type == XT_STAG) tag = *static_cast<XmlSTag*>(m_tokens->Head());
  return type;
}

bool IXmlStream::GetNextTokenName(Obx_String& name) {
  const XmlToken_t type = GetNextTokenType();
  if (type != XT_STAG && type != XT_ETAG) return false;
  name = static_cast<XmlETag*>(m_tokens->Head())->GetName();
  return true;
}

IXmlStream& operator>>(IXmlStream& in, XmlSTag& tag) {
  tag.Clean();
  if (!in.Parse_More()) return in;
  XmlTokenQueue& tokens = *in.m_tokens;
  tokens.NeedHeadType(XT_STAG);
  XmlSTag* head = static_cast<XmlSTag*>(tokens.Head());
  static const char* const kOperator = "operator >> (IXmlStream&, XmlSTag&)";
  if (AdDiagnostic::m_DiagnosticFlags[kExtractTraceDiagId] && AdDiagnostic::IsEnabled(kExtractTraceDiagId, 2, 0))
    AdDiagnostic::Report(AD_IDS_XML_STREAM,
                         Obx_String::Format("%s: extracted start tag named: %s", kOperator, head->GetName()));
  // The location rendered is the caller's tag's own, as the caller set it.
  if (tag.m_named && tag.m_name != head->m_name)
    RaiseNameMismatch(kSTagMismatchMsgId, tag.m_name, head->m_name, in.RenderSourceLocation(tag.m_location));
  if (head->IsConverted()) {
    // A tag the application put back: already converted, so taken as it is.
    tag = *head;
    tokens.Pop();
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
  XmlConverter* converter = in.m_converter.get();
  for (int k = 0; k < tag.m_attributes.GetCount(); ++k) {
    const Obx_String& name = tag.m_attributes.KeyAt(k);
    Obx_String& value = tag.m_attributes.ValueAt(k);
    if (AdDiagnostic::m_DiagnosticFlags[kExtractTraceDiagId] && AdDiagnostic::IsEnabled(kExtractTraceDiagId, 3, 0))
      AdDiagnostic::Report(AD_IDS_XML_STREAM, Obx_String::Format("%s: extracted attr (name, value): (%s,%s)",
                                                                 kOperator, name, value));
    converter->AttrMemoryImage(name, value);
  }
  tokens.DropHead();
  tag.SetConverted();
  converter->TokenMonitor(in, tag);
  return in;
}

IXmlStream& operator>>(IXmlStream& in, XmlETag& tag) {
  if (!in.Parse_More()) return in;
  XmlTokenQueue& tokens = *in.m_tokens;
  tokens.NeedHeadType(XT_ETAG);
  XmlETag* head = static_cast<XmlETag*>(tokens.Head());
  if (tag.m_named && tag.m_name != head->m_name)
    RaiseNameMismatch(kETagMismatchMsgId, tag.m_name, head->m_name, in.RenderSourceLocation(tag.m_location));
  tag.m_named = head->m_named;
  tag.m_name = std::move(head->m_name);
  tag.m_location = head->m_location;
  tokens.DropHead();
  in.m_converter->TokenMonitor(in, tag);
  return in;
}

int IXmlStream::GetCharDataUnaccumulated(XmlCharData& text) {
  if (!Parse_More()) return 0;
  m_tokens->NeedHeadType(XT_CHARDATA);
  XmlCharData* head = static_cast<XmlCharData*>(m_tokens->Head());
  text.TakeDataFrom(*head);
  text.m_location = head->m_location;
  m_tokens->DropHead();
  m_converter->TokenMonitor(*this, text);
  return 1;
}

IXmlStream& operator>>(IXmlStream& in, XmlCharData& text) {
  XmlTokenQueue::WholeText whole(*in.m_tokens);
  in.GetCharDataUnaccumulated(text);
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
        RaiseNameMismatch(kElementMismatchMsgId, etag.GetName(), element.GetSTag().GetName(),
                          in.RenderSourceLocation(element.m_location));
      }
      case XT_CHARDATA:
      case XT_CDSECTION:
        in.ExtractCharDataItem(element);
        break;
      case XT_EOF:
        // Cut off by the end of the input: returned as far as it was read.
        return in;
      case XT_ILLEGAL:
        // The type query raises on a head of this type (a queued error, or
        // an element put back): it never answers it.
        AdThrowMsgExcept(QmMessage(AdGetHitUnreachedMsgID()), "", kStreamUnit, __LINE__);
      default:
        break;
    }
  }
}

void IXmlStream::ExtractCharDataItem(XmlElement& element) {
  XmlTokenQueue::WholeText whole(*m_tokens);
  int more;
  try {
    more = Parse_More();
  } catch (...) {
    // Reading into a new item would have left it empty in the element.
    element.AddCharData(NX_U16(u""));
    throw;
  }
  XmlToken* token = more ? m_tokens->Head() : nullptr;
  // The queued token is a plain, unshared text of the stream's own making:
  // it becomes the element's item itself instead of handing its text over
  // to a new one. Anything else (a token the application pushed) is read
  // into a new item as usual.
  if (token && token->GetType() == XT_CHARDATA && typeid(*token) == typeid(XmlCharData) &&
      token->GetRefCount() == 0) {
    NXSmartPtr<XmlCharData> item(static_cast<XmlCharData*>(m_tokens->Pop()));
    element.AddCharData(item);
    m_converter->TokenMonitor(*this, *item);
    return;
  }
  NXSmartPtr<XmlCharData> data = element.AddCharData(NX_U16(u""));
  *this >> *data;
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

void IXmlStream::SetEmbeddedElementMode(int on) {
  if (on) {
    OpenEmbeddedRoot();
    // The artificial start tag is taken off the queue, unnamed, unchecked.
    XmlSTag root(static_cast<const unsigned short*>(nullptr));
    *this >> root;
  } else {
    if (m_finished) return;
    CloseEmbeddedRoot();
    XmlETag root(static_cast<const unsigned short*>(nullptr));
    *this >> root;
  }
}
