// nxxml: checks, inspects, detects, repairs and re-emits XML packets through
// the public interface of libnxxmlparser.
#include <CLI/CLI.hpp>

#include <iostream>

#include "xmlstream.h"

int main(int argc, char** argv) {
  CLI::App app{"nxxml: check, inspect, detect, repair and re-emit XML packets"};
  app.set_version_flag("--version", std::string("nxxml ") + NxXmlGetVersionInfo());
  app.require_subcommand(0, 1);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // Usage errors exit with 2, as every command of the tool does.
    const int rc = app.exit(e);
    return e.get_exit_code() == 0 ? 0 : (rc == 0 ? 0 : 2);
  }
  if (app.get_subcommands().empty()) {
    std::cout << app.help();
    return 0;
  }
  return 0;
}
