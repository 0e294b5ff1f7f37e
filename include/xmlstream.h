// Streams: reading XML through expat into tokens, writing tokens as UTF-8,
// conversion between UTF-8, UTF-16 and code pages, byte sources.
#pragma once

#include "xmlcontent.h"

// ===========================================================================
// Conversion between UTF-8, UTF-16 and code pages.
//
// XML cannot carry the C0 controls other than TAB, LF and CR, so text is
// written with a control-character escape: U+F800 followed by U+F800 + c for
// a control c, and U+F800 U+F800 for U+F800 itself (U+0000 gives that pair
// too and so reads back as U+F800). The escape may straddle two chunks; the
// caller carries that state in an escape flag (true: the previous chunk
// ended on an unpaired mark). Every buffer a routine returns is allocated
// with new[] and released by the caller with delete[]. Failures are raised
// as QmMsgException, never returned.

// The escape mark in UTF-16.
inline constexpr unsigned short sEscapeInUTF16 = 0xF800;
// The escape mark in UTF-8 (three bytes and a terminating zero).
inline constexpr char sEscapeInUTF8[4] = {'\xEF', '\xA0', '\x80', '\0'};
// A unit c is a C0 control exactly when (c & IsAsciiCCMask) == 0.
inline constexpr unsigned int IsAsciiCCMask = 0xFFFFFFE0u;
// A unit is outside ASCII when it has any of these bits.
inline constexpr unsigned short s_NonAsciiUTF16Mask = 0xFF80;

// Decodes the escaped form of buf[0..len) in place; len becomes the units left.
NXXML_API void ConvertXMLSafeCCToAsciiCC(unsigned short* buf, int& len, bool& inEscape);
// UTF-8 to UTF-16 with the escape decoded; numBytes < 0 converts through the terminating zero.
NXXML_API void UTF82UTF16(bool startsWithEscape, const char* data, int numBytes, bool asciiOnly,
                          bool throwOnDecodeError, unsigned short*& wide, int& wideStringSize,
                          bool& endsWithEscape);
// A whole zero-terminated UTF-8 string, escape decoded, as one string.
NXXML_API Obx_String UTF82CString(const char* data, bool asciiOnly, bool throwOnDecodeError);
// UTF-16 to UTF-8 (buffer of 4 bytes a unit, size without terminator), escaping when asked.
NXXML_API void do_UTF162UTF8(const unsigned short* wideChars, int wideCharsSize, char*& utf8Chars,
                             int& utf8Size, int escapeControlChars);

// Bytes of the locale's code page to UTF-8; dataSize < 0 converts through the terminating zero.
NXXML_API void ACP2UTF8(const char* data, int dataSize, char*& utf8Chars, int& utf8Size,
                        int escapeControlChars);
// A zero-terminated text of the locale's code page to zero-terminated UTF-8.
NXXML_API void ACP2UTF8(const char* data, char*& utf8Chars, int escapeControlChars);
// Bytes of a numbered code page to UTF-8; dataSize < 0 converts through the terminating zero.
NXXML_API void CP2UTF8(const char* data, int dataSize, char*& utf8Chars, int& utf8Size,
                       unsigned int codePage, int escapeControlChars);
// A zero-terminated text of a numbered code page to zero-terminated UTF-8.
NXXML_API void CP2UTF8(const char* data, char*& utf8Chars, unsigned int codePage, int escapeControlChars);
// A UTF-8 chunk, escape decoded, to ASCII (asciiOnly) or the locale's code page.
NXXML_API void UTF82ACP(bool startsWithEscape, const char* data, int numBytes, bool asciiOnly,
                        bool throwOnDecodeError, char*& encodedChars, int& encodedDataSize,
                        bool& endsWithEscape);
// A whole zero-terminated UTF-8 string to ASCII or the locale's code page; returns the size with the zero.
NXXML_API int UTF82ACP(const char* data, bool asciiOnly, bool throwOnDecodeError, char*& encodedChars);
// A UTF-8 chunk, escape decoded, to ASCII (asciiOnly) or code page acp.
NXXML_API void UTF82CP(bool startsWithEscape, const char* data, int numBytes, bool asciiOnly,
                       bool throwOnDecodeError, char*& encodedChars, int& encodedDataSize,
                       bool& endsWithEscape, unsigned int acp);
// End of the conversion section.
// ===========================================================================
