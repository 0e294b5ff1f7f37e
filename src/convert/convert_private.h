// What the conversion routines offer the rest of the library beyond the
// public header: the UTF-8 decoder appending to a string.
#pragma once

#include "ids.h"
#include "nxstrings.h"

namespace nxconvert {

// UTF82UTF16 appending to out instead of returning a new buffer: the same
// decoder, escape handling, checks and raises, with escape as both the
// starting and the ending escape state. On a raise out is as it was (escape
// is left as UTF82UTF16 leaves its ending state).
void AppendUTF82UTF16(bool& escape, const char* data, int numBytes, bool asciiOnly, bool throwOnDecodeError,
                      Obx_StdString& out);

}  // namespace nxconvert
