// Start and end tags: names, the named flag, attributes and their typed forms.
#include <new>
#include <stdexcept>

#include "xmlcontent.h"

XmlETag& XmlETag::operator()(const unsigned short* name) {
  m_name = Obx_String(name);
  m_named = m_name.GetLength() != 0 ? 1 : 0;
  return *this;
}

XmlSTag::XmlSTag(const XmlSTag& other) : XmlETag(static_cast<const unsigned short*>(nullptr)) { *this = other; }

XmlSTag& XmlSTag::operator=(const XmlSTag& other) {
  m_named = 0;
  m_name = other.m_name;
  m_converted = other.m_converted;
  // Merge, not replace: attributes this tag has and other lacks survive.
  // Self-assignment rewrites each attribute with its own value.
  if (this != &other) {
    for (int k = 0; k < other.m_attributes.GetCount(); ++k)
      m_attributes.SetAt(other.m_attributes.KeyAt(k), other.m_attributes.ValueAt(k));
  }
  return *this;
}

int XmlSTag::SetAttribute(const unsigned short* name, const Obx_String& value, int overwrite) {
  if (!overwrite && m_attributes.PLookup(name)) return 0;
  // The map throws only what the standard containers throw; a value that
  // cannot be stored shows as the result 0, as a refused one does.
  try {
    m_attributes.SetAt(Obx_String(name), Obx_String(value.GetData()));
  } catch (const std::bad_alloc&) {
    return 0;
  } catch (const std::length_error&) {
    return 0;
  }
  return 1;
}

int XmlSTag::SetAttribute(const unsigned short* name, const unsigned short* value, int overwrite) {
  return SetAttribute(name, Obx_String(value), overwrite);
}

int XmlSTag::SetLongAttr(const unsigned short* name, long value, int overwrite) {
  return SetAttribute(name, AdStr(value), overwrite);
}

int XmlSTag::SetTimeAttr(const unsigned short* name, AdDateTime value, int overwrite) {
  return SetAttribute(name, value.FormatGMT("%Y-%m-%d %H:%M:%S"), overwrite);
}

int XmlSTag::DoesAttributeExist(const unsigned short* name) const { return m_attributes.PLookup(name) ? 1 : 0; }

Obx_String XmlSTag::GetAttributeByName(const unsigned short* name) const {
  const Obx_String* value = m_attributes.PLookup(name);
  return value ? *value : Obx_String();
}

long XmlSTag::GetLongAttr(const unsigned short* name) const { return AdStrToLong(GetAttributeByName(name)); }

AdDateTime XmlSTag::GetTimeAttr(const unsigned short* name) const {
  AdDateTime time;
  // The outcome is not checked: a missing or malformed value leaves the
  // default instant.
  time.ParseDateTimeGMT(GetAttributeByName(name), nullptr);
  return time;
}

void XmlSTag::GetAttributeNames(CStringArray& names) const {
  names.RemoveAll();
  for (int k = 0; k < m_attributes.GetCount(); ++k) names.Add(m_attributes.KeyAt(k));
}
