#include <iostream>

#include "commands.h"

int RunCheck(const InputOptions& options) {
  std::vector<Input> inputs;
  if (!ResolveInputs(options, inputs)) return kExitUsage;
  int status = kExitOk;
  for (const Input& input : inputs) {
    std::unique_ptr<std::ifstream> file;
    std::string error;
    try {
      std::unique_ptr<IXmlStream> stream = OpenInput(input, options, file);
      error = ReadAllTokens(*stream, options, [](const XmlToken&) {});
    } catch (QmMsgException* e) {
      error = DescribeAndDelete(e);
    }
    if (error.empty()) {
      std::cout << input.label << ": ok\n";
    } else {
      std::cerr << input.label << ": " << error << "\n";
      status = kExitBad;
    }
  }
  return status;
}
