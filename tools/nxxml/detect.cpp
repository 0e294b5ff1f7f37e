#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>

#include "commands.h"

namespace {

const char* TypeName(DetectType_t type) {
  switch (type) {
    case eDetectedTypePlain:
      return "plain";
    case eDetectedTypeAmbiguous:
      return "ambiguous";
    case eDetectedTypeInvalid:
      return "invalid";
    case eDetectedTypeOM:
      return "om";
    case eDetectedTypeSR1:
      return "sr1";
  }
  return "unknown";
}

}  // namespace

void AddDetectOptions(CLI::App& command, DetectOptions& options) {
  command
      .add_option_function<long>(
          "--codepage",
          [&options](long codepage) {
            if (codepage < 1 || !AdCodePage::GetCharset(static_cast<unsigned int>(codepage)).isKnown())
              throw CLI::ValidationError("--codepage", "unknown code page " + std::to_string(codepage));
            options.codepage = codepage;
          },
          "Also check that the packet's non-ASCII bytes convert with code page N (1252, 936, ...)")
      ->type_name("N");
  AddMaxBytesOption(command, options.maxBytes);
  AddLocaleOption(command);
  command.add_option("FILE", options.files, "Packets to classify; - reads standard input")->required();
}

int RunDetect(const DetectOptions& options) {
  int status = kExitOk;
  for (const std::string& file : options.files) {
    std::string error;
    int fileStatus = kExitBad;
    try {
      std::unique_ptr<std::ifstream> keepAlive;
      long long delivered = 0;
      IXmlStreamSource* source = new CountingSource(OpenSource({file, {file}}, false, keepAlive),
                                                    [&delivered](long n) { delivered += n; });
      DetectType_t type = eDetectedTypePlain;
      int nonAscii = 0, corrupt = 0;
      try {
        std::unique_ptr<IXmlStreamSource> detected(
            XmlDetectStreamSourceFactory(source, static_cast<long>(options.maxBytes), options.codepage, type,
                                         nonAscii, corrupt));
      } catch (QmMsgException* e) {
        if (delivered <= options.maxBytes) throw;
        e->Delete();
        throw PacketRefused(TooLarge(options.maxBytes));
      }
      nlohmann::ordered_json line;
      line["file"] = file;
      line["type"] = TypeName(type);
      if (options.codepage >= 1) {
        line["nonAscii"] = nonAscii != 0;
        line["corrupt"] = corrupt != 0;
      }
      std::cout << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    } catch (...) {
      error = DescribeInputFailure(fileStatus);
    }
    if (!error.empty()) {
      std::cout.flush();
      std::cerr << file << ": " << error << "\n";
      status = std::max(status, fileStatus);
    }
  }
  if (StandardOutputBroken("detect")) return kExitBad;
  return status;
}
