// Hostile bytes through a strict input stream: every input must end in
// tokens or a message exception, never a crash, a hang or a leak.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream in(fuzz::Bytes(data, size));
  fuzz::Accepting([&] {
    IXmlStream stream(in);
    fuzz::ReadToTheEnd(stream);
  });
  return 0;
}
