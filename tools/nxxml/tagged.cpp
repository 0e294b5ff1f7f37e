// Tagged output of the tool: the command's text becomes the escaped text of
// one command message, written through the library like any XML text (so
// control characters take the library's escape and malformed UTF-8 is
// substituted), between the head and tail the platform's hook gives.
#include <iostream>
#include <streambuf>

#include "commands.h"
#include "nxtagged.h"

// Gathers what is written and hands it on escaped, whole UTF-8 sequences at
// a time.
class TaggedOutput::Buffer : public std::streambuf {
 public:
  explicit Buffer(std::streambuf* target) : m_target(target), m_stream(m_target, 0) {}

  // Writes markup (the head or the tail) as it stands.
  bool WriteMarkup(const Obx_String& markup) {
    if (!Emit(false)) return false;
    m_stream.write(markup.GetData(), markup.GetLength());
    return Good();
  }
  // Hands on everything gathered, an unfinished sequence included.
  bool Drain() { return Emit(true); }

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    m_pending.push_back(traits_type::to_char_type(c));
    if (m_pending.size() >= kBatch && !Emit(false)) return traits_type::eof();
    return c;
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    m_pending.append(s, static_cast<std::size_t>(n));
    if (m_pending.size() >= kBatch && !Emit(false)) return 0;
    return n;
  }
  int sync() override { return Emit(false) ? 0 : -1; }

 private:
  static const std::size_t kBatch = 64 * 1024;

  bool Good() {
    m_target.flush();
    return m_target.good();
  }
  // Escapes and writes the gathered text up to the last whole sequence (all
  // of it when all).
  bool Emit(bool all) {
    std::size_t cut = m_pending.size();
    if (!all) {
      // Step back over a lead byte whose sequence is not complete yet.
      for (std::size_t back = 1; back <= 3 && back <= cut; ++back) {
        const unsigned char b = static_cast<unsigned char>(m_pending[cut - back]);
        if ((b & 0xC0) == 0x80) continue;
        const std::size_t length = b >= 0xF0 ? 4 : b >= 0xE0 ? 3 : b >= 0xC0 ? 2 : 1;
        if (length > back) cut -= back;
        break;
      }
    }
    if (cut > 0) {
      const Obx_String text = Obx_String::FromUtf8(m_pending.data(), cut);
      m_pending.erase(0, cut);
      m_stream << XmlCharData(text);
    }
    return Good();
  }

  std::ostream m_target;
  OXmlStream m_stream;
  std::string m_pending;
};

TaggedOutput::TaggedOutput(int argc, char** argv) {
  m_id = Obx_String::FromUtf8("nxxml");
  if (argc > 1 && argv[1][0] != '-') {
    m_id.Append(u' ');
    m_id.Append(Obx_String::FromUtf8(argv[1]));
  }
  const Obx_String head = AdUtilCommandHead(m_id);
  if (head.IsEmpty()) return;
  std::cout.flush();
  m_buffer.reset(new Buffer(std::cout.rdbuf()));
  m_buffer->WriteMarkup(head);
  // Errors join the output in the order they were written: the message is
  // the whole of what the command said.
  m_out = std::cout.rdbuf(m_buffer.get());
  m_err = std::cerr.rdbuf(m_buffer.get());
}

TaggedOutput::~TaggedOutput() {
  if (!m_buffer) return;
  std::cout.rdbuf(m_out);
  std::cerr.rdbuf(m_err);
}

int TaggedOutput::Finish(int exitCode) {
  if (!m_buffer) return exitCode;
  std::cout.flush();
  std::cerr.flush();
  const bool drained = m_buffer->Drain();
  std::cout.rdbuf(m_out);
  std::cerr.rdbuf(m_err);
  const bool written = drained && m_buffer->WriteMarkup(AdUtilCommandTail(m_id, exitCode)) &&
                       m_buffer->WriteMarkup(Obx_String::FromUtf8("\n"));
  m_buffer.reset();
  if (!written) {
    std::cerr << "nxxml: writing standard output failed\n";
    return kExitBad;
  }
  return exitCode;
}
