// The frame's general pieces: the handler for command numbers not in the table, the
// debug-level command, and the notification callback slot with its do-nothing default.
#pragma once

#include <atomic>

#include "QvPlugin.h"

// Where events go; never null. Written by QvPluginSetNotificationCallback, read by the
// event watcher's thread for each event.
extern std::atomic<QvNotifyCallback> g_notify;

// Logs its entry and returns 0; touches no argument.
int nullHandler(int cmd, const void* in, int inLen, void** out, int* outLen);

// Command 258: request DebugOption; sets the plug-in's and libQvUtil's log level (0..7).
// 20002 for a missing request or a level of 8 or more. No response.
int SetDebugLevel(int cmd, const void* in, int inLen, void** out, int* outLen);
