// The packet the reading benchmarks read: records as the application
// writes them, generated deterministically from a seed, and the sources
// that hand them to an input stream.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "xmlstream.h"

namespace benchpacket {

const unsigned kSeed = 20240605;

// Writes the records of a packet, deterministically from the seed. A record
// is a start tag with 4 or 5 attributes ending its line (as the writer lays
// it out), 3 to 8 fields of text, the end tag and a line feed. About a tenth
// of the texts hold accented Latin or CJK, and a few hold entity references.
class RecordWriter {
 public:
  explicit RecordWriter(unsigned seed) : m_rng(seed) {}

  // Appends one record; returns the number of fields it has.
  int Append(std::string& out) {
    ++m_records;
    const std::string n = std::to_string(m_records);
    out += "<rec id=\"";
    out += n;
    out += "\" kind=\"";
    out += kKinds[m_rng() % 4];
    out += "\" site=\"S";
    out += std::to_string(m_rng() % 100);
    out += "\" stamp=\"2024-06-";
    out += Two(1 + m_rng() % 28);
    out += ' ';
    out += Two(m_rng() % 24) + ":" + Two(m_rng() % 60) + ":" + Two(m_rng() % 60);
    out += '"';
    if (m_rng() % 2) {
      out += " owner=\"";
      AppendText(out, 4 + m_rng() % 12);
      out += '"';
    }
    out += ">\n";
    const int fields = 3 + static_cast<int>(m_rng() % 6);
    for (int f = 0; f < fields; ++f) {
      const char* name = kFields[f];
      out += '<';
      out += name;
      out += '>';
      AppendText(out, 4 + m_rng() % 60);
      out += "</";
      out += name;
      out += '>';
    }
    out += "</rec>\n";
    return fields;
  }

 private:
  static std::string Two(unsigned v) {
    char buf[4];
    std::snprintf(buf, sizeof buf, "%02u", v % 100);
    return buf;
  }

  // A text of about length characters, never empty.
  void AppendText(std::string& out, unsigned length) {
    const unsigned roll = m_rng() % 100;
    const bool foreign = roll < 10;
    const bool reference = roll >= 10 && roll < 15;
    for (unsigned k = 0; k < length; ++k) {
      const unsigned r = m_rng() % 100;
      if (foreign && r < 30) {
        if (r < 15) {
          out += kLatin[m_rng() % 8];
        } else {
          const unsigned c = 0x4E00 + m_rng() % 0x5000;  // CJK, three bytes
          out += static_cast<char>(0xE0 | (c >> 12));
          out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
          out += static_cast<char>(0x80 | (c & 0x3F));
        }
      } else if (reference && r < 8) {
        out += kReferences[m_rng() % 5];
      } else if (r < 85) {
        out += static_cast<char>('a' + m_rng() % 26);
      } else if (r < 95) {
        out += ' ';
      } else {
        out += static_cast<char>('0' + m_rng() % 10);
      }
    }
  }

  static constexpr const char* kKinds[4] = {"customer", "order", "invoice", "site"};
  static constexpr const char* kFields[8] = {"name", "street", "city", "note", "phone", "mail", "terms", "remark"};
  static constexpr const char* kLatin[8] = {"\xC3\xA9", "\xC3\xA8", "\xC3\xBC", "\xC3\xB1",
                                            "\xC3\x87", "\xC3\xA5", "\xC3\xB8", "\xC3\x9F"};
  static constexpr const char* kReferences[5] = {"&amp;", "&lt;", "&gt;", "&quot;", "&#xE9;"};

  std::mt19937 m_rng;
  long m_records = 0;
};

const char kRootStart[] = "<packet>\n";
const char kRootEnd[] = "</packet>\n";

struct Document {
  std::string bytes;
  long records = 0;
  long fields = 0;

  explicit Document(std::size_t size) {
    bytes.reserve(size + 4096);
    bytes += kRootStart;
    RecordWriter writer(kSeed);
    while (bytes.size() < size) {
      fields += writer.Append(bytes);
      ++records;
    }
    bytes += kRootEnd;
  }
  // Root start and end tags, each record's two tags, each field's three tokens.
  long Tokens() const { return 2 + 2 * records + 3 * fields; }
};

// The document as a source, straight from memory: what the stream costs,
// not what copying it into a string stream costs.
class MemorySource : public IXmlStreamSource {
 public:
  explicit MemorySource(const std::string& bytes) : m_bytes(bytes) {}
  bool eof() override { return m_next >= m_bytes.size(); }
  long read(char* buf, long n) override {
    const std::size_t count = std::min(static_cast<std::size_t>(n), m_bytes.size() - m_next);
    std::memcpy(buf, m_bytes.data() + m_next, count);
    m_next += count;
    return static_cast<long>(count);
  }

 private:
  const std::string& m_bytes;
  std::size_t m_next = 0;
};

// A packet of about target bytes whose records are written as they are read.
class GeneratingSource : public IXmlStreamSource {
 public:
  explicit GeneratingSource(unsigned long long target) : m_target(target), m_writer(kSeed) {
    m_buffer = kRootStart;
  }
  bool eof() override { return m_done && m_next >= m_buffer.size(); }
  long read(char* buf, long n) override {
    if (m_next >= m_buffer.size()) Refill();
    const std::size_t count = std::min(static_cast<std::size_t>(n), m_buffer.size() - m_next);
    std::memcpy(buf, m_buffer.data() + m_next, count);
    m_next += count;
    m_produced += count;
    return static_cast<long>(count);
  }
  unsigned long long Produced() const { return m_produced; }
  long Records() const { return m_records; }

 private:
  void Refill() {
    m_buffer.clear();
    m_next = 0;
    if (m_done) return;
    while (m_buffer.size() < 65536 && m_produced + m_buffer.size() < m_target) {
      m_writer.Append(m_buffer);
      ++m_records;
    }
    if (m_produced + m_buffer.size() >= m_target) {
      m_buffer += kRootEnd;
      m_done = true;
    }
  }

  unsigned long long m_target;
  RecordWriter m_writer;
  std::string m_buffer;
  std::size_t m_next = 0;
  unsigned long long m_produced = 0;
  long m_records = 0;
  bool m_done = false;
};

// Reads a packet as the application does: the root's start tag, then one
// element a record until the root's end tag. Returns the records read.
inline long ReadRecords(IXmlStream& in) {
  XmlSTag root;
  in >> root;
  long records = 0;
  for (;;) {
    switch (in.GetNextTokenType()) {
      case XT_STAG: {
        XmlElement record;
        in >> record;
        ++records;
        break;
      }
      case XT_CHARDATA: {
        XmlCharData text(NX_U16(u""));
        in >> text;
        break;
      }
      case XT_ETAG: {
        XmlETag end;
        in >> end;
        return records;
      }
      default:
        return records;
    }
  }
}

}  // namespace benchpacket
