// The plug-in's debug log. Every message is guarded: the context is asked whether the
// level is enabled before the text is formatted. The first "%s" of every format is the
// name of the function that writes.
#pragma once

#include "QvLog.h"

// The plug-in's log context; null until the plug-in is initialised, and a null context
// writes nothing.
extern void* g_debugLogContext;

#define QV_LOG(level, ...)                                            \
    do {                                                              \
        if (QvrnIsEnableLog(g_debugLogContext, (level))) {            \
            QvrnWriteDbgLog(g_debugLogContext, (level), __VA_ARGS__); \
        }                                                             \
    } while (0)

// Levels of the host's debug log as the plug-in uses them.
enum QvLogLevel {
    QV_LOG_ERROR = 3,
    QV_LOG_WARNING = 4,
    QV_LOG_TRACE = 6,
    QV_LOG_DETAIL = 7,
};
