// The commands of nxxml.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

#include "xmlstream.h"

enum { kExitOk = 0, kExitBad = 1, kExitUsage = 2 };

// The input options every reading command takes.
struct InputOptions {
  bool embedded = false;
  bool lenient = false;
  bool joined = false;
  std::vector<std::string> files;
};
void AddInputOptions(CLI::App& command, InputOptions& options);

// One input to read: a file, standard input ("-"), or with --joined all
// files as one.
struct Input {
  std::string label;
  std::vector<std::string> files;
};
// The inputs named by the options, each checked to open. On a file that
// cannot be opened, prints why and returns false.
bool ResolveInputs(const InputOptions& options, std::vector<Input>& inputs);
// A stream over the input, in embedded mode if asked.
std::unique_ptr<IXmlStream> OpenInput(const Input& input, const InputOptions& options,
                                      std::unique_ptr<std::ifstream>& keepAlive);

// Reads tokens to the end of the input and checks that every element was
// closed; calls onToken for each. Returns an empty string when the input is
// good, else the full text of the error.
std::string ReadAllTokens(IXmlStream& stream, const InputOptions& options,
                          const std::function<void(const XmlToken&)>& onToken);
// The full text of a message exception; frees it.
std::string DescribeAndDelete(QmMsgException* e);

// nxxml copy: the inputs' tokens to standard output or to a file series.
struct CopyOptions {
  InputOptions input;
  std::string output;
  std::string maxSize;
  int maxFiles = 0;
  bool allowOverflow = false;
};
void AddCopyOptions(CLI::App& command, CopyOptions& options);

// Reads every input to its end, calling onToken for each token; prints
// "LABEL: ok" for a good input when reportOk, "LABEL: error" on standard
// error for a bad one. Returns the exit status.
int ReadEachInput(const InputOptions& options, const std::function<void(const XmlToken&)>& onToken, bool reportOk);

int RunCheck(const InputOptions& options);
int RunCopy(const CopyOptions& options);
int RunTokens(const InputOptions& options);
