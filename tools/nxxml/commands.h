// The commands of nxxml.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "xmlstream.h"

class Progress;

enum { kExitOk = 0, kExitBad = 1, kExitUsage = 2 };

// Catalogue ids the tool tells apart: an input that cannot be opened or read.
enum : long { kCannotOpenMsgId = 27309, kCannotReadMsgId = 27323 };

// An input the tool itself could not open or read.
struct InputError : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// A packet the tool refuses before reading it: larger than --max-bytes, or
// of a format that cannot be told (exit 1).
struct PacketRefused : std::runtime_error {
  using std::runtime_error::runtime_error;
};
// The system's text for an errno value.
std::string Reason(int error);
// A byte count with an optional K, M or G (powers of 1024), below 2G.
bool ParseSize(const std::string& text, long long& size);

// The largest packet read whole for detection, unless --max-bytes says.
const long long kDefaultMaxBytes = 256LL << 20;

// The input options every reading command takes.
struct InputOptions {
  // The packet format: "5" a current packet; "2", "3", "4" an old format
  // repaired on the fly; "auto" detected (the packet read whole, up to
  // maxBytes).
  std::string format = "5";
  long long maxBytes = kDefaultMaxBytes;
  bool embedded = false;
  bool lenient = false;
  bool joined = false;
  long long maxTokenSize = IXmlStream::DEFAULT_MAX_TOKEN_SIZE;
  // Whether an input without any element is an error (not for tokens,
  // which just has nothing to print).
  bool requireElement = true;
  std::vector<std::string> files;
};
// Registers the input options; cleaning (nxxml clean) defaults to --format
// auto and takes only the formats that repair.
void AddInputOptions(CLI::App& command, InputOptions& options, bool cleaning = false);
// --locale NAME: the process's locale for code pages, set as it is parsed;
// a locale that does not exist is a usage error.
void AddLocaleOption(CLI::App& command);
// --max-bytes SIZE into size.
void AddMaxBytesOption(CLI::App& command, long long& size);

// One input to read: a file, standard input ("-"), or with --joined all
// files as one.
struct Input {
  std::string label;
  std::vector<std::string> files;
};
// The inputs named by the options; false (and why, printed) for a usage error.
bool ResolveInputs(const InputOptions& options, std::vector<Input>& inputs);
// A stream over the input in its format; raises InputError when the file
// cannot be opened or is a folder, PacketRefused when detection refuses it.
std::unique_ptr<IXmlStream> OpenInput(const Input& input, const InputOptions& options,
                                      std::unique_ptr<std::ifstream>& keepAlive, Progress* progress = nullptr);
// The source of one input: a file, standard input, or files joined; raises
// InputError when a file cannot be opened or is a folder.
IXmlStreamSource* OpenSource(const Input& input, bool joined, std::unique_ptr<std::ifstream>& keepAlive);
// Wraps a source (and owns it), telling onRead how many bytes each read
// hands on: for the progress line, and to tell a refusal for size from other
// failures. Everything else, locations included, is the wrapped source's.
class CountingSource : public IXmlStreamSource {
 public:
  CountingSource(IXmlStreamSource* source, std::function<void(long)> onRead)
      : m_source(source), m_onRead(std::move(onRead)) {}
  bool eof() override { return m_source->eof(); }
  long read(char* buf, long n) override {
    const long got = m_source->read(buf, n);
    if (got > 0) m_onRead(got);
    return got;
  }
  void StoreSourceLocation(XmlSourceLocation& loc) const override { m_source->StoreSourceLocation(loc); }
  Obx_String RenderSourceLocation(const XmlSourceLocation& loc) const override {
    return m_source->RenderSourceLocation(loc);
  }
  void SetXmlParser(void* parser) override {
    IXmlStreamSource::SetXmlParser(parser);
    m_source->SetXmlParser(parser);
  }

 private:
  std::unique_ptr<IXmlStreamSource> m_source;
  std::function<void(long)> m_onRead;
};
// What to say of a packet larger than maxBytes.
std::string TooLarge(long long maxBytes);

// Reads tokens to the end of the input (in embedded mode if asked), has the
// stream judge the end, and checks that every element was closed; calls
// onToken for each. Returns an empty string when the input is good, else
// the full text of the error.
std::string ReadAllTokens(IXmlStream& stream, const InputOptions& options,
                          const std::function<void(const XmlToken&)>& onToken);
