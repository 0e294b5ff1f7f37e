#include "nxmime.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "nxcharsets.h"
#include "nxmessages.h"

namespace {

const char* const kUnit = "nxmime";

// Whole 48-byte groups, so that every piece but the last ends a line.
const std::size_t kReadBytes = 48 * 1366;
const std::size_t kWriteBytes = 64 * 1024;

[[noreturn]] void Raise(long id, const unsigned short* fileName, const Obx_String& detail) {
  QmMessage message(id);
  message.SetParam("%_ARG1_%", Obx_String(fileName));
  message.SetParam("%_ARG2_%", detail);
  AdThrowMsgExcept(message, "", kUnit, __LINE__);
}

Obx_String Reason(int error) { return Obx_String::FromUtf8(std::strerror(error)); }

struct EncodeContextFree {
  void operator()(EVP_ENCODE_CTX* ctx) const { EVP_ENCODE_CTX_free(ctx); }
};
typedef std::unique_ptr<EVP_ENCODE_CTX, EncodeContextFree> EncodeContext;

EncodeContext NewContext() {
  EncodeContext ctx(EVP_ENCODE_CTX_new());
  if (!ctx) throw std::bad_alloc();
  return ctx;
}

// A file descriptor closed on every path.
class Descriptor {
 public:
  explicit Descriptor(int fd) : m_fd(fd) {}
  ~Descriptor() {
    if (m_fd >= 0) ::close(m_fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int Get() const { return m_fd; }
  // Closes now; the result of close, which may report a failed write.
  int Close() {
    const int fd = m_fd;
    m_fd = -1;
    return ::close(fd);
  }

 private:
  int m_fd;
};

// The decoded file: buffered writes, and removal when it is not finished.
class OutputFile {
 public:
  explicit OutputFile(const unsigned short* name)
      : m_name(name), m_path(MbcsFileName(name).getData()),
        m_fd(::open(m_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
    if (m_fd.Get() < 0) Raise(AD_MIME_CANNOT_WRITE_MSGID, m_name, Reason(errno));
    m_buffer.reserve(kWriteBytes);
  }
  ~OutputFile() {
    if (m_fd.Get() >= 0) {
      m_fd.Close();
      ::unlink(m_path.c_str());
    }
  }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  unsigned char* Room(std::size_t n) {
    if (m_buffer.size() + n > kWriteBytes) Flush();
    const std::size_t used = m_buffer.size();
    m_buffer.resize(used + n);
    return reinterpret_cast<unsigned char*>(&m_buffer[used]);
  }
  // Gives back what Room gave beyond the n bytes actually filled.
  void Used(std::size_t room, std::size_t n) { m_buffer.resize(m_buffer.size() - room + n); }
  long long Written() const { return m_written + static_cast<long long>(m_buffer.size()); }

  void Flush() {
    const char* p = m_buffer.data();
    std::size_t left = m_buffer.size();
    while (left > 0) {
      const ssize_t n = ::write(m_fd.Get(), p, left);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) Raise(AD_MIME_CANNOT_WRITE_MSGID, m_name, Reason(n < 0 ? errno : ENOSPC));
      p += n;
      left -= static_cast<std::size_t>(n);
      m_written += n;
    }
    m_buffer.clear();
  }
  void Close() {
    Flush();
    // The last chance to hear of a failed write (a full disk on a network
    // file system): a close that fails leaves no file behind either.
    if (m_fd.Close() != 0) {
      const int error = errno;
      ::unlink(m_path.c_str());
      Raise(AD_MIME_CANNOT_WRITE_MSGID, m_name, Reason(error));
    }
  }

  const unsigned short* Name() const { return m_name; }

 private:
  const unsigned short* m_name;
  std::string m_path;
  Descriptor m_fd;
  std::string m_buffer;
  long long m_written = 0;
};

// Feeds the decoder whole groups of four characters only. The decoder
// judges padding and what follows it within one call; handing it groups
// keeps a pad and its neighbours together however the text was cut, and
// the end of the data is remembered across calls here.
class Decoder {
 public:
  explicit Decoder(OutputFile& out) : m_out(out), m_ctx(NewContext()), m_group(new char[kBatch]) {
    EVP_DecodeInit(m_ctx.get());
  }

  void Feed(const Obx_String& piece) {
    const unsigned short* p = piece.GetData();
    std::size_t n = static_cast<std::size_t>(piece.GetLength());
    while (n > 0) {
      const std::size_t take = n < kBatch - m_used ? n : kBatch - m_used;
      // One pass without branches on the data; a slice with anything
      // wrong in it is gone through again to say where.
      std::size_t used = m_used;
      unsigned wrong = 0;
      for (std::size_t k = 0; k < take; ++k) {
        const unsigned short u = p[k];
        const unsigned char kind = Kind(u);
        m_group[used] = static_cast<char>(u);
        used += kind & kSignificant;
        wrong |= kind & kWrong;
      }
      if (wrong || (m_ended && used > m_used)) Refuse(p, take);
      m_used = used;
      p += take;
      n -= take;
      Decode();
    }
  }

  void Finish() {
    // A group cut short at the end of the text.
    if (m_used != 0) Refuse();
    int n = 0;
    unsigned char rest[64];
    if (EVP_DecodeFinal(m_ctx.get(), rest, &n) < 0) Refuse();
  }

 private:
  static const std::size_t kBatch = 64 * 1024;
  static const unsigned char kSpace = 0, kSignificant = 1, kWrong = 2;
  static const unsigned char kKind[128];
  static unsigned char Kind(unsigned short u) { return u < 128 ? kKind[u] : kWrong; }

  // Decodes the whole groups gathered; at most three characters stay.
  // Groups before any padding go through the block decoder, which is much
  // the faster; the streaming decoder judges the padding and what follows.
  // Both start and end on a group boundary, so neither holds state the
  // other would miss.
  void Decode() {
    const std::size_t whole = m_used & ~static_cast<std::size_t>(3);
    if (whole == 0) return;
    const unsigned char* in = reinterpret_cast<const unsigned char*>(m_group.get());
    const void* pad = std::memchr(in, '=', whole);
    const std::size_t plain =
        pad ? static_cast<std::size_t>(static_cast<const unsigned char*>(pad) - in) & ~static_cast<std::size_t>(3)
            : whole;
    if (plain > 0) {
      const std::size_t room = plain / 4 * 3;
      unsigned char* out = m_out.Room(room);
      if (EVP_DecodeBlock(out, in, static_cast<int>(plain)) != static_cast<int>(room)) {
        m_out.Used(room, 0);
        Refuse();
      }
    }
    if (whole > plain) {
      const std::size_t room = (whole - plain) / 4 * 3;
      unsigned char* out = m_out.Room(room);
      int n = 0;
      const int rv = EVP_DecodeUpdate(m_ctx.get(), out, &n, in + plain, static_cast<int>(whole - plain));
      if (rv < 0) {
        m_out.Used(room, 0);
        Refuse();
      }
      m_out.Used(room, static_cast<std::size_t>(n));
      // 0: the text ended with padding; nothing may follow it.
      if (rv == 0) m_ended = true;
    }
    std::memmove(m_group.get(), m_group.get() + whole, m_used - whole);
    m_used -= whole;
  }

  // Raises for the first wrong character of p[0..n), once the whole groups
  // before it are decoded, so that the count in the message covers them.
  [[noreturn]] void Refuse(const unsigned short* p, std::size_t n) {
    for (std::size_t k = 0; k < n; ++k) {
      const unsigned short u = p[k];
      const unsigned char kind = Kind(u);
      if (kind == kSpace) continue;
      if (kind == kWrong || m_ended) break;
      m_group[m_used++] = static_cast<char>(u);
    }
    Decode();
    Refuse();
  }
  [[noreturn]] void Refuse() { Raise(AD_MIME_NOT_BASE64_MSGID, m_out.Name(), AdStr(static_cast<long>(m_out.Written()))); }

  OutputFile& m_out;
  EncodeContext m_ctx;
  std::unique_ptr<char[]> m_group;
  std::size_t m_used = 0;
  bool m_ended = false;
};

// The alphabet and "=" are significant; space, tab and the line ends are
// skipped; everything else is wrong.
const unsigned char Decoder::kKind[128] = {
    2, 2, 2, 2, 2, 2, 2, 2, 2, 0, 0, 2, 2, 0, 2, 2,  // tab, LF, CR
    2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2,  //
    0, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 1,  // space + /
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 1, 2, 2,  // 0-9 =
    2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // A-O
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2,  // P-Z
    2, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // a-o
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2,  // p-z
};

}  // namespace

AdMimeStreamHelper::~AdMimeStreamHelper() = default;

AdMimeUtil::AdMimeUtil() = default;
AdMimeUtil::~AdMimeUtil() = default;

void AdMimeUtil::EncodeFileToStream(const unsigned short* fileName, AdMimeStreamHelper& helper) {
  Descriptor in(::open(MbcsFileName(fileName).getData(), O_RDONLY | O_CLOEXEC));
  if (in.Get() < 0) Raise(AD_MIME_CANNOT_READ_MSGID, fileName, Reason(errno));
  EncodeContext ctx = NewContext();
  EVP_EncodeInit(ctx.get());
  std::vector<unsigned char> bytes(kReadBytes);
  // 65 characters a line of 48 bytes, the final line, and a zero.
  std::vector<unsigned char> text(kReadBytes / 48 * 65 + 80);
  Obx_String wide;
  auto hand = [&](int n) {
    if (n <= 0) return;
    unsigned short* w = wide.GetBuffer(n);
    for (int k = 0; k < n; ++k) w[k] = text[static_cast<std::size_t>(k)];
    wide.ReleaseBuffer(n);
    helper.Write(wide.GetData());
  };
  for (;;) {
    const ssize_t got = ::read(in.Get(), bytes.data(), bytes.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) Raise(AD_MIME_CANNOT_READ_MSGID, fileName, Reason(errno));
    if (got == 0) break;
    int n = 0;
    if (!EVP_EncodeUpdate(ctx.get(), text.data(), &n, bytes.data(), static_cast<int>(got)))
      AdThrowMsgExcept(AdGetBadValue0MsgID(), "EVP_EncodeUpdate", kUnit, __LINE__);
    hand(n);
  }
  int n = 0;
  EVP_EncodeFinal(ctx.get(), text.data(), &n);
  hand(n);
}

void AdMimeUtil::DecodeStreamToFile(AdMimeStreamHelper& helper, const unsigned short* fileName) {
  OutputFile out(fileName);
  Decoder decoder(out);
  for (;;) {
    const Obx_String piece = helper.Read();
    if (piece.IsEmpty()) break;
    decoder.Feed(piece);
  }
  decoder.Finish();
  out.Close();
}
