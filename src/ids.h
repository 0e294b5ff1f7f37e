// The numbers and names the library reports under: the ids of the host
// catalogue's messages it raises, and the unit names that its assertions and
// messages carry. Every area takes them from here; the texts live in the
// catalogue, this only says what each id is for and which parameters it takes.
#pragma once

#include "nxstrings.h"

namespace nxmsg {

// Unit names: the "source file" an assertion or a raised message names.
inline constexpr const char* kContentUnit = "xmlcontent";  // the content model
inline constexpr const char* kStreamUnit = "xmlstream";    // everything else
// The label under which diagnostics are reported.
inline const unsigned short* const AD_IDS_XML_STREAM = NX_U16(u"Xmlstream");

// Diagnostic id of the trace of extracted tags (level 2) and attributes (3).
inline constexpr int kExtractTraceDiagId = 47;

// Reading.
inline constexpr long kWrongTokenMsgId = 27301;        // format: expected description, found description
inline constexpr long kSTagMismatchMsgId = 27305;      // %_ARG1_% expected, %_ARG2_% found, %_LOCATION_%
inline constexpr long kETagMismatchMsgId = 27306;      // %_ARG1_% expected, %_ARG2_% found, %_LOCATION_%
inline constexpr long kElementMismatchMsgId = 27307;   // %_ARG1_% end tag, %_ARG2_% start tag, %_LOCATION_%
inline constexpr long kRefusedMarkupMsgId = 27308;     // markup the library does not accept: %_LOCATION_%
inline constexpr long kParseErrorDetailMsgId = 27313;  // format: expat's text, location, excerpt
inline constexpr long kRaisedWhileParsingMsgId = 27318;  // text between a caught message and its place
inline constexpr long kTooDeepMsgId = 27322;           // %_ARG1_% the depth limit, %_LOCATION_%
inline constexpr long kTokenTooLongMsgId = 27324;      // %_ARG1_% the size limit, %_LOCATION_%
inline constexpr long kEndsInsideMsgId = 27325;        // %_ARG1_% elements open, %_LOCATION_%

// Sources and locations.
inline constexpr long kCannotOpenMsgId = 27309;      // an input file: %_ARG1_% name, %_ARG2_% reason
inline constexpr long kLocationFormatMsgId = 27310;  // format: line, column, byte index (then the label)
inline constexpr long kFileLabelMsgId = 27311;       // format appended for a file of a list: its name
inline constexpr long kCannotReadMsgId = 27323;      // an input: %_ARG1_% name, %_ARG2_% reason

// Conversion.
inline constexpr long kCannotEncodeMsgId = 27315;    // text does not fit the target code page
inline constexpr long kNonAsciiMsgId = 27316;        // non-ASCII where only ASCII is allowed
inline constexpr long kCannotDecodeMsgId = 27317;    // bytes not valid in their encoding
inline constexpr long kEncodedNothingMsgId = 27319;  // an encoding produced no bytes: _CPNUM_, _ERRORNUM_

// Writing.
inline constexpr long kStreamNotReadyMsgId = 27303;  // a caller's file stream is not good
inline constexpr long kCannotCreateMsgId = 27304;    // the first file of a series: %_ARG1_% name, %_ARG2_% reason
inline constexpr long kWriteFailedMsgId = 27320;     // a write to a file failed
inline constexpr long kCannotRepairMsgId = 27326;  // added to a failed repair of an old packet: %_LOCATION_% in the packet

}  // namespace nxmsg
