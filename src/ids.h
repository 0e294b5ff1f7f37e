// The ids of the host catalogue's messages that the library raises.
#pragma once

namespace nxmsg {

const long kCannotOpenMsgId = 27309;    // an input file cannot be opened: %_ARG1_% name, %_ARG2_% reason
const long kCannotReadMsgId = 27323;    // an input cannot be read: %_ARG1_% name, %_ARG2_% reason
const long kTokenTooLongMsgId = 27324;  // a token longer than the limit: %_ARG1_% limit, %_LOCATION_%
const long kEndsInsideMsgId = 27325;    // the input ends inside elements: %_ARG1_% open, %_LOCATION_%
const long kCannotRepairMsgId = 27326;  // added to a failed repair of an old packet: %_LOCATION_% in the packet

}  // namespace nxmsg
