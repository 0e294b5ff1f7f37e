#include "commands.h"

// clean is copy of a packet in an old format: its default format is auto,
// and its messages name it.
int RunClean(const CopyOptions& options) { return RunCopy(options); }
