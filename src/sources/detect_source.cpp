#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "sources/clean_private.h"
#include "xmlstream.h"

using namespace nxclean;

namespace {

// The lines these conditions have always been reported with.
const int kCodepageLine = 4072;
const int kCodepageFlagsLine = 4082;

// The byte classes of the scan.
enum ByteClass : unsigned char { kText, kReference, kControl, kZero, kHigh };

struct ClassTable {
  ByteClass of[256];
  ClassTable() {
    for (int b = 0; b < 256; ++b)
      of[b] = b == 0 ? kZero : b >= 0x80 ? kHigh : (b < 0x20 && b != 9 && b != 10 && b != 13) ? kControl : kText;
    of['&'] = kReference;
  }
};
const ClassTable kClasses;

bool IsTrail(unsigned char b) { return b >= 0x80 && b <= 0xBF; }

// The length of the well-formed two- or three-byte UTF-8 sequence at p,
// or 0. Four-byte sequences are not recognised.
int Utf8SequenceAt(const unsigned char* p, const unsigned char* end) {
  const unsigned char b = p[0];
  if (end - p >= 3 && b >= 0xE0 && b <= 0xEF && IsTrail(p[1]) && IsTrail(p[2])) {
    const unsigned value = ((b & 0x0Fu) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
    if (value >= 0x800) return 3;
  }
  if (end - p >= 2 && b >= 0xC0 && b <= 0xDF && IsTrail(p[1])) {
    const unsigned value = ((b & 0x1Fu) << 6) | (p[1] & 0x3Fu);
    if (value >= 0x80 && value <= 0x7FF) return 2;
  }
  return 0;
}

// The number strtoul reads from the first length bytes of p. Plain digits,
// nearly every reference, are read directly.
unsigned long Number(const char* p, long length, int base) {
  unsigned long value = 0;
  long k = 0;
  for (; k < length; ++k) {
    const char c = p[k];
    int digit;
    if (c >= '0' && c <= '9')
      digit = c - '0';
    else if (base == 16 && ((c | 0x20) >= 'a' && (c | 0x20) <= 'f'))
      digit = (c | 0x20) - 'a' + 10;
    else
      break;
    value = value * static_cast<unsigned long>(base) + static_cast<unsigned long>(digit);
  }
  if (k == length) return value;
  char digits[8] = {0};
  std::memcpy(digits, p, static_cast<std::size_t>(length));
  return std::strtoul(digits, nullptr, base);
}

}  // namespace

void IXmlDetectStreamSource::FreeDeleter::operator()(char* p) const { munmap(p, size); }

IXmlDetectStreamSource::IXmlDetectStreamSource(IXmlStreamSource* source, long codepage)
    : m_source(source), m_data(nullptr, FreeDeleter(0)) {
  AD_ASSERT_TEXT(source != nullptr, "source != __null", kUnit);
  m_parser = source->GetXmlParser();
  if (codepage >= 0) m_codepage.reset(new long(codepage));
}

IXmlDetectStreamSource::~IXmlDetectStreamSource() = default;

void IXmlDetectStreamSource::Load(long maxBytes) {
  if (maxBytes < 0) maxBytes = 0;
  const std::size_t capacity = static_cast<std::size_t>(maxBytes) + 1;
  // Zeroed pages from the system: only what the packet fills is touched,
  // however large the maximum. Large pages where the system gives them:
  // a packet of many megabytes would otherwise cost a fault a page.
  void* mapped = mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
  madvise(mapped, capacity, MADV_HUGEPAGE);
#endif
  char* data = static_cast<char*>(mapped);
  m_data = std::unique_ptr<char, FreeDeleter>(data, FreeDeleter{capacity});
  std::size_t held = 0;
  while (!m_source->eof() && held < capacity) {
    const long got = m_source->read(data + held, static_cast<long>(capacity - held));
    if (got <= 0) break;
    held += static_cast<std::size_t>(got);
  }
  // The whole packet must have fitted.
  AD_ASSERT_TEXT(m_source->eof() && held <= static_cast<std::size_t>(maxBytes), "m_source->eof()", kUnit);
  m_readPosition = m_current_byte = data;
  m_dataEnd = data + held;
}

bool IXmlDetectStreamSource::eof() { return m_readPosition >= m_dataEnd; }

long IXmlDetectStreamSource::read(char* buf, long n) {
  const long left = static_cast<long>(m_dataEnd - m_readPosition);
  const long k = n < left ? n : left;
  if (k > 0) std::memcpy(buf, m_readPosition, static_cast<std::size_t>(k));
  m_readPosition += k;
  return k;
}

void IXmlDetectStreamSource::StoreSourceLocation(XmlSourceLocation& loc) const { m_source->StoreSourceLocation(loc); }

void IXmlDetectStreamSource::SetXmlParser(void* parser) {
  m_parser = parser;
  m_source->SetXmlParser(parser);
}

void IXmlDetectStreamSource::DetectType() {
  const unsigned char* end = reinterpret_cast<const unsigned char*>(m_dataEnd);
  // The code-page bytes serve only the corruption check, which needs a
  // code page.
  const bool collect = m_codepage != nullptr;
  while (m_current_byte < m_dataEnd) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(m_current_byte);
    switch (kClasses.of[*p]) {
      case kText: {
        const unsigned char* q = p + 1;
        while (q < end && kClasses.of[*q] == kText) ++q;
        if (collect) m_codepageBytes.insert(m_codepageBytes.end(), p, q);
        m_current_byte = reinterpret_cast<const char*>(q);
        break;
      }
      case kReference:
        m_current_byte += ParseCharacterReference();
        break;
      case kControl:
        m_type = (m_type == eDetectedTypeInvalid || m_type == eDetectedTypeOM) ? eDetectedTypeInvalid
                                                                                : eDetectedTypeSR1;
        if (collect) m_codepageBytes.push_back(*p);
        ++m_current_byte;
        break;
      case kZero:
        m_type = eDetectedTypeInvalid;
        if (collect) m_codepageBytes.push_back(*p);
        ++m_current_byte;
        break;
      case kHigh: {
        m_nonAscii = 1;
        const int size = Utf8SequenceAt(p, end);
        if (size) {
          m_utf8Bytes.insert(m_utf8Bytes.end(), p, p + size);
          m_current_byte += size;
          if (m_type == eDetectedTypePlain) m_type = eDetectedTypeAmbiguous;
        } else {
          m_type = (m_type == eDetectedTypeInvalid || m_type == eDetectedTypeSR1) ? eDetectedTypeInvalid
                                                                                   : eDetectedTypeOM;
          if (collect) m_codepageBytes.push_back(*p);
          ++m_current_byte;
        }
        break;
      }
    }
  }
  if (m_codepage && (m_type == eDetectedTypeOM || m_type == eDetectedTypeSR1)) SearchForHiddenCorruption();
}

