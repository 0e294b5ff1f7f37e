#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <fstream>
#include <iostream>

#include "commands.h"
#include "progress.h"

namespace {

// Standard input as a byte source: the source interface is how an
// application reads from anything the library does not know.
class IstreamSource : public IXmlStreamSource {
 public:
  explicit IstreamSource(std::istream& in) : m_in(in) {}
  bool eof() override { return m_in.eof(); }
  long read(char* buf, long n) override {
    errno = 0;
    m_in.read(buf, n);
    const long got = static_cast<long>(m_in.gcount());
    // A failed read is not the end of the input: say so, with the reason.
    if (got == 0 && !m_in.eof()) throw InputError("cannot read standard input: " + Reason(errno));
    return got;
  }

 private:
  std::istream& m_in;
};

}  // namespace

std::string Reason(int error) { return error ? std::strerror(error) : "unknown reason"; }

bool ParseSize(const std::string& text, long long& size) {
  const long long limit = 1LL << 31;
  std::size_t i = 0;
  long long value = 0;
  while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
    value = value * 10 + (text[i++] - '0');
    if (value >= limit) return false;
  }
  if (i == 0) return false;
  if (i < text.size()) {
    const char suffix = static_cast<char>(std::toupper(static_cast<unsigned char>(text[i++])));
    const int shift = suffix == 'K' ? 10 : suffix == 'M' ? 20 : suffix == 'G' ? 30 : -1;
    if (shift < 0 || i != text.size() || value >= (limit >> shift)) return false;
    value <<= shift;
  }
  size = value;
  return true;
}

void AddInputOptions(CLI::App& command, InputOptions& options, bool cleaning) {
  command.add_flag("--embedded", options.embedded, "Read in embedded element mode (any number of top-level elements)");
  command.add_flag("--lenient", options.lenient, "Substitute malformed UTF-8 instead of failing");
  command.add_flag("--joined", options.joined, "Read all FILEs, in order, as one input");
  command.add_option("FILE", options.files, "Input files; - reads standard input")->required();
  command
      .add_option_function<std::string>(
          "--max-token-size",
          [&options](const std::string& text) {
            if (!ParseSize(text, options.maxTokenSize) || options.maxTokenSize == 0)
              throw CLI::ValidationError("--max-token-size", "takes a number from 1 to below 2G with an optional K, M or G");
          },
          "Largest name, attribute value or text accepted (default 256M); K, M, G suffixes")
      ->type_name("SIZE");
  if (cleaning) options.format = "auto";
  command
      .add_option("--format", options.format,
                  cleaning ? "Packet format: auto (detected; the default), 2 (OM), 3 (OMSR1), 4"
                           : "Packet format: 5 (current; the default), 2 (OM), 3 (OMSR1), 4 repaired as read, "
                             "or auto (detected, then repaired)")
      ->check(cleaning ? CLI::IsMember({"auto", "2", "3", "4"}) : CLI::IsMember({"auto", "2", "3", "4", "5"}))
      ->type_name("FORMAT");
  AddMaxBytesOption(command, options.maxBytes);
  AddLocaleOption(command);
}

void AddMaxBytesOption(CLI::App& command, long long& size) {
  command
      .add_option_function<std::string>(
          "--max-bytes",
          [&size](const std::string& text) {
            if (!ParseSize(text, size))
              throw CLI::ValidationError("--max-bytes", "takes a number below 2G with an optional K, M or G");
          },
          "Largest packet read whole to detect its format (default 256M); K, M, G suffixes")
      ->type_name("SIZE");
}

void AddLocaleOption(CLI::App& command) {
  command
      .add_option_function<std::string>(
          "--locale",
          [](const std::string& name) {
            if (!std::setlocale(LC_ALL, name.c_str()))
              throw CLI::ValidationError("--locale", "no such locale: " + name);
          },
          "Locale whose code page old packets are in (default: the environment's)")
      ->type_name("NAME");
}

std::string TooLarge(long long maxBytes) {
  return "the packet is larger than --max-bytes (" + std::to_string(maxBytes) +
         " bytes), the most that is read whole to detect its format";
}

bool ResolveInputs(const InputOptions& options, std::vector<Input>& inputs) {
  if (options.joined) {
    for (const std::string& file : options.files)
      if (file == "-") {
        std::cerr << "nxxml: standard input (-) cannot be joined with files\n";
        return false;
      }
    std::string label;
    for (const std::string& file : options.files) label += (label.empty() ? "" : "+") + file;
    inputs.push_back({label, options.files});
  } else {
    for (const std::string& file : options.files) inputs.push_back({file, {file}});
  }
  return true;
}

