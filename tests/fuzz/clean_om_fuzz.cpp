// Hostile bytes through the repairing source of format 2, read in pieces of
// varying sizes and then parsed: every input ends in bytes, tokens or a
// message exception, never a crash, a hang or a leak.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return fuzz::RunLegacy(data, size, [](IXmlStreamSource* dirty) {
    return XmlCleanStreamSourceFactory(dirty, static_cast<AdRelayPacketVersion_t>(2));
  });
}
