// QvInitDebugByConfig: a debug-log context whose level comes from a configuration file.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "DebugLevelReader.h"
#include "QvLog.h"
#include "QvUtil.h"
#include "UtilLog.h"

namespace qvutil {
namespace {

// Configuration files are small; anything larger is not one of ours.
constexpr off_t kMaxConfigBytes = 16 * 1024 * 1024;

// Frees a malloc'ed buffer at scope end.
struct MallocBuffer {
    uint8_t* bytes = nullptr;
    size_t length = 0;
    ~MallocBuffer() { free(bytes); }
};

bool ReadWholeFile(const char* path, MallocBuffer* content) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    struct stat info {};
    bool ok = fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size <= kMaxConfigBytes;
    if (ok && info.st_size > 0) {
        content->bytes = static_cast<uint8_t*>(malloc(static_cast<size_t>(info.st_size)));
        ok = content->bytes != nullptr;
    }
    while (ok && content->length < static_cast<size_t>(info.st_size)) {
        ssize_t got = read(fd, content->bytes + content->length,
                           static_cast<size_t>(info.st_size) - content->length);
        if (got > 0) {
            content->length += static_cast<size_t>(got);
        } else if (got == 0 || errno != EINTR) {
            ok = got == 0;  // a file that shrank meanwhile is read as far as it goes
            break;
        }
    }
    close(fd);
    return ok;
}

int LevelFromConfig(const char* confName) {
    char path[PATH_MAX];
    if (confName == nullptr || !QvGetFilePath(path, sizeof path, confName)) {
        return kDefaultDebugLevel;
    }
    MallocBuffer content;
    if (!ReadWholeFile(path, &content)) {
        QV_UTIL_LOG(4, "%s cannot read %s, errno is %d", "QvInitDebugByConfig", path, errno);
        return kDefaultDebugLevel;
    }
    return DebugLevelFromPlist(content.bytes, content.length);
}

// `logPath`, or its file name inside $QV_LOG_DIR when that is set.
bool ResolveLogPath(const char* logPath, char* out, size_t size) {
    const char* dir = getenv("QV_LOG_DIR");
    int length;
    if (dir != nullptr && *dir != '\0') {
        const char* slash = strrchr(logPath, '/');
        const char* fileName = slash ? slash + 1 : logPath;
        if (*fileName == '\0') {
            return false;
        }
        length = snprintf(out, size, "%s/%s", dir, fileName);
    } else {
        length = snprintf(out, size, "%s", logPath);
    }
    return length > 0 && static_cast<size_t>(length) < size;
}

// Creates every missing directory above the file `path` (mode 0755).
bool EnsureParentDirectory(const char* path) {
    char dir[PATH_MAX];
    snprintf(dir, sizeof dir, "%s", path);
    char* lastSlash = strrchr(dir, '/');
    if (lastSlash == nullptr || lastSlash == dir) {
        return true;  // the working directory or the root
    }
    *lastSlash = '\0';
    for (char* slash = strchr(dir + 1, '/');; slash = strchr(slash + 1, '/')) {
        if (slash)
            *slash = '\0';
        if (mkdir(dir, 0755) != 0 && errno != EEXIST) {
            return false;
        }
        if (!slash)
            break;
        *slash = '/';
    }
    struct stat info {};
    return stat(dir, &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace
}  // namespace qvutil

extern "C" __attribute__((visibility("default"))) int QvInitDebugByConfig(void** context,
                                                                          const char* confName,
                                                                          const char* logName,
                                                                          const char* logPath) {
    using namespace qvutil;
    if (context == nullptr || logName == nullptr || logPath == nullptr) {
        QV_UTIL_LOG(3, "%s invalid argument", "QvInitDebugByConfig");
        return 0;
    }
    char path[PATH_MAX];
    if (!ResolveLogPath(logPath, path, sizeof path)) {
        QV_UTIL_LOG(3, "%s log path %s unusable", "QvInitDebugByConfig", logPath);
        return 0;
    }
    if (!EnsureParentDirectory(path)) {
        // The context is still made: its file opens once the directory exists.
        QV_UTIL_LOG(3, "%s cannot create the directory of %s, errno is %d", "QvInitDebugByConfig",
                    path, errno);
    }
    void* created = QvrnCreateDbgLog(logName, path, LevelFromConfig(confName));
    if (created == nullptr) {
        QV_UTIL_LOG(3, "%s out of memory", "QvInitDebugByConfig");
        return 0;
    }
    *context = created;
    return 1;
}
