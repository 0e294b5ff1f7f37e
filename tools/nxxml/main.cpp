// nxxml: checks, inspects, detects, repairs and re-emits XML packets through
// the public interface of libnxxmlparser.
#include <CLI/CLI.hpp>

#include <clocale>
#include <iostream>

#include "commands.h"
#include "xmlstream.h"

namespace {

int Run(int argc, char** argv) {
  CLI::App app{"nxxml: check, inspect, detect, repair and re-emit XML packets"};
  app.set_version_flag("--version", std::string("nxxml ") + NxXmlGetVersionInfo());
  app.require_subcommand(0, 1);

  InputOptions checkOptions;
  CLI::App* check = app.add_subcommand("check", "Read every token of each input; print FILE: ok or the error");
  AddInputOptions(*check, checkOptions);

  InputOptions tokensOptions;
  CLI::App* tokens = app.add_subcommand("tokens", "Print the tokens of the input as JSON Lines");
  AddInputOptions(*tokens, tokensOptions);

  CopyOptions copyOptions;
  CLI::App* copy = app.add_subcommand(
      "copy", "Copy every token of the input to standard output, or to the files OUT, OUT_2, ... cut at --max-size");
  AddCopyOptions(*copy, copyOptions);

  DetectOptions detectOptions;
  CLI::App* detect = app.add_subcommand(
      "detect", "Classify each packet as plain, ambiguous, invalid, om or sr1; print JSON Lines");
  AddDetectOptions(*detect, detectOptions);

  CopyOptions cleanOptions;
  CLI::App* clean = app.add_subcommand(
      "clean", "Repair a packet of an old format (detected by default) into well-formed UTF-8 XML, like copy");
  AddCopyOptions(*clean, cleanOptions, true);

  AttachOptions attachOptions;
  CLI::App* attach = app.add_subcommand(
      "attach", "Write <NAME>, the base64 of FILE, </NAME> to standard output or to the files OUT, OUT_2, ...");
  AddAttachOptions(*attach, attachOptions);

  ExtractOptions extractOptions;
  CLI::App* extract =
      app.add_subcommand("extract", "Decode the base64 text of an element of the input into the file OUT");
  AddExtractOptions(*extract, extractOptions);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // Help and version exit 0; every usage error exits 2.
    app.exit(e);
    return e.get_exit_code() == 0 ? 0 : kExitUsage;
  }
  if (check->parsed()) return RunCheck(checkOptions);
  if (tokens->parsed()) return RunTokens(tokensOptions);
  if (copy->parsed()) return RunCopy(copyOptions);
  if (detect->parsed()) return RunDetect(detectOptions);
  if (clean->parsed()) return RunClean(cleanOptions);

  if (attach->parsed()) return RunAttach(attachOptions);
  if (extract->parsed()) return RunExtract(extractOptions);
  std::cout << app.help();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  // Old packets are in the code page of the locale: the environment's,
  // unless --locale names another.
  std::setlocale(LC_ALL, "");
  TaggedOutput tagged(argc, argv);
  return tagged.Finish(Run(argc, argv));
}
