// Hostile bytes read as one input joined from several files: the input is
// cut into files at each form feed (a byte XML never accepts), so that
// file boundaries fall anywhere, and every token's location is rendered,
// which maps it back to its file.
#include <fstream>

#include "fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    CStringArray names;
    std::vector<std::string> paths;
    for (std::size_t from = 0; paths.size() < 8;)
    {
        std::size_t to = bytes.find('\f', from);
        if (to == std::string::npos || paths.size() == 7)
            to = bytes.size();
        paths.push_back(fuzz::ScratchFolder() + "/part" + std::to_string(paths.size()));
        std::ofstream(paths.back(), std::ios::binary | std::ios::trunc).write(bytes.data() + from,
                                                                             static_cast<std::streamsize>(to - from));
        names.Add(Obx_String::FromUtf8(paths.back().c_str()));
        if (to == bytes.size())
            break;
        from = to + 1;
    }
    try
    {
        IXmlStream stream(names);
        fuzz::ReadToTheEnd(stream, [&](const XmlToken& token) {
            (void)stream.RenderSourceLocation(token.GetLocation());
        });
    }
    catch (QmMsgException* e)
    {
        e->Delete();
    }
    for (const std::string& path : paths)
        std::remove(path.c_str());
    return 0;
}
