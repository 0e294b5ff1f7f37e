// What the conversion routines offer the rest of the library beyond the
// public header: the UTF-8 decoder appending to a string.
#pragma once

#include <string_view>

#include "ids.h"
#include "nxstrings.h"

namespace nxconvert {

// The text every UTF-8 decoding failure is raised with, whichever entry
// point met it, so that a caller tells them apart by id alone.
const char* const kCannotDecodeText =
    "wide.cvtFromMBCS(AdCharset::getUTF8Charset(), data, numBytes, (throwOnDecodeError ? "
    "AdCharset::Strict : AdCharset::Nonstrict))";

// UTF82UTF16 appending to out instead of returning a new buffer: the same
// decoder, escape handling, checks and raises, with escape as both the
// starting and the ending escape state. On a raise out is as it was (escape
// is left as UTF82UTF16 leaves its ending state).
void AppendUTF82UTF16(bool& escape, const char* data, int numBytes, bool asciiOnly, bool throwOnDecodeError,
                      Obx_StdString& out);

// A whole UTF-8 text of the application (a name, a value, a text, a file
// name) as UTF-16, decoded strictly and as plain text: the application's
// text is not the wire form, so U+F800 stays itself and a control byte
// becomes its control character. Malformed bytes (surrogates and overlong
// forms included) raise kCannotDecodeMsgId as UTF82UTF16 does.
Obx_String PlainUTF82CString(std::string_view text);

}  // namespace nxconvert
