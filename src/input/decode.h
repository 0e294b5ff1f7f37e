// Decoding of the parser's UTF-8 into the tokens' UTF-16, for names,
// attribute values and text pieces: the ASCII most of a packet is made of
// is widened directly, the rest goes through the conversion's decoder.
#pragma once

#include <cstddef>

#include "nxstrings.h"

// Appends the decoded text of s[0..n) to out, escape carrying the state of
// the control-character escape across pieces. Gives the same units, checks
// and errors as converting the whole piece; on a raise out is left as it was.
void AppendDecoded(const char* s, std::size_t n, bool& escape, bool asciiOnly, bool lenient, Obx_StdString& out);

// A zero-terminated name or attribute value, decoded into out (empty); an
// escape left open at its end is an assertion.
void DecodeName(const char* s, bool asciiOnly, bool lenient, Obx_StdString& out);
