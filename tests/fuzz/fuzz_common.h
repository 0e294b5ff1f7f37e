// What the fuzz targets share: sources that cut the input into reads,
// reading a stream to its end the way a careful reader does, the run of the
// repairing and detecting sources, and a folder for targets that write files.
#pragma once

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "xmlstream.h"

namespace fuzz {

inline std::string Bytes(const uint8_t* data, size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

// Runs f; a message exception is an accepted outcome (its report rendered,
// which exercises the location and parameter paths). Returns false then.
template <class F>
bool Accepting(F f) {
  try {
    f();
  } catch (QmMsgException* e) {
    (void)e->GetFullText();
    e->Delete();
    return false;
  }
  return true;
}

// Delivers the bytes in reads of the given sizes, cycling through them,
// so that every chunk boundary can be tried.
class Pieces : public IXmlStreamSource {
 public:
  Pieces(std::string data, std::vector<long> sizes) : m_data(std::move(data)), m_sizes(std::move(sizes)) {}
  bool eof() override { return m_pos >= m_data.size(); }
  long read(char* buf, long n) override {
    const long want = std::min({m_sizes[m_next++ % m_sizes.size()], n, static_cast<long>(m_data.size() - m_pos)});
    m_data.copy(buf, static_cast<size_t>(want), m_pos);
    m_pos += static_cast<size_t>(want);
    return want;
  }

 private:
  std::string m_data;
  std::vector<long> m_sizes;
  size_t m_pos = 0;
  size_t m_next = 0;
};

// Read sizes that cycle from 1 up to bound.
inline std::vector<long> UpTo(unsigned bound) {
  std::vector<long> sizes(bound ? bound : 1);
  for (size_t k = 0; k < sizes.size(); ++k) sizes[k] = static_cast<long>(k) + 1;
  return sizes;
}

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
  return Accepting([&] {
    do {
      while (XmlToken* raw = in.GetNextToken()) {
        NXSmartPtr<XmlToken> token(raw);
        onToken(*token);
      }
    } while (in.Finish());
  });
}
inline bool ReadToTheEnd(IXmlStream& in) {
  return ReadToTheEnd(in, [](const XmlToken&) {});
}

// Old packets follow the locale's code page: a double-byte one when the
// machine has it.
inline void UseLegacyLocale() {
  static const bool set = std::setlocale(LC_ALL, "zh_CN.GBK") != nullptr || std::setlocale(LC_ALL, "C.UTF-8");
  (void)set;
}

// The repairing and detecting sources: the first byte chooses the read
// sizes, the rest is the packet, read twice: by hand in reads of varying
// sizes, and through an input stream to its last token. makeSource turns
// the dirty source into the one to read (it takes it).
inline int RunLegacy(const uint8_t* data, size_t size,
                     const std::function<IXmlStreamSource*(IXmlStreamSource*)>& makeSource) {
  UseLegacyLocale();
  if (size == 0) return 0;
  const unsigned bound = data[0];
  const std::string packet = Bytes(data + 1, size - 1);
  Accepting([&] {
    std::unique_ptr<IXmlStreamSource> source(makeSource(new Pieces(packet, UpTo(bound % 16 + 1))));
    char buf[300];
    long step = bound / 16 + 1;
    for (int guard = 0; !source->eof() && guard < 1 << 20; ++guard, step = step % 17 + 1)
      if (source->read(buf, step) == 0) break;
  });
  Accepting([&] {
    IXmlStream stream(makeSource(new Pieces(packet, UpTo(bound))));
    ReadToTheEnd(stream);
  });
  return 0;
}

// A scratch folder of this process, removed at exit.
inline const std::string& ScratchFolder() {
  static const std::string folder = [] {
    const char* tmp = std::getenv("TMPDIR");
    std::string name = std::string(tmp && *tmp ? tmp : "/tmp") + "/nxxml_fuzz_XXXXXX";
    if (!mkdtemp(&name[0])) std::abort();
    static std::string made(name);
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
