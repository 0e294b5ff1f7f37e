// Shared by the conversion routines: the unit name their raised errors carry
// and the catalogue ids of conversion failures.
#pragma once

namespace nxconvert {

const char* const kUnit = "xmlstream";

// Catalogue ids of the host application's message library.
const long kCannotEncodeMsgId = 27315;      // text does not fit the target code page
const long kNonAsciiMsgId = 27316;          // non-ASCII where only ASCII is allowed
const long kCannotDecodeMsgId = 27317;      // bytes not valid in their encoding
const long kEncodedNothingMsgId = 27319;    // an encoding produced no bytes

}  // namespace nxconvert
