// Character sets: decoding bytes of a charset into UTF-16 and encoding
// UTF-16 into a charset, strictly (failing on anything that does not map)
// or leniently (substituting), through ICU converters.
#pragma once

#include <string>

#include "nxplatform_export.h"
#include "nxstrings.h"

class NXPLATFORM_API AdCharset {
 public:
  enum converter_t { Strict, Nonstrict };

  static const AdCharset& getUTF8Charset();
  static const AdCharset& getASCIICharset();
  // The charset of the process's locale (LC_CTYPE, as nl_langinfo(CODESET)
  // reports it), so that it agrees with mblen. Read at every call: the
  // application may change its locale.
  static const AdCharset& getDefaultCharset();

  explicit AdCharset(std::string name) : m_name(std::move(name)) {}
  // The ICU converter name.
  const std::string& getName() const { return m_name; }
  // Whether ICU knows a converter for this charset.
  bool isKnown() const;

 private:
  std::string m_name;
};

class NXPLATFORM_API AdCodePage {
 public:
  // The charset of a numbered (Windows) code page: 1252, 936, 932, 65001...
  // An unknown number gives a charset whose conversions fail.
  static AdCharset GetCharset(unsigned int codePage);
};

// UTF-16 text decoded from a charset.
class NXPLATFORM_API AdUTF16String {
 public:
  // False when strict decoding meets bytes that are not valid in the charset
  // or the charset is unknown; the content is then empty.
  bool cvtFromMBCS(const AdCharset& charset, const char* data, int length,
                   AdCharset::converter_t mode = AdCharset::Strict);
  int getLength() const { return m_text.GetLength(); }
  const unsigned short* getData() const { return m_text.GetData(); }
  const Obx_String& getString() const { return m_text; }

 private:
  Obx_String m_text;
};

// Bytes of a charset encoded from UTF-16.
class NXPLATFORM_API AdMbcsString {
 public:
  AdMbcsString() = default;
  explicit AdMbcsString(std::string bytes) : m_bytes(std::move(bytes)) {}
  // False when strict encoding meets a character the charset cannot hold (or
  // an unpaired surrogate) or the charset is unknown; the content is then
  // empty.
  bool cvtFromUTF16(const AdCharset& charset, const unsigned short* data, int length,
                    AdCharset::converter_t mode = AdCharset::Strict);
  int getLength() const { return static_cast<int>(m_bytes.size()); }
  const char* getData() const { return m_bytes.c_str(); }

 private:
  std::string m_bytes;
};

// A UTF-16 file name as the file system takes it. File names are UTF-8
// bytes on the systems this runs on, whatever the process's locale, so a
// name with accents opens the same file in a "C" locale as in any other.
NXPLATFORM_API AdMbcsString MbcsFileName(const unsigned short* name);
