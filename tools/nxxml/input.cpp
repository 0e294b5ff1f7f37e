#include <fstream>
#include <iostream>

#include "commands.h"

namespace {

// Standard input as a byte source: the source interface is how an
// application reads from anything the library does not know.
class IstreamSource : public IXmlStreamSource {
 public:
  explicit IstreamSource(std::istream& in) : m_in(in) {}
  bool eof() override { return m_in.eof() || m_in.bad(); }
  long read(char* buf, long n) override {
    m_in.read(buf, n);
    return static_cast<long>(m_in.gcount());
  }

 private:
  std::istream& m_in;
};

}  // namespace

void AddInputOptions(CLI::App& command, InputOptions& options) {
  command.add_flag("--embedded", options.embedded, "Read in embedded element mode (any number of top-level elements)");
  command.add_flag("--lenient", options.lenient, "Substitute malformed UTF-8 instead of failing");
  command.add_flag("--joined", options.joined, "Read all FILEs, in order, as one input");
  command.add_option("FILE", options.files, "Input files; - reads standard input")->required();
}

bool ResolveInputs(const InputOptions& options, std::vector<Input>& inputs) {
  for (const std::string& file : options.files) {
    if (file == "-") {
      if (options.joined) {
        std::cerr << "nxxml: standard input (-) cannot be joined with files\n";
        return false;
      }
      continue;
    }
    std::ifstream probe(file, std::ios::binary);
    if (!probe) {
      std::cerr << "nxxml: cannot open " << file << "\n";
      return false;
    }
  }
  if (options.joined) {
    std::string label;
    for (const std::string& file : options.files) label += (label.empty() ? "" : "+") + file;
    inputs.push_back({label, options.files});
  } else {
    for (const std::string& file : options.files) inputs.push_back({file, {file}});
  }
  return true;
}

std::unique_ptr<IXmlStream> OpenInput(const Input& input, const InputOptions& options,
                                      std::unique_ptr<std::ifstream>& keepAlive) {
  std::unique_ptr<IXmlStream> stream;
  if (input.files.size() == 1 && input.files[0] == "-") {
    stream.reset(new IXmlStream(new IstreamSource(std::cin), false, options.lenient));
  } else if (options.joined) {
    CStringArray names;
    for (const std::string& file : input.files) names.Add(Obx_String::FromUtf8(file.c_str()));
    stream.reset(new IXmlStream(names, false, options.lenient));
  } else {
    keepAlive.reset(new std::ifstream(input.files[0], std::ios::binary));
    stream.reset(new IXmlStream(*keepAlive, false, options.lenient));
  }
  if (options.embedded) stream->SetEmbeddedElementMode(1);
  return stream;
}

std::string DescribeAndDelete(QmMsgException* e) {
  const std::string text = e->GetFullText().ToUtf8();
  e->Delete();
  return text;
}

std::string ReadAllTokens(IXmlStream& stream, const InputOptions& options,
                          const std::function<void(const XmlToken&)>& onToken) {
  std::vector<NXSmartPtr<XmlSTag>> open;
  int elements = 0;
  try {
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
    if (options.embedded) stream.SetEmbeddedElementMode(0);
  } catch (QmMsgException* e) {
    return DescribeAndDelete(e);
  }
  // The stream leaves the end of the input to its reader: a packet cut off
  // inside an element, or without any, is not a good packet.
  if (!open.empty()) {
    int line = 0, column = 0, byte = 0, file = 0;
    bool hasFile = false;
    open.back()->GetLocation().Values(line, column, byte, hasFile, file);
    return "the input ends inside the element <" + open.back()->GetName().ToUtf8() + "> opened at line " +
           std::to_string(line) + ", column " + std::to_string(column);
  }
  if (elements == 0 && !options.embedded) return "the input holds no element";
  return std::string();
}

int ReadEachInput(const InputOptions& options, const std::function<void(const XmlToken&)>& onToken, bool reportOk) {
  std::vector<Input> inputs;
  if (!ResolveInputs(options, inputs)) return kExitUsage;
  int status = kExitOk;
  for (const Input& input : inputs) {
    std::unique_ptr<std::ifstream> file;
    std::string error;
    try {
      std::unique_ptr<IXmlStream> stream = OpenInput(input, options, file);
      error = ReadAllTokens(*stream, options, onToken);
    } catch (QmMsgException* e) {
      error = DescribeAndDelete(e);
    }
    if (error.empty()) {
      if (reportOk) std::cout << input.label << ": ok\n";
      continue;
    }
    // What was printed of the input comes before its error.
    std::cout.flush();
    std::cerr << input.label << ": " << error << "\n";
    status = kExitBad;
  }
  return status;
}
