#include "content/escape.h"
#include "xmlcontent.h"

namespace {

const char* const kUnit = "xmlcontent";

struct EscapeRow {
  unsigned short unit;
  const char16_t* text;
};

// Searched in this order. Tab and line ends are written as references in
// character data too, so that a reader's line-end normalisation cannot
// change them.
const EscapeRow nx_EMap[8] = {
    {0x26, u"&amp;"}, {0x3C, u"&lt;"},  {0x3E, u"&gt;"},  {0x27, u"&apos;"},
    {0x22, u"&quot;"}, {0x09, u"&#x9;"}, {0x0A, u"&#xA;"}, {0x0D, u"&#xD;"},
};

const EscapeRow* FindRow(unsigned short unit) {
  // Every escaped unit is below 0x3F: one compare rejects most text.
  if (unit > 0x3E) return nullptr;
  for (const EscapeRow& row : nx_EMap)
    if (row.unit == unit) return &row;
  return nullptr;
}

// Room guesses for a start tag's attributes.
const int keyLengthGuess = 8;
const int valLengthGuess = 10;
const int extraRoomGuess = 10;

}  // namespace

void escape_attr_value(bool attributeMode, Obx_String& text) {
  const Obx_StdString& in = text.Std();
  std::size_t estimate = in.size();
  for (unsigned short u : in)
    if (FindRow(u)) estimate += 6;
  if (estimate == in.size()) return;

  Obx_StdString out;
  out.reserve(estimate);
  for (unsigned short u : in) {
    const EscapeRow* row = FindRow(u);
    if (row && !attributeMode && (u == 0x27 || u == 0x22)) row = nullptr;
    if (row)
      out.append(NX_U16(row->text));
    else
      out.push_back(u);
  }
  text = Obx_String(std::move(out));
}

Obx_String XmlETag::GetImage(XmlConverter* c) const {
  const unsigned short* name = c ? c->TagNameImage(m_name) : m_name.GetData();
  AD_ASSERT_TEXT(AdIsNonEmpty(name), "AdIsNonEmpty(name)", kUnit);
  Obx_String image(NX_U16(u"</"));
  image.Append(name);
  image.Append(u'>');
  return image;
}

Obx_String XmlSTag::GetImage(XmlConverter* c) const { return GetImage(NX_U16(u">"), c); }

Obx_String XmlSTag::GetImage(const unsigned short* terminator, XmlConverter* c) const {
  const bool hasAttributes = !m_attributes.IsEmpty();
  const unsigned short* name = c ? c->TagNameImage(m_name) : m_name.GetData();
  AD_ASSERT_TEXT(AdIsNonEmpty(name), "AdIsNonEmpty(name)", kUnit);

  Obx_String image;
  image.Append(u'<');
  image.Append(name);

  Obx_String inlineImage;
  if (!m_inlineText.IsEmpty()) {
    inlineImage = m_inlineText;
    escape_attr_value(false, inlineImage);
    AD_ASSERT_TEXT(c != nullptr, "cvrtr != __null", kUnit);
    c->AttrStreamImage(m_name, inlineImage);
  }

  AdCStringReserveSpace(image, inlineImage.GetLength() + image.GetLength() +
                                   (keyLengthGuess + valLengthGuess + extraRoomGuess) * m_attributes.GetCount());
  for (int k = 0; k < m_attributes.GetCount(); ++k) {
    const unsigned short* attrName = m_attributes.KeyAt(k);
    Obx_String value = m_attributes.ValueAt(k);
    if (c) {
      c->AttrStreamImage(attrName, value);
      attrName = c->AttrNameImage(*this, attrName, value);
    }
    escape_attr_value(true, value);
    const int attrNameLength = _tcslen(attrName);
    AdCStringReserveSpace(image,
                          inlineImage.GetLength() + value.GetLength() + attrNameLength + image.GetLength() + 10);
    image.Append(u' ');
    image.Append(attrName, attrNameLength);
    image.Append(u'=');
    image.Append(u'"');
    image.Append(value);
    image.Append(u'"');
  }
  image.Append(terminator);
  // A start tag with attributes ends its line; one without stays inline.
  // Readers rely on both: the line feed is absorbed as the first line end
  // after a tag.
  if (hasAttributes) image.Append(u'\n');
  image.Append(inlineImage);
  return image;
}

Obx_String XmlCharData::GetImage(XmlConverter*) const {
  Obx_String image(m_data);
  escape_attr_value(false, image);
  return image;
}

Obx_String XmlElement::GetImage(XmlConverter* c) const {
  AD_ASSERT_TEXT(AdIsEqualNoCase(m_stag.GetName(), m_etag.GetName()),
                 "AdIsEqualNoCase(m_stag.GetName(), m_etag.GetName())", kUnit);
  if (m_content.empty()) return m_stag.GetImage(NX_U16(u"/>"), c);

  // Every part is rendered first and the whole reserved once, so that a
  // large tree is copied once per level instead of regrown item by item.
  Obx_String image = m_stag.GetImage(NX_U16(u">"), c);
  std::vector<Obx_String> items;
  items.reserve(m_content.size());
  std::size_t total = static_cast<std::size_t>(image.GetLength());
  for (const NXSmartPtr<XmlContent>& item : m_content) {
    items.push_back(item->GetImage(c));
    total += static_cast<std::size_t>(items.back().GetLength());
  }
  const Obx_String end = m_etag.GetImage(c);
  total += static_cast<std::size_t>(end.GetLength());
  AdCStringReserveSpace(image, static_cast<int>(total + 1));
  for (const Obx_String& item : items) image.Append(item);
  image.Append(end);
  return image;
}

XmlConverter::~XmlConverter() = default;

void XmlConverter::AttrStreamImage(const unsigned short*, Obx_String& value) { escape_attr_value(false, value); }

void XmlConverter::AttrMemoryImage(const unsigned short*, Obx_String&) {}

const unsigned short* XmlConverter::AttrNameImage(const XmlSTag&, const unsigned short* name,
                                                  const unsigned short*) {
  return name;
}

const unsigned short* XmlConverter::TagNameImage(const unsigned short* name) { return name; }

void XmlConverter::TokenMonitor(IXmlStream&, XmlToken&) {}