IXmlStreamSource* OpenSource(const Input& input, bool joined, std::unique_ptr<std::ifstream>& keepAlive) {
  if (input.files.size() == 1 && input.files[0] == "-") return new IstreamSource(std::cin);
  if (joined) {
    CStringArray names;
    for (const std::string& file : input.files) names.Add(Obx_String::FromUtf8(file.c_str()));
    return new IXmlStreamMultiFileSource(names);
  }
  const std::string& name = input.files[0];
  errno = 0;
  keepAlive.reset(new std::ifstream(name, std::ios::binary));
  if (!keepAlive->good()) throw InputError("cannot open: " + Reason(errno));
  // A folder opens like a file and fails only when read.
  struct stat info;
  if (::stat(name.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) throw InputError("cannot read: " + Reason(EISDIR));
  return new IXmlStreamFileSource(*keepAlive);
}

namespace {

// The packet read whole, detected, and repaired by what it is.
IXmlStreamSource* DetectAndClean(IXmlStreamSource* source, long long maxBytes) {
  long long delivered = 0;
  try {
    return XmlDetectAndCleanStream(new CountingSource(source, [&delivered](long n) { delivered += n; }), static_cast<unsigned int>(maxBytes));
  } catch (QmMsgException* e) {
    if (delivered > maxBytes) {
      e->Delete();
      throw PacketRefused(TooLarge(maxBytes));
    }
    const std::string text = e->GetText().ToUtf8();
    if (text == "pType != eDetectedTypeAmbiguous")
      throw PacketRefused("the packet's format cannot be told: its bytes are ASCII and UTF-8 only, which may be "
                          "UTF-8 or code-page text (give --format): " + DescribeAndDelete(e));
    if (text == "pType != eDetectedTypeInvalid")
      throw PacketRefused("the packet is of no known format: its bytes show contradictory or broken signs: " +
                          DescribeAndDelete(e));
    throw;
  }
}

}  // namespace

std::unique_ptr<IXmlStream> OpenInput(const Input& input, const InputOptions& options,
                                      std::unique_ptr<std::ifstream>& keepAlive, Progress* progress) {
  IXmlStreamSource* source = OpenSource(input, options.joined, keepAlive);
  // Counted as read from the input, before any repair changes its size.
  if (progress) source = new CountingSource(source, [progress](long n) { progress->Add(n); });
  if (options.format == "auto") source = DetectAndClean(source, options.maxBytes);
  std::unique_ptr<IXmlStream> stream(new IXmlStream(source, false, options.lenient));
  if (options.format != "auto" && options.format != "5")
    stream->CleanSource(static_cast<AdRelayPacketVersion_t>(std::stoi(options.format)));
  return stream;
}

std::string DescribeAndDelete(QmMsgException* e) {
  const std::string text = e->GetFullText().ToUtf8();
  e->Delete();
  return text;
}

bool InputUnreachable(QmMsgException* e) {
  const long id = e->GetMessage(0).GetId();
  return id == kCannotOpenMsgId || id == kCannotReadMsgId;
}

std::string DescribeInputFailure(int& status) {
  try {
    throw;
  } catch (QmMsgException* e) {
    if (InputUnreachable(e)) status = kExitUsage;
    return DescribeAndDelete(e);
  } catch (const InputError& e) {
    status = kExitUsage;
    return e.what();
  } catch (const PacketRefused& e) {
    return e.what();
  }
}

std::string ReadAllTokens(IXmlStream& stream, const InputOptions& options,
                          const std::function<void(const XmlToken&)>& onToken) {
  std::vector<NXSmartPtr<XmlSTag>> open;
  int elements = 0;
  bool finishing = false;
  try {
    stream.SetMaxTokenSize(options.maxTokenSize);
    if (options.embedded) stream.SetEmbeddedElementMode(1);
    // Finish judges what only the end of the input reveals, and may hand
    // out text expat held back until then.
    do {
      while (XmlToken* raw = stream.GetNextToken()) {
        NXSmartPtr<XmlToken> token(raw);
        onToken(*token);
        if (token->GetType() == XT_STAG) {
          open.emplace_back(static_cast<XmlSTag*>(raw));
          ++elements;
        } else if (token->GetType() == XT_ETAG && !open.empty()) {
          open.pop_back();
        }
      }
    } while ((finishing = true, stream.Finish()));
  } catch (QmMsgException* e) {
    // An input that cannot be read is the caller's to judge (exit 2).
    if (InputUnreachable(e)) throw;
    // What the end reveals inside an open element is said best as the
    // element the input ends in.
    if (open.empty() || !finishing) return DescribeAndDelete(e);
    e->Delete();
  }
  if (!open.empty()) return UnclosedElement(*open.back());
  if (elements == 0 && !options.embedded && options.requireElement) return "the input holds no element";
  return std::string();
}

std::string UnclosedElement(const XmlSTag& tag) {
  long long line = 0, column = 0, byte = 0;
  tag.GetLocation().Position(line, column, byte);
  return "the input ends inside the element <" + tag.GetName().ToUtf8() + "> opened at line " +
         std::to_string(line) + ", column " + std::to_string(column);
}

bool StandardOutputFailed(std::string& error) {
  errno = 0;
  std::cout.flush();
  if (std::cout) return false;
  error = "writing standard output failed: " + Reason(errno);
  return true;
}

bool StandardOutputBroken(const std::string& command) {
  std::string error;
  if (!StandardOutputFailed(error)) return false;
  std::cerr << "nxxml" << (command.empty() ? "" : " " + command) << ": " << error << "\n";
  return true;
}

int ReadEachInput(const InputOptions& options, const std::function<void(const XmlToken&)>& onToken, bool reportOk) {
  std::vector<Input> inputs;
  if (!ResolveInputs(options, inputs)) return kExitUsage;
  int status = kExitOk;
  for (const Input& input : inputs) {
    std::unique_ptr<std::ifstream> file;
    std::string error;
    int inputStatus = kExitBad;
    try {
      std::unique_ptr<IXmlStream> stream = OpenInput(input, options, file);
      error = ReadAllTokens(*stream, options, onToken);
    } catch (...) {
      error = DescribeInputFailure(inputStatus);
    }
    if (error.empty()) {
      if (reportOk) std::cout << input.label << ": ok\n";
    } else {
      // What was printed of the input comes before its error.
      std::cout.flush();
      std::cerr << input.label << ": " << error << "\n";
      status = std::max(status, inputStatus);
    }
    if (StandardOutputBroken("")) return kExitBad;
  }
  return status;
}
