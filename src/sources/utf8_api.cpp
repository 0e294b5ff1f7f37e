#include "convert/convert_private.h"
#include "xmlstream.h"

IXmlStreamMultiFileSource::IXmlStreamMultiFileSource(const std::vector<std::string>& fileNames) {
  for (const std::string& name : fileNames) m_fileNames.Add(nxconvert::PlainUTF82CString(name));
}
