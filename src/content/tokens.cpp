#include <cxxabi.h>
#include <expat.h>
#include <unicode/uversion.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "nxxml_version.h"
#include "xmlcontent.h"

const char* NxXmlGetVersion() { return NXXML_VERSION_STRING; }

const char* NxXmlGetVersionInfo() {
  static std::string info;
  if (info.empty()) {
    const XML_Expat_Version expat = XML_ExpatVersionInfo();
    char buf[160];
    std::snprintf(buf, sizeof buf, "libnxxmlparser %s (expat %d.%d.%d, ICU %s)", NXXML_VERSION_STRING, expat.major,
                  expat.minor, expat.micro, U_ICU_VERSION);
    info = buf;
  }
  return info.c_str();
}

NXObject::~NXObject() = default;
XmlToken::~XmlToken() = default;
XmlContent::~XmlContent() = default;

const char* NxTypeName(const std::type_info& type) {
  // Demangled once per type; only reached while the reference trace is on.
  static std::map<const std::type_info*, std::string> names;
  auto it = names.find(&type);
  if (it == names.end()) {
    int status = 0;
    char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
    it = names.emplace(&type, status == 0 && demangled ? demangled : type.name()).first;
    std::free(demangled);
  }
  return it->second.c_str();
}

// Entry 4 keeps its historical spelling: messages quote it as it stands.
const unsigned short* const XmlTokenTypeDescriptions[9] = {
    NX_U16(u"an XML start tag"),    NX_U16(u"an XML end tag"),
    NX_U16(u"character data"),      NX_U16(u"an XML reference"),
    NX_U16(u"an XML CD secion"),    NX_U16(u"an XML process instruction"),
    NX_U16(u"a comment"),           NX_U16(u"end of file"),
    NX_U16(u"an illegal token"),
};
