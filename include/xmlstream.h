// Streams: reading XML through expat into tokens, writing tokens as UTF-8,
// conversion between UTF-8, UTF-16 and code pages, byte sources.
#pragma once

#include "xmlcontent.h"
