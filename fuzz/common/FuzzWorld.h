// A configuration directory for fuzz targets that drive the store: made once per process
// in memory-backed /dev/shm when there is one (every save ends in fsync), and pointed to
// by $QV_CONF_DIR.
#pragma once

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace qvfuzz {

inline std::string MakeConfDir() {
    const bool shm = access("/dev/shm", W_OK) == 0;
    std::string pattern = std::string(shm ? "/dev/shm" : "/tmp") + "/qvfuzz.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    setenv("QV_CONF_DIR", pattern.c_str(), 1);
    return pattern;
}

inline void WriteFile(const std::string& path, const void* data, size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
}

// The options of a world whose log and logger configuration stay inside `dir`.
inline std::string ConfigXml(const std::string& dir) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>"
           "<key>FwOptions</key><dict><key>enable_fw</key><true/>"
           "<key>default_set_num</key><integer>19</integer>"
           "<key>exception_set_num</key><integer>18</integer>"
           "<key>fw_log_path</key><string>" +
           dir + "/ipfw.log</string><key>syslog_conf</key><string>" + dir +
           "/syslog.conf</string></dict></dict>\n</plist>\n";
}

}  // namespace qvfuzz
