// The escape table of the images and the ways a text is escaped in them,
// written once for the UTF-16 images, the UTF-8 renderer and
// escape_attr_value.
#pragma once

#include <cstddef>

#include "nxstrings.h"

// How a text is escaped in an image.
enum class XmlEscape : unsigned char {
  RAW,        // as it is: names, markup, images made elsewhere
  CHARDATA,   // & < > and tab, line feed, carriage return as references
  ATTRIBUTE,  // those and both quotation marks
};

struct XmlEscapeRow {
  unsigned short unit;
  const char* text;  // ASCII
  std::size_t length;
};

// Searched in this order. Tab and line ends are written as references in
// character data too, so that a reader's line-end normalisation cannot
// change them; the greater-than sign is always escaped.
inline constexpr XmlEscapeRow nx_EMap[8] = {
    {0x26, "&amp;", 5}, {0x3C, "&lt;", 4},   {0x3E, "&gt;", 4},   {0x27, "&apos;", 6},
    {0x22, "&quot;", 6}, {0x09, "&#x9;", 5}, {0x0A, "&#xA;", 5}, {0x0D, "&#xD;", 5},
};

// Every unit of the table is below this.
inline constexpr unsigned kEscapeLimit = 0x3F;

// Whether row k of nx_EMap applies in mode: attribute mode escapes all
// eight, character data leaves the apostrophe and the quotation mark alone.
constexpr bool EscapeRowApplies(std::size_t k, XmlEscape mode) {
  if (mode == XmlEscape::RAW) return false;
  return mode == XmlEscape::ATTRIBUTE || (nx_EMap[k].unit != 0x27 && nx_EMap[k].unit != 0x22);
}

// For each mode and each unit below kEscapeLimit: 1 + the row of nx_EMap
// that escapes it, or 0.
struct XmlEscapeClasses {
  unsigned char of[3][kEscapeLimit] = {};
  constexpr XmlEscapeClasses() {
    for (int mode = 0; mode < 3; ++mode)
      for (std::size_t k = 0; k < 8; ++k)
        if (EscapeRowApplies(k, static_cast<XmlEscape>(mode)))
          of[mode][nx_EMap[k].unit] = static_cast<unsigned char>(k + 1);
  }
};
inline constexpr XmlEscapeClasses kEscapeClasses{};

// 1 + the row that escapes u in mode, or 0 when u stays as it is.
inline unsigned EscapeClass(XmlEscape mode, unsigned u) {
  return u < kEscapeLimit ? kEscapeClasses.of[static_cast<int>(mode)][u] : 0;
}

// Escapes text in place: attribute mode (true) or character data. Text with
// nothing from the table is neither touched nor reallocated.
void escape_attr_value(bool attributeMode, Obx_String& text);
