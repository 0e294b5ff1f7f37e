// Elements: building, deep copying and querying a tree of content items.
#include "xmlcontent.h"

namespace {

XmlElement* AsElement(XmlContent* item) { return dynamic_cast<XmlElement*>(item); }

// Room for one more item. The first allocation takes three slots, which
// costs no more than one from the allocator (its smallest block holds
// three pointers): a leaf's single text fits it, and a record's few fields
// need one or two regrowths instead of four.
// Appends an item, shared: one reference more, no copy.
template <class T>
void Append(std::vector<NXSmartPtr<XmlContent>>& content, const NXSmartPtr<T>& item) {
  if (content.size() == content.capacity()) content.reserve(content.empty() ? 3 : 2 * content.size());
  content.emplace_back(item);
}

// A new item appended and handed back, so the caller can fill it in place.
template <class T>
NXSmartPtr<T> AppendNew(std::vector<NXSmartPtr<XmlContent>>& content, T* item) {
  NXSmartPtr<T> held(item);
  Append(content, held);
  return held;
}
XmlCharData* AsCharData(XmlContent* item) { return dynamic_cast<XmlCharData*>(item); }

}  // namespace

XmlElement::XmlElement() = default;

XmlElement::XmlElement(const unsigned short* name) : m_stag(name), m_etag(name) {}

XmlElement::XmlElement(const Obx_String& name) : m_stag(name), m_etag(name) {}

XmlElement::XmlElement(const XmlElement& other) : XmlElement() { *this = other; }

XmlElement& XmlElement::operator=(const XmlElement& other) {
  m_stag = other.m_stag;
  // The end tag takes the other's name and named flag; its own location
  // stays, as the start tag's does.
  const XmlSourceLocation location = m_etag.m_location;
  m_etag = other.m_etag;
  m_etag.m_location = location;

  // Taking the count once makes self-assignment double the content instead
  // of chasing the items it appends. The index is re-read each time because
  // appending to this element may move other's array when both are the same.
  const std::size_t count = other.m_content.size();
  for (std::size_t k = 0; k < count; ++k) {
    const NXSmartPtr<XmlContent> item = other.m_content[k];
    if (XmlElement* element = AsElement(item.get()))
      AddSubElement(*element);
    else if (XmlCharData* data = AsCharData(item.get()))
      AddCharData(*data);
  }
  return *this;
}

XmlElement::~XmlElement() { DropContent(); }

void XmlElement::DropContent() {
  for (NXSmartPtr<XmlContent>& item : m_content) item.reset();
  m_content.clear();
}

void XmlElement::Clean() {
  DropContent();
  m_stag.Clean();
}

void XmlElement::AddSubElement(NXSmartPtr<XmlElement>& element) { Append(m_content, element); }

void XmlElement::AddSubElement(const XmlElement& element) {
  AppendNew(m_content, new XmlElement(element));
}

NXSmartPtr<XmlElement> XmlElement::AddSubElement(const Obx_String& name) {
  return AppendNew(m_content, new XmlElement(name));
}

NXSmartPtr<XmlElement> XmlElement::AddSubElement(const unsigned short* name) {
  return AppendNew(m_content, new XmlElement(name));
}

void XmlElement::AddCharData(NXSmartPtr<XmlCharData>& data) { Append(m_content, data); }

void XmlElement::AddCharData(const XmlCharData& data) {
  AppendNew(m_content, new XmlCharData(data));
}

NXSmartPtr<XmlCharData> XmlElement::AddCharData(const Obx_String& text) {
  return AppendNew(m_content, new XmlCharData(text));
}

NXSmartPtr<XmlCharData> XmlElement::AddCharData(const unsigned short* text) {
  return AppendNew(m_content, new XmlCharData(text, -1));
}

NXSmartPtr<XmlCharData> XmlElement::AddTimeData(AdDateTime value) {
  return AddCharData(value.FormatGMT("%Y-%m-%d %H:%M:%S"));
}

NXSmartPtr<XmlCharData> XmlElement::AddLongData(long value) { return AddCharData(AdStr(value)); }

int XmlElement::GetNumberofSubElements() const {
  int count = 0;
  for (auto it = m_content.rbegin(); it != m_content.rend(); ++it)
    if (AsElement(it->get())) ++count;
  return count;
}

NXSmartPtr<XmlElement> XmlElement::GetSubElement(int n) const {
  if (n < 0) return NXSmartPtr<XmlElement>();
  for (const NXSmartPtr<XmlContent>& item : m_content) {
    if (XmlElement* element = AsElement(item.get())) {
      if (n == 0) return NXSmartPtr<XmlElement>(element);
      --n;
    }
  }
  return NXSmartPtr<XmlElement>();
}

NXSmartPtr<XmlElement> XmlElement::GetSubElement(const unsigned short* name) const {
  for (const NXSmartPtr<XmlContent>& item : m_content) {
    XmlElement* element = AsElement(item.get());
    if (element && element->m_stag.GetName() == name) return NXSmartPtr<XmlElement>(element);
  }
  return NXSmartPtr<XmlElement>();
}

NXSmartPtr<XmlElement> XmlElement::GetLastSubElement(const unsigned short* name) const {
  for (auto it = m_content.rbegin(); it != m_content.rend(); ++it) {
    XmlElement* element = AsElement(it->get());
    if (element && element->m_stag.GetName() == name) return NXSmartPtr<XmlElement>(element);
  }
  return NXSmartPtr<XmlElement>();
}

NXSmartPtr<XmlCharData> XmlElement::GetContentAsCharData(int i) const {
  if (i < 0 || i >= GetContentCount()) return NXSmartPtr<XmlCharData>();
  return NXSmartPtr<XmlCharData>(AsCharData(m_content[static_cast<std::size_t>(i)].get()));
}

NXSmartPtr<XmlElement> XmlElement::GetContentAsElement(int i) const {
  if (i < 0 || i >= GetContentCount()) return NXSmartPtr<XmlElement>();
  return NXSmartPtr<XmlElement>(AsElement(m_content[static_cast<std::size_t>(i)].get()));
}

int XmlElement::GetContentByIndex(NXSmartPtr<XmlContent>& item, int i) const {
  // These codes are this operation's own, not token types.
  if (i < 0 || i >= GetContentCount()) return 6;
  item = m_content[static_cast<std::size_t>(i)];
  if (item.get() == nullptr) {
    get_nxcout() << "*** error from GetElementByIndex" << AdUTF16OStream::endl;
    return 6;
  }
  if (AsCharData(item.get())) return 0;
  if (AsElement(item.get())) return 1;
  get_nxcout() << "*** error from GetElementByIndex" << AdUTF16OStream::endl;
  return 6;
}
