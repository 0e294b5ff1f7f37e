#include "convert/convert_private.h"
#include "xmlcontent.h"

Obx_String XmlElement::GetText() const {
  Obx_String text;
  for (const XmlContent& item : Content())
    if (const XmlCharData* data = item.ToCharData()) text.Append(data->GetData());
  return text;
}

std::string XmlElement::GetTextUtf8() const { return GetText().ToUtf8(); }

void XmlElement::SetText(const Obx_String& text) {
  // Everything that can fail (the new item, the new array) comes before the
  // first item moves, so a failure leaves the element as it was.
  NXSmartPtr<XmlContent> replacement;
  if (!text.IsEmpty()) replacement = new XmlCharData(text);
  std::vector<NXSmartPtr<XmlContent>> kept;
  kept.reserve(m_content.size() + 1);
  std::size_t place = m_content.size();
  for (NXSmartPtr<XmlContent>& item : m_content) {
    if (item && item->ToCharData()) {
      if (place == m_content.size()) place = kept.size();
    } else {
      kept.push_back(std::move(item));
    }
  }
  if (place > kept.size()) place = kept.size();
  if (replacement) kept.insert(kept.begin() + static_cast<std::ptrdiff_t>(place), std::move(replacement));
  // The dropped items are released with the old array, in order.
  m_content.swap(kept);
}

void XmlElement::SetText(std::string_view text) { SetText(nxconvert::PlainUTF82CString(text)); }
