// The adaptor between the platform's base64 utility and the XML streams:
// base64 text is the character data of an element.
#pragma once

#include "nxmime.h"
#include "xmlstream.h"

class AdXmlMimeStreamHelper : public AdMimeStreamHelper {
 public:
  explicit AdXmlMimeStreamHelper(IXmlStream* input) : m_input(input) {}
  explicit AdXmlMimeStreamHelper(OXmlStream* output) : m_output(output) {}

  // The text of the next character-data token, as the parser delivered it
  // (not merged with the pieces after it); empty when the next token is
  // anything else, which is left unread.
  Obx_String Read() override;
  // Writes the text through the output stream, counted and limited like
  // everything else written there.
  void Write(const unsigned short* text) override;

 private:
  IXmlStream* m_input = nullptr;
  OXmlStream* m_output = nullptr;
  XmlCharData m_charData{NX_U16(u"")};
};
