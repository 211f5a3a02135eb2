// Files for benchmarks: a scratch directory on the same disk as the build (so that fsync
// costs what it costs there), whole-file reads and writes, and an environment variable
// set for the life of a scope.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace qvbench {

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

class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string& value) : m_name(name) {
        const char* old = getenv(name);
        m_had = old != nullptr;
        if (m_had) {
            m_old = old;
        }
        setenv(name, value.c_str(), 1);
    }
    ~ScopedEnv() {
        if (m_had) {
            setenv(m_name.c_str(), m_old.c_str(), 1);
        } else {
            unsetenv(m_name.c_str());
        }
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string m_name;
    std::string m_old;
    bool m_had = false;
};

}  // namespace qvbench
