// The exported C interface of libQvLog over DbgLog.
#include "QvLog.h"

#include "DbgLog.h"

#define QV_EXPORT __attribute__((visibility("default")))

using qvlog::DbgLog;

extern "C" {

QV_EXPORT void* QvrnCreateDbgLog(const char* name, const char* path, int level) {
    return DbgLog::Create(name, path, level);
}

QV_EXPORT int QvrnIsEnableLog(void* context, int level) {
    return context != nullptr && static_cast<DbgLog*>(context)->IsEnabled(level) ? 1 : 0;
}

QV_EXPORT void QvrnWriteDbgLog(void* context, int level, const char* format, ...) {
    if (context == nullptr) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    static_cast<DbgLog*>(context)->Write(level, format, arguments);
    va_end(arguments);
}

QV_EXPORT void QvrnSetDbgLogLevel(void* context, int level) {
    if (context != nullptr) {
        static_cast<DbgLog*>(context)->SetLevel(level);
    }
}

QV_EXPORT void QvrnReleaseDbgLog(void* context) {
    delete static_cast<DbgLog*>(context);
}

}  // extern "C"
