// Hostile bytes through detection: classified with the corruption check of
// a code page the first byte chooses, then read through the source the
// detection picks.
#include "legacy_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    nxfuzz::UseLegacyLocale();
    if (size == 0)
        return 0;
    static const long codepages[] = {-1, 1252, 936, 932, 65001};
    const long codepage = codepages[data[0] % 5];
    try
    {
        DetectType_t type = eDetectedTypePlain;
        int nonAscii = 0, corrupt = 0;
        delete XmlDetectStreamSourceFactory(new nxfuzz::VaryingSource(data + 1, size - 1, data[0]), 1 << 20, codepage,
                                            type, nonAscii, corrupt);
    }
    catch (QmMsgException* e)
    {
        e->Delete();
    }
    return nxfuzz::Run(data, size, [](IXmlStreamSource* dirty) { return XmlDetectAndCleanStream(dirty, 1 << 20); });
}
