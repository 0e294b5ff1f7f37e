#include <sys/stat.h>

#include <cctype>
#include <iostream>

#include "commands.h"

namespace {

// A byte count with an optional K, M or G (powers of 1024). Limits are taken
// on 32 bits by the stream, so they must stay below 2 GiB.
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

bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa, sb;
  return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

// Copies one input to out, token by token, checking as the other commands
// do that every element is closed. Counts the tokens copied; returns the
// error, or an empty string.
std::string CopyInput(const Input& input, const InputOptions& options, OXmlStream& out, long long& tokens) {
  std::unique_ptr<std::ifstream> file;
  std::unique_ptr<IXmlStream> in = OpenInput(input, options, file);
  std::vector<Obx_String> open;
  int elements = 0;
  for (;;) {
    const XmlToken_t type = in->GetNextTokenType();
    if (type == XT_EOF) break;
    Obx_String name;
    if (type == XT_STAG && in->GetNextTokenName(name)) {
      open.push_back(name);
      ++elements;
    } else if (type == XT_ETAG && !open.empty()) {
      open.pop_back();
    }
    *in >> out;
    ++tokens;
  }
  if (options.embedded) in->SetEmbeddedElementMode(0);
  if (!open.empty()) return "the input ends inside the element <" + open.back().ToUtf8() + ">";
  if (elements == 0 && !options.embedded) return "the input holds no element";
  return std::string();
}

}  // namespace

void AddCopyOptions(CLI::App& command, CopyOptions& options) {
  AddInputOptions(command, options.input);
  command.add_option("-o,--output", options.output, "Write the files OUT, OUT_2, ... instead of standard output");
  command.add_option("--max-size", options.maxSize, "Bytes a file (or standard output) may take; K, M, G suffixes");
  CLI::Option* files = command.add_option("--max-files", options.maxFiles, "Number of files allowed (0: any)");
  CLI::Option* overflow =
      command.add_flag("--allow-overflow", options.allowOverflow, "Go past --max-files rather than stop");
  files->check(CLI::NonNegativeNumber);
  // Only a series of files has a number of files.
  if (CLI::Option* output = command.get_option_no_throw("--output")) {
    files->needs(output);
    overflow->needs(output);
  }
}

int RunCopy(const CopyOptions& options) {
  long long maxSize = 0;
  if (!options.maxSize.empty() && !ParseSize(options.maxSize, maxSize)) {
    std::cerr << "nxxml copy: --max-size takes a number below 2G with an optional K, M or G: " << options.maxSize
              << "\n";
    return kExitUsage;
  }
  std::vector<Input> inputs;
  if (!ResolveInputs(options.input, inputs)) return kExitUsage;
  for (const std::string& file : options.input.files)
    if (!options.output.empty() && SameFile(file, options.output)) {
      std::cerr << "nxxml copy: the output " << options.output << " is also an input\n";
      return kExitUsage;
    }

  std::unique_ptr<OXmlStream> out;
  try {
    if (options.output.empty())
      out.reset(new OXmlStream(std::cout, maxSize));
    else
      out.reset(new OXmlStream(Obx_String::FromUtf8(options.output.c_str()), maxSize, options.maxFiles));
  } catch (QmMsgException* e) {
    std::cerr << "nxxml copy: " << DescribeAndDelete(e) << "\n";
    return kExitBad;
  }
  out->SetAllowOverflow(options.allowOverflow ? 1 : 0);

  std::string failure;
  long long tokens = 0;
  for (const Input& input : inputs) {
    std::string error;
    try {
      error = CopyInput(input, options.input, *out, tokens);
    } catch (QmMsgException* e) {
      error = DescribeAndDelete(e);
    } catch (XmlException* e) {
      e->Delete();
      error = "the output is full (" + options.maxSize + " bytes" +
              (options.output.empty() ? std::string() : " a file, " + std::to_string(options.maxFiles) + " files") +
              ")";
    }
    if (!error.empty()) {
      failure = input.label + ": " + error + "; " + std::to_string(tokens) + " tokens were copied";
      break;
    }
  }
  out->Close();
  std::cout.flush();
  if (failure.empty() && out->GetWriteErrors() > 0)
    failure = "writing " + (options.output.empty() ? std::string("standard output") : options.output) + " failed";

  if (!options.output.empty()) {
    CStringArray files;
    const double total = out->Get_Created_Files(files);
    for (int k = 0; k < files.GetSize(); ++k)
      std::cout << files[k].ToUtf8() << "\t" << CFile(files[k], CFile::modeRead).GetLength() << "\n";
    std::cout << "total\t" << static_cast<long long>(total) << " bytes in " << files.GetSize() << " files"
              << (out->Overflowed() ? " (past the limits)" : "") << "\n";
  }
  if (!failure.empty()) {
    std::cout.flush();
    std::cerr << "nxxml copy: " << failure << "\n";
    return kExitBad;
  }
  return kExitOk;
}
