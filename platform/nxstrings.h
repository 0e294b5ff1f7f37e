// Strings: Obx_String, the UTF-16 string every name, value and text of the
// library is held in, and the small helpers over zero-terminated UTF-16.
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <type_traits>

#include "nxplatform_export.h"

// The code units of the library's text. std::basic_string over unsigned short
// keeps short strings inline, which matters for the many short names and
// values that a parse produces.
typedef std::basic_string<unsigned short> Obx_StdString;

// Literal helper: NX_U16(u"abc") views a char16_t literal as the library's
// unit type. Only read through, never written.
#define NX_U16(lit) (reinterpret_cast<const unsigned short*>(lit))

// One argument of a formatted construction; built implicitly from numbers and
// from narrow or UTF-16 texts so that Format stays type-safe.
struct NXPLATFORM_API ObxFormatArg {
  enum Kind { SIGNED, UNSIGNED, DOUBLE, NARROW, WIDE };
  Kind kind;
  long long i = 0;
  unsigned long long u = 0;
  double d = 0;
  const char* narrow = nullptr;
  const unsigned short* wide = nullptr;
  std::size_t wideLength = 0;

  template <class T, typename std::enable_if<std::is_integral<T>::value && std::is_signed<T>::value, int>::type = 0>
  ObxFormatArg(T v) : kind(SIGNED), i(v) {}
  template <class T, typename std::enable_if<std::is_integral<T>::value && !std::is_signed<T>::value, int>::type = 0>
  ObxFormatArg(T v) : kind(UNSIGNED), u(v) {}
  ObxFormatArg(double v) : kind(DOUBLE), d(v) {}
  ObxFormatArg(const char* s) : kind(NARROW), narrow(s ? s : "") {}
  ObxFormatArg(const std::string& s) : kind(NARROW), narrow(s.c_str()) {}
  ObxFormatArg(const unsigned short* s);
  ObxFormatArg(const char16_t* s) : ObxFormatArg(reinterpret_cast<const unsigned short*>(s)) {}
  ObxFormatArg(const class Obx_String& s);
  ObxFormatArg(const void* p) : kind(UNSIGNED), u(reinterpret_cast<std::size_t>(p)) {}
};

class NXPLATFORM_API Obx_String {
 public:
  Obx_String() = default;
  Obx_String(const unsigned short* s);  // null gives the empty string
  Obx_String(const unsigned short* s, int length);
  Obx_String(const char16_t* s) : Obx_String(reinterpret_cast<const unsigned short*>(s)) {}
  explicit Obx_String(Obx_StdString s) : m_s(std::move(s)) {}

  // UTF-8 in and out. Malformed input is substituted with U+FFFD: these are
  // for the edges of the program (command lines, consoles), not for packets.
  static Obx_String FromUtf8(const char* utf8);
  static Obx_String FromUtf8(const char* utf8, std::size_t length);
  std::string ToUtf8() const;

  int GetLength() const { return static_cast<int>(m_s.size()); }
  bool IsEmpty() const { return m_s.empty(); }
  const unsigned short* GetData() const { return m_s.c_str(); }
  operator const unsigned short*() const { return m_s.c_str(); }
  unsigned short operator[](int i) const { return m_s[static_cast<std::size_t>(i)]; }
  const Obx_StdString& Std() const { return m_s; }
  Obx_StdString& Std() { return m_s; }

  void Empty() { m_s.clear(); }
  void Append(const unsigned short* s, int length) { m_s.append(s, static_cast<std::size_t>(length)); }
  void Append(const unsigned short* s);
  void Append(const Obx_String& s) { m_s.append(s.m_s); }
  void Append(unsigned short unit) { m_s.push_back(unit); }
  Obx_String& operator+=(const Obx_String& s) { m_s.append(s.m_s); return *this; }
  Obx_String& operator+=(const unsigned short* s) { Append(s); return *this; }
  Obx_String& operator+=(unsigned short unit) { m_s.push_back(unit); return *this; }

  // Writable-buffer protocol: GetBuffer gives room for at least minLength
  // units (the current text kept); ReleaseBuffer fixes the final length, or
  // the length up to the first zero unit when given -1.
  unsigned short* GetBuffer(int minLength);
  void ReleaseBuffer(int newLength = -1);
  void Reserve(int capacity) { m_s.reserve(static_cast<std::size_t>(capacity)); }
  int GetCapacity() const { return static_cast<int>(m_s.capacity()); }

