#include "nxstrings.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>

namespace {

const UChar* AsUChar(const unsigned short* s) { return reinterpret_cast<const UChar*>(s); }
UChar* AsUChar(unsigned short* s) { return reinterpret_cast<UChar*>(s); }

void AppendAscii(Obx_StdString& out, const char* s, std::size_t n) {
  for (std::size_t k = 0; k < n; ++k) out.push_back(static_cast<unsigned char>(s[k]));
}

void AppendPadded(Obx_StdString& out, const Obx_StdString& text, int width, bool left) {
  const int pad = width > static_cast<int>(text.size()) ? width - static_cast<int>(text.size()) : 0;
  if (!left) out.append(static_cast<std::size_t>(pad), u' ');
  out.append(text);
  if (left) out.append(static_cast<std::size_t>(pad), u' ');
}

}  // namespace

ObxFormatArg::ObxFormatArg(const unsigned short* s)
    : kind(WIDE), wide(s), wideLength(static_cast<std::size_t>(_tcslen(s))) {
  static const unsigned short empty[1] = {0};
  if (!wide) wide = empty;
}

Obx_String::Obx_String(const unsigned short* s) {
  if (s) m_s.assign(s, static_cast<std::size_t>(_tcslen(s)));
}

Obx_String::Obx_String(const unsigned short* s, int length) {
  if (s && length > 0) m_s.assign(s, static_cast<std::size_t>(length));
}

Obx_String Obx_String::FromUtf8(const char* utf8) {
  return utf8 ? FromUtf8(utf8, std::strlen(utf8)) : Obx_String();
}

Obx_String Obx_String::FromUtf8(const char* utf8, std::size_t length) {
  Obx_String result;
  if (!utf8 || length == 0) return result;
  // A UTF-8 text never needs more UTF-16 units than it has bytes.
  result.m_s.resize(length);
  UErrorCode status = U_ZERO_ERROR;
  int32_t produced = 0;
  u_strFromUTF8WithSub(AsUChar(&result.m_s[0]), static_cast<int32_t>(length), &produced, utf8,
                       static_cast<int32_t>(length), 0xFFFD, nullptr, &status);
  result.m_s.resize(U_SUCCESS(status) ? static_cast<std::size_t>(produced) : 0);
  return result;
}

std::string Obx_String::ToUtf8() const {
  std::string out;
  if (m_s.empty()) return out;
  out.resize(m_s.size() * 3);
  UErrorCode status = U_ZERO_ERROR;
  int32_t produced = 0;
  u_strToUTF8WithSub(&out[0], static_cast<int32_t>(out.size()), &produced, AsUChar(m_s.data()),
                     static_cast<int32_t>(m_s.size()), 0xFFFD, nullptr, &status);
  out.resize(U_SUCCESS(status) ? static_cast<std::size_t>(produced) : 0);
  return out;
}

void Obx_String::Append(const unsigned short* s) {
  if (s) m_s.append(s, static_cast<std::size_t>(_tcslen(s)));
}

unsigned short* Obx_String::GetBuffer(int minLength) {
  if (minLength > GetLength()) m_s.resize(static_cast<std::size_t>(minLength));
  return &m_s[0];
}

void Obx_String::ReleaseBuffer(int newLength) {
  if (newLength < 0) newLength = _tcslen(m_s.c_str());
  m_s.resize(static_cast<std::size_t>(newLength));
}

bool operator==(const Obx_String& a, const unsigned short* b) {
  const std::size_t n = static_cast<std::size_t>(_tcslen(b));
  return a.m_s.size() == n && (n == 0 || a.m_s.compare(0, n, b, n) == 0);
}

