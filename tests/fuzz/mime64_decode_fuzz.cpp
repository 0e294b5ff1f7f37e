// Hostile bytes as the text of an element decoded with Mime64_Decode: the
// first byte sets how many bytes the source delivers a read, so that the
// text reaches the decoder cut everywhere. Every input must end in a file
// or a message exception that leaves no file, never a crash, a hang or a
// leak.
#include <unistd.h>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static const std::string path = fuzz::ScratchFolder() + "/mime64";
  const bool decoded = fuzz::Accepting([&] {
    IXmlStream in(new fuzz::Pieces("<a>" + fuzz::Bytes(data + 1, size - 1) + "</a>", {data[0] % 16 + 1}));
    XmlSTag start(u"a");
    in >> start;
    in.Mime64_Decode(Obx_String::FromUtf8(path.c_str()));
  });
  // A failed decoding must not leave its partial file.
  if (!decoded && ::access(path.c_str(), F_OK) == 0) std::abort();
  ::unlink(path.c_str());
  return 0;
}
