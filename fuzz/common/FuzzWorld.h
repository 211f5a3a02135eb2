// What the fuzz targets share: the report of a broken property (the target's name, what
// broke, the input's detail, then abort) and, for targets that drive the store, a
// configuration directory made once per process in memory-backed /dev/shm when there is
// one (every save ends in fsync), pointed to by $QV_CONF_DIR.
#pragma once

#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace qvfuzz {

[[noreturn]] inline void Fail(const char* what, const std::string& detail = "") {
    std::fprintf(stderr, "%s: %s%s%s\n", program_invocation_short_name, what,
                 detail.empty() ? "" : ": ", detail.c_str());
    std::abort();
}

inline std::string MakeConfDir() {
    const bool shm = access("/dev/shm", W_OK) == 0;
    std::string pattern = std::string(shm ? "/dev/shm" : "/tmp") + "/qvfuzz.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        Fail("mkdtemp", pattern);
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
