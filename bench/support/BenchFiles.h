// Files for benchmarks: a scratch directory on the same disk as the build (so that fsync
// costs what it costs there) and whole-file reads and writes. Environment overrides are
// the tests' ScopedEnv.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "ScopedEnv.h"

namespace qvbench {

using qvtest::ScopedEnv;

class ScratchDir {
public:
    ScratchDir() {
        const char* base = getenv("QV_BENCH_SCRATCH");
        std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/qvbench.XXXXXX";
        const char* made = mkdtemp(pattern.data());
        m_path = made != nullptr ? made : "";
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

inline std::string readWhole(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

inline void writeWhole(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

}  // namespace qvbench