long IXmlDetectStreamSource::ParseCharacterReference() {
  AD_ASSERT_TEXT(*m_current_byte == '&', "*m_current_byte == AMP", kUnit);
  const char* amp = m_current_byte;
  const char* end = m_dataEnd;
  const char next = amp + 1 < end ? amp[1] : 0;
  bool named = false, checkForHex = false;
  const char* start;
  if (next == 'a' || next == 'g' || next == 'l' || next == 'q') {
    named = true;
    start = amp + 1;
  } else if (next == '#') {
    checkForHex = amp + 2 < end && amp[2] == 'x';
    start = amp + (checkForHex ? 3 : 2);
  } else {
    m_type = eDetectedTypeInvalid;
    return 1;
  }
  // Only a ";" within the first five bytes makes a candidate: looking no
  // further keeps a packet of "&" without ";" linear to scan.
  const char* semicolon = nullptr;
  for (const char* q = start; q < end && q < start + 5; ++q)
    if (*q == ';') {
      semicolon = q;
      break;
    }
  const long num_bytes = semicolon ? static_cast<long>(semicolon - start) : 0;
  if (!semicolon || num_bytes == 0 || num_bytes >= 5) {
    m_type = eDetectedTypeInvalid;
    return 1;
  }
  const long distance = static_cast<long>(semicolon - amp);
  bool sr1Sign = false;
  if (named && num_bytes > 1) {
    AD_ASSERT_TEXT((num_bytes > 1) && (num_bytes < 5), "(num_bytes > 1) && (num_bytes < 5)", kUnit);
    // Each name over its own length only: a longer name that begins with
    // one of them counts as it.
    for (const char* entity : {"amp", "apos", "gt", "lt", "quot"})
      if (std::strncmp(start, entity, std::strlen(entity)) == 0) {
        sr1Sign = true;
        break;
      }
  }
  if (!sr1Sign && checkForHex && num_bytes < 3) {
    AD_ASSERT_TEXT((num_bytes > 0) && (num_bytes < (checkForHex ? 3u : 4u)),
                   "(num_bytes > 0) && (num_bytes < ( checkForHex ? 3u : 4u ))", kUnit);
    const unsigned long value = Number(start, num_bytes, 16);
    if (value >= 1 && value <= 255) {
      if (value > 127) m_nonAscii = 1;
      if (m_codepage) m_codepageBytes.push_back(static_cast<unsigned char>(value));
      sr1Sign = true;
    }
  }
  if (sr1Sign) {
    if (m_type == eDetectedTypeInvalid || m_type == eDetectedTypeOM) {
      m_type = eDetectedTypeInvalid;
      return 1;
    }
    m_type = eDetectedTypeSR1;
    return distance;
  }
  if (checkForHex || num_bytes > 3) {
    m_type = eDetectedTypeInvalid;
    return 1;
  }
  const unsigned long value = Number(start, num_bytes, 10);
  if (value < 1 || value > 255) {
    m_type = eDetectedTypeInvalid;
    return 1;
  }
  if (value > 127) m_nonAscii = 1;
  if (m_codepage) m_codepageBytes.push_back(static_cast<unsigned char>(value));
  if (m_type == eDetectedTypeInvalid || m_type == eDetectedTypeSR1) {
    m_type = eDetectedTypeInvalid;
    return 1;
  }
  m_type = eDetectedTypeOM;
  return distance;
}

