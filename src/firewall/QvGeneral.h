// The frame's general pieces: the handler for command numbers not in the table and the
// debug-level command.
#pragma once

#include "QvPlugin.h"

// Logs its entry and returns 0; touches no argument.
int nullHandler(int cmd, const void* in, int inLen, void** out, int* outLen);

// Command 258: request DebugOption; sets the plug-in's and libQvUtil's log level (0..7).
// QV_ERR_INVALID_ARG for a missing request or a level of 8 or more. No response.
int SetDebugLevel(int cmd, const void* in, int inLen, void** out, int* outLen);
