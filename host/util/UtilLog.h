// libQvUtil's own diagnostics: a debug-log context named "QvUtil" writing to
// "QvUtil.log" in $QV_LOG_DIR, or in "/var/log/Quorvane/QvrnCore" when that is unset. The
// context is made on the first message, so the directory is looked up only then.
#pragma once

namespace qvutil {

class UtilLog {
public:
    static constexpr int kDefaultLevel = 4;

    static bool IsEnabled(int level);
    static void SetLevel(int level);
    // The context to write to; null when it cannot be made.
    static void* Context();
};

}  // namespace qvutil

#define QV_UTIL_LOG(level, ...)                                                \
    do {                                                                       \
        if (qvutil::UtilLog::IsEnabled(level)) {                               \
            QvrnWriteDbgLog(qvutil::UtilLog::Context(), (level), __VA_ARGS__); \
        }                                                                      \
    } while (0)
