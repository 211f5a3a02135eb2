#include "LogLine.h"

#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#ifdef __APPLE__
#include <pthread.h>
#endif

namespace qvlog {
namespace {

size_t BoundedLength(const char* text, size_t limit) {
    const void* end = memchr(text, '\0', limit);
    return end ? static_cast<size_t>(static_cast<const char*>(end) - text) : limit;
}

long CurrentThreadId() {
#ifdef __APPLE__
    uint64_t tid = 0;
    pthread_threadid_np(nullptr, &tid);
    return static_cast<long>(tid);
#else
    return static_cast<long>(syscall(SYS_gettid));
#endif
}

}  // namespace

size_t FormatLogLine(char* out, size_t capacity, const LogStamp& stamp, int level, const char* name,
                     const char* text) {
    if (capacity < kMaxLineBytes) {
        return 0;
    }
    const struct tm& t = stamp.localTime;
    int prefix = snprintf(out, kMaxPrefixBytes, "%04d-%02d-%02d %02d:%02d:%02d.%03d <%d> %ld:%ld ",
                          t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec,
                          stamp.milliseconds, level, stamp.pid, stamp.tid);
    if (prefix < 0 || static_cast<size_t>(prefix) >= kMaxPrefixBytes) {
        return 0;
    }
    size_t length = static_cast<size_t>(prefix);

    size_t nameLength = BoundedLength(name, kMaxNameBytes);
    memcpy(out + length, name, nameLength);
    length += nameLength;
    out[length++] = ' ';

    size_t textLength = BoundedLength(text, kMaxTextBytes);
    if (textLength > 0 && text[textLength - 1] == '\n') {
        --textLength;
    }
    memcpy(out + length, text, textLength);
    length += textLength;
    out[length++] = '\n';
    return length;
}

LogStamp CurrentLogStamp() {
    LogStamp stamp{};
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &stamp.localTime);
    stamp.milliseconds = static_cast<int>(now.tv_nsec / 1000000);
    stamp.pid = static_cast<long>(getpid());
    stamp.tid = CurrentThreadId();
    return stamp;
}

}  // namespace qvlog