Obx_String Obx_String::FormatList(const unsigned short* format, const ObxFormatArg* args, std::size_t count) {
  Obx_StdString out;
  if (!format) return Obx_String();
  std::size_t next = 0;
  const unsigned short* p = format;
  while (*p) {
    if (*p != u'%') {
      out.push_back(*p++);
      continue;
    }
    const unsigned short* start = p++;
    if (*p == u'%') {
      out.push_back(u'%');
      ++p;
      continue;
    }
    // The directive as printf takes it: flags, width, precision. Arguments
    // carry their own types, so the length modifier is skipped.
    std::string directive = "%";
    bool left = false;
    while (*p == u'-' || *p == u'0') {
      if (*p == u'-') left = true;
      directive.push_back(static_cast<char>(*p++));
    }
    int width = 0;
    while (*p >= u'0' && *p <= u'9') {
      width = width * 10 + (*p - u'0');
      directive.push_back(static_cast<char>(*p++));
    }
    int precision = -1;
    if (*p == u'.') {
      directive.push_back('.');
      ++p;
      precision = 0;
      while (*p >= u'0' && *p <= u'9') {
        precision = precision * 10 + (*p - u'0');
        directive.push_back(static_cast<char>(*p++));
      }
    }
    while (*p == u'l') ++p;
    const unsigned short conv = *p;
    if (conv == 0) {  // a lone trailing directive is kept as text
      out.append(start, p);
      break;
    }
    ++p;
    if (next >= count) continue;  // a missing argument renders nothing
    const ObxFormatArg& arg = args[next];
    char buf[128];
    int n = -1;
    switch (conv) {
      case u's':
      case u'S': {
        Obx_StdString text;
        if (arg.kind == ObxFormatArg::WIDE)
          text.assign(arg.wide, arg.wideLength);
        else if (arg.kind == ObxFormatArg::NARROW)
          text = FromUtf8(arg.narrow).m_s;
        if (precision >= 0 && text.size() > static_cast<std::size_t>(precision))
          text.resize(static_cast<std::size_t>(precision));
        AppendPadded(out, text, width, left);
        break;
      }
      case u'c':
        AppendPadded(out, Obx_StdString(1, static_cast<unsigned short>(arg.kind == ObxFormatArg::SIGNED ? arg.i : arg.u)),
                     width, left);
        break;
      case u'd': {
        const long long v = arg.kind == ObxFormatArg::SIGNED ? arg.i
                            : arg.kind == ObxFormatArg::DOUBLE ? static_cast<long long>(arg.d)
                                                                : static_cast<long long>(arg.u);
        n = std::snprintf(buf, sizeof buf, (directive + "lld").c_str(), v);
        break;
      }
      case u'u':
      case u'x':
      case u'X': {
        const unsigned long long v = arg.kind == ObxFormatArg::SIGNED ? static_cast<unsigned long long>(arg.i)
                                     : arg.kind == ObxFormatArg::DOUBLE ? static_cast<unsigned long long>(arg.d)
                                                                         : arg.u;
        n = std::snprintf(buf, sizeof buf, (directive + "ll" + static_cast<char>(conv)).c_str(), v);
        break;
      }
      case u'f': {
        const double v = arg.kind == ObxFormatArg::DOUBLE   ? arg.d
                         : arg.kind == ObxFormatArg::SIGNED ? static_cast<double>(arg.i)
                                                             : static_cast<double>(arg.u);
        n = std::snprintf(buf, sizeof buf, (directive + "f").c_str(), v);
        break;
      }
      default:  // unknown directive: keep its text, consume no argument
        out.append(start, p);
        continue;
    }
    ++next;
    if (n > 0) AppendAscii(out, buf, std::min<std::size_t>(static_cast<std::size_t>(n), sizeof buf - 1));
  }
  return Obx_String(std::move(out));
}

std::size_t std::hash<Obx_String>::operator()(const Obx_String& s) const noexcept {
  // FNV-1a over the code units.
  std::size_t h = 1469598103934665603ull;
  for (unsigned short u : s.Std()) {
    h ^= u;
    h *= 1099511628211ull;
  }
  return h;
}

int _tcslen(const unsigned short* s) {
  if (!s) return 0;
  const unsigned short* p = s;
  while (*p) ++p;
  return static_cast<int>(p - s);
}

unsigned short* _tcsncpy(unsigned short* dst, const unsigned short* src, std::size_t n) {
  std::size_t k = 0;
  for (; k < n && src && src[k]; ++k) dst[k] = src[k];
  for (; k < n; ++k) dst[k] = 0;
  return dst;
}

bool AdIsEmpty(const unsigned short* s) { return !s || !*s; }

bool AdIsEqualNoCase(const unsigned short* a, const unsigned short* b) {
  static const unsigned short empty[1] = {0};
  return u_strcasecmp(AsUChar(a ? a : empty), AsUChar(b ? b : empty), U_FOLD_CASE_DEFAULT) == 0;
}

void AdCStringReserveSpace(Obx_String& s, int capacity) { s.Reserve(capacity); }

Obx_String AdStr(long value) {
  char buf[32];
  const int n = std::snprintf(buf, sizeof buf, "%ld", value);
  return Obx_String::FromUtf8(buf, static_cast<std::size_t>(n));
}

long AdStrToLong(const unsigned short* s) {
  if (!s) return 0;
  // Only ASCII can take part in a decimal number; the first other unit ends it.
  std::string narrow;
  for (; *s && *s < 0x80; ++s) narrow.push_back(static_cast<char>(*s));
  errno = 0;
  return std::strtol(narrow.c_str(), nullptr, 10);
}

std::ostream& operator<<(std::ostream& os, const Obx_String& s) { return os << s.ToUtf8(); }
