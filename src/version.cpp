// The version identification of the library, for the application's version
// tooling.
#include <expat.h>
#include <unicode/uversion.h>

#include <cstdio>
#include <string>

#include "nxxml_version.h"
#include "xmlcontent.h"

const char* NxXmlGetVersion() { return NXXML_VERSION_STRING; }

const char* NxXmlGetVersionInfo() {
  // Built by the first caller; a static's initialisation is safe when two
  // threads make that call at once.
  static const std::string info = [] {
    const XML_Expat_Version expat = XML_ExpatVersionInfo();
    char buf[160];
    std::snprintf(buf, sizeof buf, "libnxxmlparser %s (expat %d.%d.%d, ICU %s)", NXXML_VERSION_STRING, expat.major,
                  expat.minor, expat.micro, U_ICU_VERSION);
    return std::string(buf);
  }();
  return info.c_str();
}
