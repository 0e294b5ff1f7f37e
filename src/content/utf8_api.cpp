// The UTF-8 forms of the content model: each decodes its text once, strictly,
// and hands the UTF-16 result to the form it mirrors, so both behave alike.
#include "convert/convert_private.h"
#include "xmlcontent.h"

using nxconvert::PlainUTF82CString;

XmlETag::XmlETag(std::string_view name) : m_name(PlainUTF82CString(name)) {}

XmlETag& XmlETag::operator()(std::string_view name) { return (*this)(PlainUTF82CString(name).GetData()); }

XmlSTag::XmlSTag(std::string_view name) : XmlETag(name) {}

int XmlSTag::SetAttribute(std::string_view name, std::string_view value, int overwrite) {
  // Both decoded before anything changes: a malformed value leaves the tag as it was.
  const Obx_String units = PlainUTF82CString(name);
  return SetAttribute(units.GetData(), PlainUTF82CString(value), overwrite);
}

int XmlSTag::SetLongAttr(std::string_view name, long value, int overwrite) {
  return SetLongAttr(PlainUTF82CString(name).GetData(), value, overwrite);
}

int XmlSTag::SetTimeAttr(std::string_view name, AdDateTime value, int overwrite) {
  return SetTimeAttr(PlainUTF82CString(name).GetData(), value, overwrite);
}

int XmlSTag::DoesAttributeExist(std::string_view name) const {
  return DoesAttributeExist(PlainUTF82CString(name).GetData());
}

Obx_String XmlSTag::GetAttributeByName(std::string_view name) const {
  return GetAttributeByName(PlainUTF82CString(name).GetData());
}

std::string XmlSTag::GetAttributeUtf8(std::string_view name) const {
  const Obx_String* value = m_attributes.PLookup(PlainUTF82CString(name).GetData());
  return value ? value->ToUtf8() : std::string();
}

long XmlSTag::GetLongAttr(std::string_view name) const { return GetLongAttr(PlainUTF82CString(name).GetData()); }

AdDateTime XmlSTag::GetTimeAttr(std::string_view name) const {
  return GetTimeAttr(PlainUTF82CString(name).GetData());
}

void XmlSTag::GetAttributeNames(std::vector<std::string>& names) const {
  names.clear();
  for (const XmlAttribute attribute : Attributes()) names.push_back(attribute.name.ToUtf8());
}

void XmlSTag::SetInlineText(std::string_view text) { m_inlineText = PlainUTF82CString(text); }

XmlCharData::XmlCharData(std::string_view data) : m_data(PlainUTF82CString(data)) {}

void XmlCharData::AppendData(std::string_view data) {
  // Appended whole: unlike the UTF-16 form this one knows its length, so a
  // zero unit inside the text is kept rather than ending the copy.
  m_data.Append(PlainUTF82CString(data));
  if (m_capacity < m_data.GetLength()) m_capacity = m_data.GetLength();
}

XmlElement::XmlElement(std::string_view name) : XmlElement(PlainUTF82CString(name)) {}

NXSmartPtr<XmlElement> XmlElement::AddSubElement(std::string_view name) {
  return AddSubElement(PlainUTF82CString(name));
}

NXSmartPtr<XmlCharData> XmlElement::AddCharData(std::string_view text) { return AddCharData(PlainUTF82CString(text)); }

NXSmartPtr<XmlElement> XmlElement::GetSubElement(std::string_view name) const {
  return GetSubElement(PlainUTF82CString(name).GetData());
}

NXSmartPtr<XmlElement> XmlElement::GetLastSubElement(std::string_view name) const {
  return GetLastSubElement(PlainUTF82CString(name).GetData());
}

XmlContentRange<XmlElement> XmlElement::SubElements(std::string_view name) const {
  return XmlContentRange<XmlElement>(m_content, PlainUTF82CString(name));
}
