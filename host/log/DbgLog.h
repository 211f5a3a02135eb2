// One debug-log context: a log name, a file and a level. The file is opened on the first
// line written, so creating a context never touches the file system.
#pragma once

#include <stdarg.h>
#include <stddef.h>

#include <atomic>

namespace qvlog {

class DbgLog {
public:
    static constexpr int kMinLevel = 0;
    static constexpr int kMaxLevel = 7;

    // Null when an argument is null or memory runs out.
    static DbgLog* Create(const char* name, const char* path, int level);
    ~DbgLog();
    DbgLog(const DbgLog&) = delete;
    DbgLog& operator=(const DbgLog&) = delete;

    bool IsEnabled(int level) const { return level <= m_level.load(std::memory_order_relaxed); }
    void SetLevel(int level) { m_level.store(ClampLevel(level), std::memory_order_relaxed); }
    void Write(int level, const char* format, va_list arguments);

    static int ClampLevel(int level);

private:
    DbgLog(char* name, char* path, int level);
    // The appending descriptor, opened by whichever thread gets here first; -1 when the
    // file cannot be opened now (a later line tries again).
    int Descriptor();
    static void WriteWholeLine(int fd, const char* line, size_t length);

    char* m_name;
    char* m_path;
    std::atomic<int> m_level;
    std::atomic<int> m_fd{-1};
};

}  // namespace qvlog
