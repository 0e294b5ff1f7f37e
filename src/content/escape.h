// Escaping of text for XML images, shared by the images of the content model.
#pragma once

#include "nxstrings.h"

// Escapes text in place. Attribute mode escapes & < > ' " tab LF CR;
// character-data mode leaves both quotes alone. Line ends and tabs become
// character references in both modes so that they survive a reader's
// normalisation. Text with nothing to escape is not touched or reallocated.
void escape_attr_value(bool attributeMode, Obx_String& text);
