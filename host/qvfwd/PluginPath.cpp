#include "PluginPath.h"

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

namespace qvfwd {

namespace {

std::string ExecutablePath() {
#ifdef __APPLE__
    char path[PATH_MAX];
    uint32_t size = sizeof path;
    return _NSGetExecutablePath(path, &size) == 0 ? std::string(path) : std::string();
#else
    char path[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    return length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string();
#endif
}

}  // namespace

std::string ExecutableDirectory() {
    std::string path = ExecutablePath();
    return path.empty() ? path : std::filesystem::path(path).parent_path().string();
}

std::string DefaultPluginPath() {
    const std::string directory = ExecutableDirectory();
    const std::string name = std::string("libQvFw") + QV_SHARED_LIBRARY_SUFFIX;
    const std::vector<std::string> candidates = {
        directory + "/" + QV_INSTALLED_LIBRARY_DIR + "/" + name,
        directory + "/../lib/" + name,
    };
    for (const std::string& candidate : candidates) {
        if (std::filesystem::exists(candidate)) {
            return std::filesystem::path(candidate).lexically_normal().string();
        }
    }
    return candidates.front();
}

}  // namespace qvfwd
