// Hooks that let a library render texts of the platform in a tagged (XML)
// form: resource strings loaded by id and the output of a command with its
// exit code. (The message hook is QmMessage::InitTaggedMsgCallback.) Each
// hook is registered once at load and decides itself whether to tag.
#pragma once

#include "nxplatform_export.h"
#include "nxstrings.h"

// The resource-string hook: text holds the loaded string and may be replaced.
typedef void (*AdLoadStringTaggedMsgCallback)(Obx_String& text, long id);
// Null unregisters.
NXPLATFORM_API void AdLoadStringInitTaggedMsgCallback(AdLoadStringTaggedMsgCallback callback);
// The catalogue text of id as a user is shown it: passed through the hook
// when one is registered. Empty for an unknown id (before the hook).
// Format strings are loaded with Obx_String::LoadString, never tagged.
NXPLATFORM_API Obx_String AdLoadString(long id);

// The command-output hook: called with isStart non-zero for the text that
// goes before a command's output, and with isStart 0 and the exit code for
// the text that goes after it. text starts empty.
typedef void (*AdUtilTaggedMsgCallback)(Obx_String& text, const unsigned short* id, int isStart, int exitCode);
// Null unregisters.
NXPLATFORM_API void AdUtilInitTaggedMsgCallback(AdUtilTaggedMsgCallback callback);
// What a command named id writes before its output; empty when its output
// is not tagged (no hook, or the hook left it empty).
NXPLATFORM_API Obx_String AdUtilCommandHead(const unsigned short* id);
// What the command writes after its output, given its exit code; empty when
// its output is not tagged.
NXPLATFORM_API Obx_String AdUtilCommandTail(const unsigned short* id, int exitCode);
