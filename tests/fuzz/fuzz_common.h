// What the fuzz targets share: reading a stream to its end the way a
// careful reader does, and a folder of their own for targets that write
// files.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "xmlstream.h"

namespace fuzz {

// One line per token: kind, name, attributes in order, text.
inline std::string Describe(const XmlToken& token) {
  switch (token.GetType()) {
    case XT_STAG: {
      const XmlSTag& tag = static_cast<const XmlSTag&>(token);
      std::string out = "S " + tag.GetName().ToUtf8();
      const CMapStringToString& map = tag.GetAttributes();
      for (int k = 0; k < map.GetCount(); ++k) out += " " + map.KeyAt(k).ToUtf8() + "=" + map.ValueAt(k).ToUtf8();
      return out;
    }
    case XT_ETAG:
      return "E " + static_cast<const XmlETag&>(token).GetName().ToUtf8();
    default:
      return "T " + static_cast<const XmlCharData&>(token).GetData().ToUtf8();
  }
}

// Every token up to the end (Finish included) or the first error, which
// ends the list; onToken sees each token before it is freed.
template <class F>
bool ReadToTheEnd(IXmlStream& in, F onToken) {
  try {
    do {
      while (XmlToken* raw = in.GetNextToken()) {
        NXSmartPtr<XmlToken> token(raw);
        onToken(*token);
      }
    } while (in.Finish());
  } catch (QmMsgException* e) {
    // Rendering the report exercises the location and parameter paths.
    (void)e->GetFullText();
    e->Delete();
    return false;
  }
  return true;
}

// A scratch folder of this process, removed at exit.
inline const std::string& ScratchFolder() {
  static const std::string folder = [] {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/nxxml_fuzz_XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    if (!mkdtemp(name.data())) std::abort();
    static std::string made(name.data());
    std::atexit([] { std::remove(made.c_str()); });
    return made;
  }();
  return folder;
}

// Stops the run: a property that must hold did not.
[[noreturn]] inline void Fail(const char* what, const std::string& a, const std::string& b) {
  std::fprintf(stderr, "%s\n  first:  %s\n  second: %s\n", what, a.c_str(), b.c_str());
  std::abort();
}

}  // namespace fuzz
