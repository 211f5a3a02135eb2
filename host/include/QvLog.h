// libQvLog: the host's debug log.
//
// A context holds a log name, a file path and a level. A message is written when its
// level is at most the context's level (0 = emergencies only ... 7 = debug detail).
// Each message is one line appended to the file with O_APPEND, written with a single
// write(2) so lines from many threads and processes never interleave:
//
//   2026-11-22 10:00:00.123 <3> 1234:1240 QvFw RuleMgr::DoCmd failed to ...
//
// local time with milliseconds, the level in angle brackets, pid:tid, the log name and
// the formatted text. A null context enables nothing and writes nothing.
//
// The file is opened once and kept open. Rotate it by copying and truncating (appends
// then land at the new end); a file renamed away keeps receiving lines until the
// context is released and created again.
//
// Threads: every function may be called from any thread at any time, except that
// QvrnReleaseDbgLog must not race other calls on the same context.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Creates a context. `name` and `path` are copied; the caller keeps ownership of both.
// The file is opened lazily on the first write and created (mode 0644) when missing; its
// directory must exist. Returns null when out of memory or when an argument is null.
void* QvrnCreateDbgLog(const char* name, const char* path, int level);

// Non-zero when a message of `level` would be written to `context`.
int QvrnIsEnableLog(void* context, int level);

// printf-style. The formatted text is truncated to 4000 bytes; a trailing newline in
// the format is not doubled. Messages above the context's level are dropped.
void QvrnWriteDbgLog(void* context, int level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Changes the level of `context` (values outside 0..7 are clamped).
void QvrnSetDbgLogLevel(void* context, int level);

// Closes the file and frees the context. Null is accepted and ignored.
void QvrnReleaseDbgLog(void* context);

#ifdef __cplusplus
}
#endif
