#include "nxcharsets.h"

#include <langinfo.h>
#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>
#include <unicode/ustring.h>

#include <cstring>
#include <map>
#include <memory>
#include <mutex>

namespace {

struct ConverterCloser {
  void operator()(UConverter* c) const { ucnv_close(c); }
};
typedef std::unique_ptr<UConverter, ConverterCloser> ConverterPtr;

// Opened converters by name, one set per thread: an ICU converter carries
// state (its callbacks, a partial character) and may serve one thread only.
// Every conversion sets the callbacks it needs, so the strict or lenient
// choice of one call never carries over to the next.
UConverter* CachedConverter(const std::string& name) {
  thread_local std::map<std::string, ConverterPtr> cache;
  auto it = cache.find(name);
  if (it == cache.end()) {
    UErrorCode status = U_ZERO_ERROR;
    UConverter* c = ucnv_open(name.c_str(), &status);
    if (U_FAILURE(status)) c = nullptr;
    it = cache.emplace(name, ConverterPtr(c)).first;
  }
  if (it->second) ucnv_reset(it->second.get());
  return it->second.get();
}

bool IsUtf8Name(const std::string& name) {
  return name == "UTF-8" || name == "utf-8" || name == "utf8" || name == "UTF8";
}

const UChar* AsUChar(const unsigned short* s) { return reinterpret_cast<const UChar*>(s); }

}  // namespace

const AdCharset& AdCharset::getUTF8Charset() {
  static const AdCharset utf8("UTF-8");
  return utf8;
}

const AdCharset& AdCharset::getASCIICharset() {
  static const AdCharset ascii("US-ASCII");
  return ascii;
}

const AdCharset& AdCharset::getDefaultCharset() {
  // One charset object per code set name seen, kept for the life of the
  // process so that the reference stays valid after the locale changes.
  // Each thread remembers the last one it was given, so the shared table
  // (and its lock) is met only when the code set changes.
  static std::mutex lock;
  static std::map<std::string, std::unique_ptr<AdCharset>> byCodeset;
  thread_local const AdCharset* last = nullptr;
  const char* codeset = nl_langinfo(CODESET);
  const char* name = codeset && *codeset ? codeset : "US-ASCII";
  if (last && last->getName() == name) return *last;
  std::lock_guard<std::mutex> guard(lock);
  auto it = byCodeset.find(name);
  if (it == byCodeset.end()) it = byCodeset.emplace(name, std::unique_ptr<AdCharset>(new AdCharset(name))).first;
  last = it->second.get();
  return *last;
}

bool AdCharset::isKnown() const { return CachedConverter(m_name) != nullptr; }

AdCharset AdCodePage::GetCharset(unsigned int codePage) {
  if (codePage == 65001) return AdCharset::getUTF8Charset();
  if (codePage == 20127) return AdCharset::getASCIICharset();
  // ICU knows the Windows code pages under "windows-N" (125x, 874, 932, 936,
  // 949, 950) and the others as "cpN" or "ibm-N".
  const std::string number = std::to_string(codePage);
  for (const char* prefix : {"windows-", "cp", "ibm-"}) {
    AdCharset candidate(prefix + number);
    if (candidate.isKnown()) return candidate;
  }
  return AdCharset("unknown-code-page-" + number);
}

bool AdUTF16String::cvtFromMBCS(const AdCharset& charset, const char* data, int length,
                                AdCharset::converter_t mode) {
  m_text.Empty();
  if (!data || length <= 0) return data != nullptr || length == 0;
  UErrorCode status = U_ZERO_ERROR;
  if (IsUtf8Name(charset.getName())) {
    // The direct UTF-8 routine is several times faster than a converter.
    unsigned short* out = m_text.GetBuffer(length);
    int32_t produced = 0;
    u_strFromUTF8WithSub(reinterpret_cast<UChar*>(out), length, &produced, data, length,
                         mode == AdCharset::Strict ? U_SENTINEL : 0xFFFD, nullptr, &status);
    m_text.ReleaseBuffer(U_SUCCESS(status) ? produced : 0);
    return U_SUCCESS(status);
  }
  UConverter* c = CachedConverter(charset.getName());
  if (!c) return false;
  if (mode == AdCharset::Strict)
    ucnv_setToUCallBack(c, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  else
    ucnv_setToUCallBack(c, UCNV_TO_U_CALLBACK_SUBSTITUTE, nullptr, nullptr, nullptr, &status);
  // Every byte gives at most two units (a surrogate pair needs 2+ bytes).
  const int capacity = 2 * length;
  unsigned short* out = m_text.GetBuffer(capacity);
  const int32_t produced = ucnv_toUChars(c, reinterpret_cast<UChar*>(out), capacity, data, length, &status);
  m_text.ReleaseBuffer(U_SUCCESS(status) ? produced : 0);
  return U_SUCCESS(status);
}

bool AdMbcsString::cvtFromUTF16(const AdCharset& charset, const unsigned short* data, int length,
                                AdCharset::converter_t mode) {
  m_bytes.clear();
  if (!data || length <= 0) return data != nullptr || length == 0;
  UErrorCode status = U_ZERO_ERROR;
  if (IsUtf8Name(charset.getName())) {
    m_bytes.resize(static_cast<std::size_t>(length) * 3);
    int32_t produced = 0;
    u_strToUTF8WithSub(&m_bytes[0], static_cast<int32_t>(m_bytes.size()), &produced, AsUChar(data), length,
                       mode == AdCharset::Strict ? U_SENTINEL : 0xFFFD, nullptr, &status);
    m_bytes.resize(U_SUCCESS(status) ? static_cast<std::size_t>(produced) : 0);
    return U_SUCCESS(status);
  }
  UConverter* c = CachedConverter(charset.getName());
  if (!c) return false;
  if (mode == AdCharset::Strict)
    ucnv_setFromUCallBack(c, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  else
    ucnv_setFromUCallBack(c, UCNV_FROM_U_CALLBACK_SUBSTITUTE, nullptr, nullptr, nullptr, &status);
  const int capacity = UCNV_GET_MAX_BYTES_FOR_STRING(length, ucnv_getMaxCharSize(c));
  m_bytes.resize(static_cast<std::size_t>(capacity));
  const int32_t produced = ucnv_fromUChars(c, &m_bytes[0], capacity, AsUChar(data), length, &status);
  m_bytes.resize(U_SUCCESS(status) ? static_cast<std::size_t>(produced) : 0);
  return U_SUCCESS(status);
}

AdMbcsString MbcsFileName(const unsigned short* name) {
  AdMbcsString result;
  result.cvtFromUTF16(AdCharset::getUTF8Charset(), name, _tcslen(name), AdCharset::Nonstrict);
  return result;
}
