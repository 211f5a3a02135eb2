#include "UtilLog.h"

#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <mutex>

#include "QvLog.h"
#include "QvUtil.h"

namespace qvutil {
namespace {

constexpr const char* kLogName = "QvUtil";
constexpr const char* kLogFile = "QvUtil.log";
constexpr const char* kDefaultLogDir = "/var/log/Quorvane/QvrnCore";

std::atomic<int> g_level{UtilLog::kDefaultLevel};

void* CreateContext() {
    const char* dir = getenv("QV_LOG_DIR");
    if (dir == nullptr || *dir == '\0') {
        dir = kDefaultLogDir;
    }
    char path[4096];
    int length = snprintf(path, sizeof path, "%s/%s", dir, kLogFile);
    if (length < 0 || static_cast<size_t>(length) >= sizeof path) {
        return nullptr;
    }
    // The context passes everything; the level is checked here so that it can be set
    // before the context exists.
    return QvrnCreateDbgLog(kLogName, path, 7);
}

}  // namespace

bool UtilLog::IsEnabled(int level) {
    return level <= g_level.load(std::memory_order_relaxed);
}

void UtilLog::SetLevel(int level) {
    g_level.store(level < 0 ? 0 : (level > 7 ? 7 : level), std::memory_order_relaxed);
}

void* UtilLog::Context() {
    static void* context = CreateContext();
    return context;
}

}  // namespace qvutil

extern "C" __attribute__((visibility("default"))) void QvSetUtilDebugLevel(int level) {
    qvutil::UtilLog::SetLevel(level);
}