// The full text of a message exception; frees it.
std::string DescribeAndDelete(QmMsgException* e);
// Whether a message exception says that an input could not be opened or
// read, which the tool reports with the usage status rather than as a bad
// packet.
bool InputUnreachable(QmMsgException* e);
// To be called from a catch block: the text of the failure of one input
// (a message exception, an input the tool cannot reach, a refused packet),
// with status set to the usage status when the input could not be reached.
// Any other exception goes on.
std::string DescribeInputFailure(int& status);
// What to say of an input that ends inside the element tag opened.
std::string UnclosedElement(const XmlSTag& tag);
// Flushes standard output; true, with the reason in error, when writing it failed.
bool StandardOutputFailed(std::string& error);
// The same, said on standard error as "nxxml COMMAND: reason" ("nxxml: "
// without a command); true when writing failed.
bool StandardOutputBroken(const std::string& command);

// Where copy and attach write: standard output, or the files OUT, OUT_2, ...
struct SeriesOptions {
  std::string output;
  std::string maxSize;
  int maxFiles = 0;
  bool allowOverflow = false;
  bool force = false;
};
void AddSeriesOptions(CLI::App& command, SeriesOptions& options);
// Opens standard output, or the series after PrepareSeries. Null when it
// cannot, with why printed as command; status is then the exit code.
std::unique_ptr<OXmlStream> OpenSeries(const SeriesOptions& options, const std::vector<std::string>& inputs,
                                       const std::string& command, int& status);
// What to say when the output is full.
std::string OutputFull(const SeriesOptions& options);
// Closes out and reports as command: the files of a series with their
// sizes, then failure (when not empty) on standard error. With
// removeOnFailure, a failed series is removed instead of listed. Returns
// the exit code: failureStatus on failure.
int CloseSeries(OXmlStream& out, const SeriesOptions& options, std::string failure, int failureStatus,
                bool removeOnFailure, const std::string& command);

// nxxml copy: the inputs' tokens to standard output or to a file series.
struct CopyOptions {
  // The command as messages name it: copy or clean.
  std::string command = "copy";
  InputOptions input;
  SeriesOptions series;
};
void AddCopyOptions(CLI::App& command, CopyOptions& options, bool cleaning = false);
// Makes ready to write the series OUT, OUT_2, ...: refuses (printing why,
// as command) when an input is one of its files, or when files of an
// earlier series exist, unless force, which removes the old series
// (OUT and the unbroken run OUT_2, OUT_3, ...). False: exit 2.
bool PrepareSeries(const std::string& out, bool force, const std::vector<std::string>& inputs,
                   const std::string& command);

// Reads every input in turn to its end, calling onToken for each token;
// prints "LABEL: ok" for a good input when reportOk, "LABEL: error" on
// standard error for a bad one. Returns the worst status: 1 for a bad
// input, 2 for one that cannot be opened or read.
int ReadEachInput(const InputOptions& options, const std::function<void(const XmlToken&)>& onToken, bool reportOk);

// nxxml attach: <NAME>, the base64 of FILE, </NAME>.
struct AttachOptions {
  std::string file;
  std::string element;
  SeriesOptions series;
};
void AddAttachOptions(CLI::App& command, AttachOptions& options);

// nxxml extract: the base64 text of an element decoded into a file.
struct ExtractOptions {
  InputOptions input;
  std::string element;
  std::string output;
  bool force = false;
};
void AddExtractOptions(CLI::App& command, ExtractOptions& options);

// Whether name is an XML name, as the library's parser judges it.
bool IsXmlName(const std::string& name);

// While it lives, and when diagnostic 170 asks for tagged output, all that
// the command writes to standard output and standard error becomes the
// escaped text of one command message on standard output: its head first,
// its tail with the exit code from Finish.
class TaggedOutput {
 public:
  TaggedOutput(int argc, char** argv);
  ~TaggedOutput();
  TaggedOutput(const TaggedOutput&) = delete;
  TaggedOutput& operator=(const TaggedOutput&) = delete;
  // Ends the message with the exit code; returns the exit code to use (1
  // when standard output failed).
  int Finish(int exitCode);

 private:
  class Buffer;
  std::unique_ptr<Buffer> m_buffer;
  Obx_String m_id;
  std::streambuf* m_out = nullptr;
  std::streambuf* m_err = nullptr;
};

int RunAttach(const AttachOptions& options);
int RunExtract(const ExtractOptions& options);
int RunCheck(const InputOptions& options);
int RunCopy(const CopyOptions& options);
int RunTokens(InputOptions options);

// nxxml detect: the detected type of each file as JSON Lines.
struct DetectOptions {
  long codepage = -1;
  long long maxBytes = kDefaultMaxBytes;
  std::vector<std::string> files;
};
void AddDetectOptions(CLI::App& command, DetectOptions& options);
int RunDetect(const DetectOptions& options);
// nxxml clean: copy with the format detected by default.
int RunClean(const CopyOptions& options);
