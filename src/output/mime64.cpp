#include "output/mime64.h"

Obx_String AdXmlMimeStreamHelper::Read() {
  if (m_input->GetNextTokenType() != XT_CHARDATA) return Obx_String();
  m_input->GetCharDataUnaccumulated(m_charData);
  return m_charData.GetData();
}

void AdXmlMimeStreamHelper::Write(const unsigned short* text) { *m_output << text; }

OXmlStream& OXmlStream::Mime64_Encode_File(const unsigned short* fileName) {
  AdXmlMimeStreamHelper helper(this);
  AdMimeUtil util;
  util.EncodeFileToStream(fileName, helper);
  return *this;
}
