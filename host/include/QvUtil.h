// libQvUtil: the host's utility library (file locations, debug-log set-up, the command
// runner). CoreFoundation helpers are in QvCFUtil.h, the thread class in Thread.h and
// the inter-process call in QvIpc.h.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// Writes "DIR/name" into `buffer` (at most `size` bytes including the NUL), where DIR
// is $QV_CONF_DIR when set and non-empty, else "/etc/Quorvane/QvrnCore". Returns
// non-zero on success; zero when an argument is null, `name` is empty, DIR does not
// exist or the path does not fit. The file itself need not exist. Thread-safe.
int QvGetFilePath(char* buffer, size_t size, const char* name);

// Sets up a debug-log context in `*context` (created with QvrnCreateDbgLog). The level
// is the root key "DebugLevel" of the property list `confName` (located with
// QvGetFilePath) when it holds an integer 0..7, else 4. The log file is `logPath`, or,
// when $QV_LOG_DIR is set and non-empty, the same file name inside $QV_LOG_DIR. The log
// file's directory is created when missing (mode 0755); should that fail, the context is
// still made and its file opens once the directory exists. Returns non-zero when the
// context was made; otherwise `*context` is left as it was. A context already in
// `*context` is not released. The caller owns the context and releases it with
// QvrnReleaseDbgLog.
int QvInitDebugByConfig(void** context, const char* confName, const char* logName,
                        const char* logPath);

// Sets the level of libQvUtil's own diagnostics (0..7; others are clamped).
void QvSetUtilDebugLevel(int level);

// Runs `/bin/sh -c command` with posix_spawn in a new process group.
//  - buffer/size: when buffer is non-null and size > 0, standard output is captured
//    into it as a NUL-terminated string truncated to size - 1 bytes (the rest is read
//    and discarded so the command never blocks on a full pipe); otherwise standard
//    output goes to /dev/null. Standard error is inherited. Standard input is /dev/null.
//  - timeout: seconds; 0 means no limit. At expiry the whole process group is killed
//    (SIGKILL) and the call returns false.
// Returns true when the shell ran to completion (exited, whatever its status) within
// the time-out; false when it could not be started, was killed by a signal or timed
// out. Once the shell has exited the call returns, even if a background process it
// started still holds standard output. The child starts with no signal blocked and
// default dispositions. Processes that leave the group (setsid) escape the time-out's
// kill. A host that ignores SIGCHLD loses the exit status, which counts as failure.
// Safe to call from many threads at once; no descriptor of the caller leaks into the
// child. The caller owns `buffer`.
bool QvSystem(const char* command, char* buffer, unsigned int size, unsigned int timeout);

#ifdef __cplusplus
}
#endif
