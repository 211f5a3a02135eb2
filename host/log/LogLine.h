// The text of one debug-log line, built without any I/O so that the format can be checked
// on fixed inputs.
#pragma once

#include <stddef.h>
#include <time.h>

namespace qvlog {

// Longest message text kept in a line; longer texts are cut.
constexpr size_t kMaxTextBytes = 4000;
// Longest log name kept in a line.
constexpr size_t kMaxNameBytes = 128;
// Room for the time stamp, level, pid:tid, separators and the newline.
constexpr size_t kMaxPrefixBytes = 96;
// A buffer of this size always holds a whole line.
constexpr size_t kMaxLineBytes = kMaxPrefixBytes + kMaxNameBytes + kMaxTextBytes + 1;

// Who wrote a line and when: local broken-down time, milliseconds, process and thread.
struct LogStamp {
    struct tm localTime;
    int milliseconds;
    long pid;
    long tid;
};

// Writes "YYYY-MM-DD hh:mm:ss.mmm <level> pid:tid name text\n" into `out` (capacity
// `capacity`, at least kMaxLineBytes) and returns its length without a NUL. One trailing
// newline of `text` is dropped so that the line ends in exactly one; the name and the text
// are cut at kMaxNameBytes and kMaxTextBytes. Returns 0 when `capacity` is too small.
size_t FormatLogLine(char* out, size_t capacity, const LogStamp& stamp, int level, const char* name,
                     const char* text);

// The stamp for "now" in this process and thread.
LogStamp CurrentLogStamp();

}  // namespace qvlog