  // Loads the catalogue text of a message id; an unknown id gives an empty
  // string and false.
  bool LoadString(long id);

  // printf-style construction. Directives: %d %u %x %X %c %s %S %f %%, with
  // the flags - and 0, a width and a precision; the l and ll length
  // modifiers are accepted and ignored since arguments carry their own type.
  // %s and %S both take either a narrow (UTF-8) or a UTF-16 text. Missing
  // arguments render as nothing; surplus arguments are ignored; any other
  // directive stays as text.
  template <class... A>
  static Obx_String Format(const unsigned short* format, const A&... args) {
    const ObxFormatArg list[] = {ObxFormatArg(args)..., ObxFormatArg(0)};
    return FormatList(format, list, sizeof...(A));
  }
  template <class... A>
  static Obx_String Format(const char16_t* format, const A&... args) {
    return Format(reinterpret_cast<const unsigned short*>(format), args...);
  }
  template <class... A>
  static Obx_String Format(const char* format, const A&... args) {
    return Format(FromUtf8(format).GetData(), args...);
  }
  // The catalogue text of a message id used as the format.
  template <class... A>
  static Obx_String Format(long messageId, const A&... args) {
    Obx_String format;
    format.LoadString(messageId);
    return Format(format.GetData(), args...);
  }
  template <class... A>
  static Obx_String Format(int messageId, const A&... args) {
    return Format(static_cast<long>(messageId), args...);
  }
  static Obx_String FormatList(const unsigned short* format, const ObxFormatArg* args, std::size_t count);

  friend bool operator==(const Obx_String& a, const Obx_String& b) { return a.m_s == b.m_s; }
  friend bool operator!=(const Obx_String& a, const Obx_String& b) { return a.m_s != b.m_s; }
  friend bool operator<(const Obx_String& a, const Obx_String& b) { return a.m_s < b.m_s; }
  friend NXPLATFORM_API bool operator==(const Obx_String& a, const unsigned short* b);
  friend bool operator==(const Obx_String& a, const char16_t* b) {
    return a == reinterpret_cast<const unsigned short*>(b);
  }
  friend bool operator!=(const Obx_String& a, const char16_t* b) { return !(a == b); }

 private:
  Obx_StdString m_s;
};

// A friend declaration does not take the class's visibility: export the
// out-of-line comparison explicitly.
NXPLATFORM_API bool operator==(const Obx_String& a, const unsigned short* b);
// Writes the text as UTF-8 (malformed units substituted, as ToUtf8 does), so
// that std::cout << tag.GetName() prints the name rather than a pointer.
NXPLATFORM_API std::ostream& operator<<(std::ostream& os, const Obx_String& s);

inline ObxFormatArg::ObxFormatArg(const Obx_String& s)
    : kind(WIDE), wide(s.GetData()), wideLength(static_cast<std::size_t>(s.GetLength())) {}

namespace std {
template <>
struct hash<Obx_String> {
  std::size_t operator()(const Obx_String& s) const noexcept;
};
}  // namespace std

// Length of a zero-terminated UTF-16 text; a null pointer has length 0.
NXPLATFORM_API int _tcslen(const unsigned short* s);
inline int utf16slen(const unsigned short* s) { return _tcslen(s); }
// Copies at most n units; stops copying at a zero unit and fills the rest
// of the n units with zeros (strncpy semantics).
NXPLATFORM_API unsigned short* _tcsncpy(unsigned short* dst, const unsigned short* src, std::size_t n);

NXPLATFORM_API bool AdIsEmpty(const unsigned short* s);
inline bool AdIsNonEmpty(const unsigned short* s) { return !AdIsEmpty(s); }
// Equality under Unicode default case folding.
NXPLATFORM_API bool AdIsEqualNoCase(const unsigned short* a, const unsigned short* b);
NXPLATFORM_API void AdCStringReserveSpace(Obx_String& s, int capacity);
NXPLATFORM_API Obx_String AdStr(long value);
// Decimal text to long as strtol does: leading white space, an optional
// sign, digits up to the first other unit; empty or no digits give 0;
// out of range clamps to LONG_MIN or LONG_MAX.
NXPLATFORM_API long AdStrToLong(const unsigned short* s);
