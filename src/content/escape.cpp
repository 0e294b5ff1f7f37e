// escape_attr_value: escaping a UTF-16 text in place with the images' table.
#include "content/escape.h"

void escape_attr_value(bool attributeMode, Obx_String& text) {
  const XmlEscape mode = attributeMode ? XmlEscape::ATTRIBUTE : XmlEscape::CHARDATA;
  // The capacity estimate counts every unit of the table, whatever the mode.
  const Obx_StdString& in = text.Std();
  std::size_t estimate = in.size();
  for (unsigned short u : in)
    if (EscapeClass(XmlEscape::ATTRIBUTE, u)) estimate += 6;
  if (estimate == in.size()) return;

  Obx_StdString out;
  out.reserve(estimate);
  for (unsigned short u : in) {
    if (const unsigned k = EscapeClass(mode, u)) {
      const XmlEscapeRow& row = nx_EMap[k - 1];
      out.append(row.text, row.text + row.length);
    } else {
      out.push_back(u);
    }
  }
  text = Obx_String(std::move(out));
}
