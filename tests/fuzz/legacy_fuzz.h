// Shared by the fuzz targets of the repairing and detecting sources: the
// first input byte chooses the read sizes, the rest is the packet. Each
// packet is read twice: by hand in reads of varying sizes, and through an
// input stream to its last token.
#pragma once

#include <clocale>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>

#include "xmlstream.h"

namespace nxfuzz {

// Delivers the packet in reads whose sizes cycle from 1 up to a bound.
class VaryingSource : public IXmlStreamSource {
 public:
  VaryingSource(const uint8_t* data, size_t size, unsigned bound)
      : m_data(reinterpret_cast<const char*>(data)), m_size(size), m_bound(bound ? bound : 1) {}
  bool eof() override { return m_pos >= m_size; }
  long read(char* buf, long n) override {
    long want = static_cast<long>(m_next++ % m_bound) + 1;
    if (want > n) want = n;
    if (static_cast<size_t>(want) > m_size - m_pos) want = static_cast<long>(m_size - m_pos);
    std::memcpy(buf, m_data + m_pos, static_cast<size_t>(want));
    m_pos += static_cast<size_t>(want);
    return want;
  }

 private:
  const char* m_data;
  size_t m_size;
  unsigned m_bound;
  size_t m_pos = 0;
  unsigned m_next = 0;
};

// Old packets follow the locale's code page: a double-byte one when the
// machine has it.
inline void UseLegacyLocale() {
  static const bool set = std::setlocale(LC_ALL, "zh_CN.GBK") != nullptr || std::setlocale(LC_ALL, "C.UTF-8");
  (void)set;
}

// makeSource turns the dirty source into the one to read (it takes it).
inline int Run(const uint8_t* data, size_t size,
               const std::function<IXmlStreamSource*(IXmlStreamSource*)>& makeSource) {
  if (size == 0) return 0;
  const unsigned bound = data[0];
  ++data;
  --size;
  try {
    std::unique_ptr<IXmlStreamSource> source(makeSource(new VaryingSource(data, size, bound % 16 + 1)));
    char buf[300];
    long step = bound / 16 + 1;
    for (int guard = 0; !source->eof() && guard < 1 << 20; ++guard) {
      if (source->read(buf, step) == 0) break;
      step = step % 17 + 1;
    }
  } catch (QmMsgException* e) {
    e->Delete();
  }
  try {
    IXmlStream stream(makeSource(new VaryingSource(data, size, bound)));
    while (XmlToken* token = stream.GetNextToken()) delete token;
    stream.Finish();
    while (XmlToken* token = stream.GetNextToken()) delete token;
  } catch (QmMsgException* e) {
    e->Delete();
  }
  return 0;
}

}  // namespace nxfuzz
