#include "commands.h"

int RunCheck(const InputOptions& options) {
  return ReadEachInput(options, [](const XmlToken&) {}, true);
}
