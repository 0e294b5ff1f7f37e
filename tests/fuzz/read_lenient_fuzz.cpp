// Hostile bytes through a lenient input stream, which substitutes malformed
// UTF-8 that reaches its decoder instead of raising: every input must end
// in tokens or a message exception.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream in(fuzz::Bytes(data, size));
  fuzz::Accepting([&] {
    IXmlStream stream(in, false, true);
    fuzz::ReadToTheEnd(stream);
  });
  return 0;
}
