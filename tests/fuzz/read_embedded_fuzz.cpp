// Hostile bytes read in embedded mode, record by record as whole elements,
// each rendered back as text: any number of top-level elements, cut ones
// included.
#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::istringstream in(fuzz::Bytes(data, size));
  fuzz::Accepting([&] {
    IXmlStream stream(in);
    stream.SetEmbeddedElementMode(1);
    do {
      while (stream.GetNextTokenType() != XT_EOF) {
        XmlElement record;
        stream >> record;
        (void)record.GetImage(nullptr);
      }
    } while (stream.Finish());
  });
  return 0;
}
