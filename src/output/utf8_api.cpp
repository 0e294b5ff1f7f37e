#include "convert/convert_private.h"
#include "xmlstream.h"

// The decoded name lives until the delegated constructor has copied it.
OXmlStream::OXmlStream(std::string_view fileName, long long maxSize, int maxFiles)
    : OXmlStream(nxconvert::PlainUTF82CString(fileName).GetData(), maxSize, maxFiles) {}

OXmlStream& operator<<(OXmlStream& out, std::string_view text) {
  const Obx_String units = nxconvert::PlainUTF82CString(text);
  // Its length is known, so a zero unit inside is written rather than ending it.
  if (!units.IsEmpty()) out.write(units.GetData(), units.GetLength());
  return out;
}
