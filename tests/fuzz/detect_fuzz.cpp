// Hostile bytes through detection: classified with the corruption check of
// a code page the first byte chooses, then read through the source the
// detection picks.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::UseLegacyLocale();
  if (size == 0) return 0;
  static const long codepages[] = {-1, 1252, 936, 932, 65001};
  fuzz::Accepting([&] {
    DetectType_t type = eDetectedTypePlain;
    int nonAscii = 0, corrupt = 0;
    delete XmlDetectStreamSourceFactory(new fuzz::Pieces(fuzz::Bytes(data + 1, size - 1), fuzz::UpTo(data[0])), 1 << 20,
                                        codepages[data[0] % 5], type, nonAscii, corrupt);
  });
  return fuzz::RunLegacy(data, size, [](IXmlStreamSource* dirty) { return XmlDetectAndCleanStream(dirty, 1 << 20); });
}
