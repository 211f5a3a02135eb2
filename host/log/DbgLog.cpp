#include "DbgLog.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <new>

#include "LogLine.h"

namespace qvlog {

DbgLog* DbgLog::Create(const char* name, const char* path, int level) {
    if (name == nullptr || path == nullptr) {
        return nullptr;
    }
    char* nameCopy = strdup(name);
    char* pathCopy = strdup(path);
    DbgLog* log = nullptr;
    if (nameCopy != nullptr && pathCopy != nullptr) {
        log = new (std::nothrow) DbgLog(nameCopy, pathCopy, level);
    }
    if (log == nullptr) {
        free(nameCopy);
        free(pathCopy);
    }
    return log;
}

DbgLog::DbgLog(char* name, char* path, int level)
    : m_name(name), m_path(path), m_level(ClampLevel(level)) {
    // localtime_r does not promise to read the time zone itself.
    tzset();
}

DbgLog::~DbgLog() {
    int fd = m_fd.load();
    if (fd >= 0) {
        close(fd);
    }
    free(m_name);
    free(m_path);
}

int DbgLog::ClampLevel(int level) {
    if (level < kMinLevel) {
        return kMinLevel;
    }
    return level > kMaxLevel ? kMaxLevel : level;
}

int DbgLog::Descriptor() {
    int fd = m_fd.load(std::memory_order_acquire);
    if (fd >= 0) {
        return fd;
    }
    int opened = open(m_path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (opened < 0) {
        return -1;
    }
    int expected = -1;
    if (m_fd.compare_exchange_strong(expected, opened, std::memory_order_acq_rel)) {
        return opened;
    }
    // Another thread opened the file first; use its descriptor.
    close(opened);
    return expected;
}

void DbgLog::WriteWholeLine(int fd, const char* line, size_t length) {
    // A regular file takes the line in one write; the loop only covers interruption and
    // a full disk, where the rest of the line is still worth keeping.
    while (length > 0) {
        ssize_t written = write(fd, line, length);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        line += written;
        length -= static_cast<size_t>(written);
    }
}

void DbgLog::Write(int level, const char* format, va_list arguments) {
    if (format == nullptr || !IsEnabled(level)) {
        return;
    }
    char text[kMaxTextBytes + 1];
    if (vsnprintf(text, sizeof text, format, arguments) < 0) {
        return;
    }
    char line[kMaxLineBytes];
    size_t length = FormatLogLine(line, sizeof line, CurrentLogStamp(), level, m_name, text);
    int fd = Descriptor();
    if (fd >= 0 && length > 0) {
        WriteWholeLine(fd, line, length);
    }
}

}  // namespace qvlog
