// Hostile bytes read as one input joined from several files: the input is
// cut into files at each form feed (a byte XML never accepts), so that
// file boundaries fall anywhere, and every token's location is rendered,
// which maps it back to its file.
#include <fstream>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes = fuzz::Bytes(data, size);
  CStringArray names;
  std::vector<std::string> paths;
  for (std::size_t from = 0, to = 0; to < bytes.size() || paths.empty(); from = to + 1) {
    to = paths.size() == 7 ? std::string::npos : bytes.find('\f', from);
    if (to == std::string::npos) to = bytes.size();
    paths.push_back(fuzz::ScratchFolder() + "/part" + std::to_string(paths.size()));
    std::ofstream(paths.back(), std::ios::binary).write(bytes.data() + from, static_cast<std::streamsize>(to - from));
    names.Add(Obx_String::FromUtf8(paths.back().c_str()));
  }
  fuzz::Accepting([&] {
    IXmlStream stream(names);
    fuzz::ReadToTheEnd(stream, [&](const XmlToken& token) { (void)stream.RenderSourceLocation(token.GetLocation()); });
  });
  for (const std::string& path : paths) std::remove(path.c_str());
  return 0;
}