void IXmlDetectStreamSource::SearchForHiddenCorruption() {
  std::vector<char> utf8(m_utf8Bytes.begin(), m_utf8Bytes.end());
  std::vector<char> codepageBytes(m_codepageBytes.begin(), m_codepageBytes.end());
  AD_ASSERT_TEXT(m_type == eDetectedTypeOM || m_type == eDetectedTypeSR1,
                 "m_type == eDetectedTypeOM || m_type == eDetectedTypeSR1", kUnit);
  const unsigned int codepage = static_cast<unsigned int>(*m_codepage);
  // A conversion that fails marks the packet; it never stops detection.
  auto attempt = [this](auto convert) {
    try {
      convert();
    } catch (QmMsgException* e) {
      e->Delete();
      m_corrupt = 1;
    }
  };
  if (!utf8.empty()) {
    attempt([&] {
      char* out = nullptr;
      int outSize = 0;
      if (m_type == eDetectedTypeOM) {
        CP2UTF8(utf8.data(), static_cast<int>(utf8.size()), out, outSize, codepage, 1);
        m_nonAscii = 1;
      } else {
        bool endsWithEscape = false;
        UTF82CP(false, utf8.data(), static_cast<int>(utf8.size()), false, true, out, outSize, endsWithEscape,
                codepage);
      }
      delete[] out;
    });
  }
  if (!codepageBytes.empty()) {
    attempt([&] {
      char* out = nullptr;
      int outSize = 0;
      CP2UTF8(codepageBytes.data(), static_cast<int>(codepageBytes.size()), out, outSize, codepage, 1);
      delete[] out;
    });
  }
}

// ---------------------------------------------------------------------------
// Factories

IXmlStreamSource* XmlDetectStreamSourceFactory(IXmlStreamSource* source, long maxBytes, long codepage,
                                               DetectType_t& type, int& nonAscii, int& corrupt) {
  std::unique_ptr<IXmlStreamSource> owned(source);
  std::unique_ptr<IXmlDetectStreamSource> detect(new IXmlDetectStreamSource(owned.release(), codepage));
  detect->Load(maxBytes);
  detect->DetectType();
  type = detect->GetType();
  if (codepage < 1) return detect.release();
  if (!detect->HasCodepage()) AdThrowMsgExcept(AdGetBadValue0MsgID(), "m_codepage != __null", kUnit, kCodepageLine);
  if (!detect->HasCodepage())
    AdThrowMsgExcept(AdGetBadValue0MsgID(), "m_codepage != __null", kUnit, kCodepageFlagsLine);
  nonAscii = detect->GetNonAscii();
  corrupt = detect->GetCorrupt();
  return detect.release();
}

IXmlStreamSource* XmlDetectAndCleanStream(IXmlStreamSource* pDirty, unsigned int maxBytes) {
  AD_ASSERT_TEXT(pDirty != nullptr, "pDirty != __null", kUnit);
  DetectType_t pType = eDetectedTypePlain;
  int nonAscii = 0, corrupt = 0;
  std::unique_ptr<IXmlStreamSource> detect(
      XmlDetectStreamSourceFactory(pDirty, static_cast<long>(maxBytes), -1, pType, nonAscii, corrupt));
  switch (pType) {
    case eDetectedTypeAmbiguous:
      AdThrowMsgExcept(AdGetBadValue0MsgID(), "pType != eDetectedTypeAmbiguous", kUnit, __LINE__);
    case eDetectedTypeInvalid:
      AdThrowMsgExcept(AdGetBadValue0MsgID(), "pType != eDetectedTypeInvalid", kUnit, __LINE__);
    case eDetectedTypeOM: {
      IXmlStreamSource* clean = XmlCleanStreamSourceFactory(detect.get(), eRelayPacketVersionOM);
      detect.release();
      return clean;
    }
    case eDetectedTypeSR1: {
      IXmlStreamSource* clean = XmlCleanStreamSourceFactory(detect.get(), eRelayPacketVersionOMSR1);
      detect.release();
      return clean;
    }
    case eDetectedTypePlain:
      return detect.release();
  }
  Unreached(__LINE__);
}

IXmlStreamSource* XmlCleanStreamSourceFactory(IXmlStreamSource* pDirty, AdRelayPacketVersion_t version) {
  AD_ASSERT_TEXT(pDirty != nullptr, "pDirty != __null", kUnit);
  const int v = static_cast<int>(version);
  if (v >= 5) return pDirty;
  if (v == 4) return new IXmlCleanStreamSourceFmt4(pDirty);
  if (v == 3) return new IXmlCleanStreamSourceOMSR1(pDirty);
  if (v == 2) return new IXmlCleanStreamSourceOM(pDirty);
  Unreached(__LINE__);
}
