// Hostile bytes through a strict input stream: every input must end in
// tokens or a message exception, never a crash, a hang or a leak.
#include <cstdint>
#include <sstream>
#include <string>

#include "xmlstream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    try
    {
        IXmlStream stream(in);
        while (XmlToken* token = stream.GetNextToken())
            delete token;
        stream.Finish();
        while (XmlToken* token = stream.GetNextToken())
            delete token;
    }
    catch (QmMsgException* e)
    {
        e->Delete();
    }
    return 0;
}
