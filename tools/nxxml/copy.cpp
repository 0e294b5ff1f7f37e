#include <sys/stat.h>

#include <filesystem>
#include <iostream>
#include <system_error>

#include "commands.h"
#include "progress.h"

namespace fs = std::filesystem;

namespace {

bool SameFile(const std::string& a, const std::string& b) {
  struct stat sa, sb;
  return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

// The number k when name is base_k with k >= 2, else 0.
unsigned long SeriesIndex(const std::string& name, const std::string& base) {
  if (name.size() <= base.size() + 1 || name.compare(0, base.size(), base) != 0 || name[base.size()] != '_') return 0;
  const std::string digits = name.substr(base.size() + 1);
  if (digits.size() > 9 || digits[0] == '0' || digits.find_first_not_of("0123456789") != std::string::npos) return 0;
  const unsigned long k = std::stoul(digits);
  return k >= 2 ? k : 0;
}

// The files of an earlier series OUT, OUT_2, OUT_3, ... that exist, in the
// order of their numbers (OUT first when it exists).
std::vector<std::pair<unsigned long, std::string>> ExistingSeries(const std::string& out) {
  std::vector<std::pair<unsigned long, std::string>> found;
  const fs::path path(out);
  std::error_code ec;
  if (fs::exists(fs::symlink_status(path, ec))) found.emplace_back(1, out);
  const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
  const std::string base = path.filename().string();
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    const unsigned long k = SeriesIndex(it->path().filename().string(), base);
    if (k) found.emplace_back(k, out + "_" + std::to_string(k));
  }
  std::sort(found.begin(), found.end());
  return found;
}

// Copies one input to out, token by token, checking as the other commands
// do that every element is closed. Counts the tokens copied; returns the
// error, or an empty string.
std::string CopyInput(const Input& input, const InputOptions& options, OXmlStream& out, bool toStandardOutput,
                      long long& tokens, const std::string& command) {
  Progress progress("nxxml " + command + " " + input.label, InputSize(input.files));
  std::unique_ptr<std::ifstream> file;
  std::unique_ptr<IXmlStream> in = OpenInput(input, options, file, &progress);
  in->SetMaxTokenSize(options.maxTokenSize);
  std::vector<Obx_String> open;
  int elements = 0;
  bool finishing = false;
  try {
    if (options.embedded) in->SetEmbeddedElementMode(1);
    // Finish may hand out text that expat held back until the end.
    do {
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
        // A full disk shows on standard output only as a failed stream:
        // stop at once rather than copy into the void.
        if (toStandardOutput && !std::cout) return "writing standard output failed";
      }
    } while ((finishing = true, in->Finish()));
  } catch (QmMsgException* e) {
    // What the end reveals inside an open element is said best as the
    // element the input ends in.
    if (open.empty() || !finishing) throw;
    e->Delete();
  }
  if (!open.empty()) return "the input ends inside the element <" + open.back().ToUtf8() + ">";
  if (elements == 0 && !options.embedded) return "the input holds no element";
  return std::string();
}

}  // namespace

bool PrepareSeries(const std::string& out, bool force, const std::vector<std::string>& inputs,
                   const std::string& command) {
  const auto existing = ExistingSeries(out);
  // A series must never truncate what it reads: compared by name for the
  // files it may yet create, by identity for those that exist.
  const std::string outName = fs::path(out).filename().string();
  for (const std::string& input : inputs) {
    if (input == "-") continue;
    bool clash = fs::path(input).lexically_normal() == fs::path(out).lexically_normal();
    for (const auto& file : existing) clash = clash || SameFile(input, file.second);
    if (clash) {
      std::cerr << "nxxml " << command << ": the input " << input << " is a file of the output series " << out
                << "\n";
      return false;
    }
  }
  if (existing.empty()) return true;
  if (!force) {
    std::cerr << "nxxml " << command << ": " << existing.front().second
              << " exists (an earlier output); --force replaces the series\n";
    return false;
  }
  // Only the unbroken run OUT, OUT_2, OUT_3, ... is the old series: a file
  // past a gap may be anyone's, so it stops the command before anything is
  // removed.
  unsigned long next = 1;
  for (const auto& file : existing) {
    if (file.first != next && !(next == 1 && file.first == 2)) {
      std::cerr << "nxxml " << command << ": " << file.second
                << " exists apart from the series it would join; remove it or choose another output\n";
      return false;
    }
    next = file.first + 1;
  }
  for (const auto& file : existing) {
    std::error_code ec;
    if (!fs::remove(file.second, ec) && ec) {
      std::cerr << "nxxml " << command << ": cannot remove " << file.second << ": " << ec.message() << "\n";
      return false;
    }
  }
  return true;
}

