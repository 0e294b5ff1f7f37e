// Rendering of source locations, shared by the sources.
#pragma once

#include "xmlcontent.h"

// The location as "line L, column C, byte B" followed by label, which may
// carry a %s for name (the file of a multi-file input).
Obx_String RenderSrcLocGeneral(const XmlSourceLocation& loc, bool, const Obx_String& label, const Obx_String& name);
