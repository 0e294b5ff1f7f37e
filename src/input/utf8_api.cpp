#include "convert/convert_private.h"
#include "xmlstream.h"

IXmlStream::IXmlStream(const std::vector<std::string>& fileNames, bool asciiOnly, bool lenientDecoding)
    : IXmlStream(new IXmlStreamMultiFileSource(fileNames), asciiOnly, lenientDecoding) {}

bool IXmlStream::GetNextTokenName(std::string& name) {
  Obx_String units;
  if (!GetNextTokenName(units)) return false;
  name = units.ToUtf8();
  return true;
}
