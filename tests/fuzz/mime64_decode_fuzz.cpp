// Hostile bytes as the text of an element decoded with Mime64_Decode: the
// first byte sets how many bytes the source delivers a read, so that the
// text reaches the decoder cut everywhere. Every input must end in a file
// or a message exception that leaves no file, never a crash, a hang or a
// leak.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "xmlstream.h"

namespace
{

class ChunkSource : public IXmlStreamSource
{
public:
    ChunkSource(std::string data, long chunk) : m_data(std::move(data)), m_chunk(chunk) {}
    bool eof() override { return m_pos >= m_data.size(); }
    long read(char* buf, long n) override
    {
        const long left = static_cast<long>(m_data.size() - m_pos);
        long take = m_chunk < n ? m_chunk : n;
        if (take > left)
            take = left;
        m_data.copy(buf, static_cast<std::size_t>(take), m_pos);
        m_pos += static_cast<std::size_t>(take);
        return take;
    }

private:
    std::string m_data;
    long m_chunk;
    std::size_t m_pos = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const long chunk = data[0] % 16 + 1;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    static const std::string path = "/tmp/nxxml_fuzz_mime64_" + std::to_string(::getpid());
    const Obx_String file = Obx_String::FromUtf8(path.c_str());
    try
    {
        IXmlStream in(new ChunkSource("<a>" + text + "</a>", chunk));
        XmlSTag start(u"a");
        in >> start;
        in.Mime64_Decode(file);
        ::unlink(path.c_str());
    }
    catch (QmMsgException* e)
    {
        e->Delete();
        // A failed decoding must not leave its partial file.
        if (::access(path.c_str(), F_OK) == 0)
            std::abort();
    }
    return 0;
}
