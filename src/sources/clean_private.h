// Shared by the repairing and detecting sources.
#pragma once

#include <vector>

namespace nxclean {

const char* const kUnit = "xmlstream";
const unsigned char AMP = '&';
const unsigned char DEL = 127;

// A pass-through table of 256 entries: the C0 block repaired but TAB, LF
// and CR; then either ASCII up to 126 passing but "&" (extendTo127), or
// every byte from 32 up passing but "&" (passHigh), or all of ASCII passing.
std::vector<bool> BuildPassThrough(bool extendTo127, bool passHigh);

// Raises the unreachable-code message.
[[noreturn]] void Unreached(int line);

}  // namespace nxclean