void AddSeriesOptions(CLI::App& command, SeriesOptions& options) {
  command.add_option("-o,--output", options.output, "Write the files OUT, OUT_2, ... instead of standard output");
  command.add_option("--max-size", options.maxSize, "Bytes a file (or standard output) may take; K, M, G suffixes");
  CLI::Option* files = command.add_option("--max-files", options.maxFiles, "Number of files allowed (0: any)");
  CLI::Option* overflow =
      command.add_flag("--allow-overflow", options.allowOverflow, "Go past --max-files rather than stop");
  CLI::Option* force =
      command.add_flag("--force", options.force, "Remove an earlier series OUT, OUT_2, ... before writing");
  files->check(CLI::NonNegativeNumber);
  // Only a series of files has a number of files.
  if (CLI::Option* output = command.get_option_no_throw("--output")) {
    files->needs(output);
    overflow->needs(output);
    force->needs(output);
  }
}

std::unique_ptr<OXmlStream> OpenSeries(const SeriesOptions& options, const std::vector<std::string>& inputs,
                                       const std::string& command, int& status) {
  status = kExitUsage;
  long long maxSize = 0;
  if (!options.maxSize.empty() && !ParseSize(options.maxSize, maxSize)) {
    std::cerr << "nxxml " << command << ": --max-size takes a number below 2G with an optional K, M or G: "
              << options.maxSize << "\n";
    return nullptr;
  }
  if (!options.output.empty() && !PrepareSeries(options.output, options.force, inputs, command)) return nullptr;
  std::unique_ptr<OXmlStream> out;
  try {
    if (options.output.empty())
      out.reset(new OXmlStream(std::cout, maxSize));
    else
      out.reset(new OXmlStream(Obx_String::FromUtf8(options.output.c_str()), maxSize, options.maxFiles));
  } catch (QmMsgException* e) {
    std::cerr << "nxxml " << command << ": " << DescribeAndDelete(e) << "\n";
    status = kExitBad;
    return nullptr;
  }
  out->SetAllowOverflow(options.allowOverflow ? 1 : 0);
  return out;
}

std::string OutputFull(const SeriesOptions& options) {
  return "the output is full (" + options.maxSize + " bytes" +
         (options.output.empty() ? std::string() : " a file, " + std::to_string(options.maxFiles) + " files") + ")";
}

int CloseSeries(OXmlStream& out, const SeriesOptions& options, std::string failure, int failureStatus,
                bool removeOnFailure, const std::string& command) {
  out.Close();
  std::string writeError;
  if (StandardOutputFailed(writeError) && failure.empty()) failure = writeError;
  if (failure.empty() && out.GetWriteErrors() > 0) failure = "writing " + options.output + " failed";

  if (!options.output.empty() && !failure.empty() && removeOnFailure) {
    out.Delete_Created_Files(0);
    failure += "; no file was left";
  } else if (!options.output.empty()) {
    CStringArray files;
    const double total = out.Get_Created_Files(files);
    for (int k = 0; k < files.GetSize(); ++k)
      std::cout << files[k].ToUtf8() << "\t" << CFile(files[k], CFile::modeRead).GetLength() << "\n";
    std::cout << "total\t" << static_cast<long long>(total) << " bytes in " << files.GetSize() << " files"
              << (out.Overflowed() ? " (past the limits)" : "") << "\n";
  }
  if (!failure.empty()) {
    std::cout.flush();
    std::cerr << "nxxml " << command << ": " << failure << "\n";
    return failureStatus;
  }
  if (StandardOutputBroken(command)) return kExitBad;
  return kExitOk;
}

void AddCopyOptions(CLI::App& command, CopyOptions& options, bool cleaning) {
  if (cleaning) options.command = "clean";
  AddInputOptions(command, options.input, cleaning);
  AddSeriesOptions(command, options.series);
}

int RunCopy(const CopyOptions& options) {
  std::vector<Input> inputs;
  if (!ResolveInputs(options.input, inputs)) return kExitUsage;
  int status = kExitBad;
  std::unique_ptr<OXmlStream> out = OpenSeries(options.series, options.input.files, options.command, status);
  if (!out) return status;

  std::string failure;
  status = kExitBad;
  long long tokens = 0;
  for (const Input& input : inputs) {
    std::string error;
    try {
      error = CopyInput(input, options.input, *out, options.series.output.empty(), tokens, options.command);
    } catch (XmlException* e) {
      e->Delete();
      error = OutputFull(options.series);
    } catch (...) {
      error = DescribeInputFailure(status);
    }
    if (!error.empty()) {
      failure = input.label + ": " + error + "; " + std::to_string(tokens) + " tokens were copied";
      break;
    }
  }
  return CloseSeries(*out, options.series, failure, status, false, options.command);
}
