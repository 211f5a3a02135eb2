// QvGetFilePath: where the host's configuration files live.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "QvLog.h"
#include "QvUtil.h"
#include "UtilLog.h"

namespace {

constexpr const char* kDefaultConfDir = "/etc/Quorvane/QvrnCore";

const char* ConfDir() {
    const char* dir = getenv("QV_CONF_DIR");
    return dir != nullptr && *dir != '\0' ? dir : kDefaultConfDir;
}

bool IsDirectory(const char* path) {
    struct stat info {};
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

// The directory without trailing slashes (but "/" stays "/"), so joins give one slash.
size_t TrimmedLength(const char* dir) {
    size_t length = strlen(dir);
    while (length > 1 && dir[length - 1] == '/') {
        --length;
    }
    return length;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int QvGetFilePath(char* buffer, size_t size,
                                                                    const char* name) {
    if (buffer == nullptr || size == 0 || name == nullptr || *name == '\0') {
        QV_UTIL_LOG(3, "%s invalid argument", "QvGetFilePath");
        return 0;
    }
    const char* dir = ConfDir();
    if (!IsDirectory(dir)) {
        QV_UTIL_LOG(4, "%s directory %s does not exist", "QvGetFilePath", dir);
        return 0;
    }
    size_t dirLength = TrimmedLength(dir);
    const char* separator = dir[dirLength - 1] == '/' ? "" : "/";
    int length =
        snprintf(buffer, size, "%.*s%s%s", static_cast<int>(dirLength), dir, separator, name);
    if (length < 0 || static_cast<size_t>(length) >= size) {
        QV_UTIL_LOG(3, "%s path for %s does not fit %zu bytes", "QvGetFilePath", name, size);
        buffer[0] = '\0';
        return 0;
    }
    return 1;
}
