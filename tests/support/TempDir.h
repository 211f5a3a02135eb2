// A temporary directory that removes itself, for tests that need real files.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace qvtest {

class TempDir {
public:
    // Under `base`, or the system's temporary directory.
    explicit TempDir(const std::string& base = std::filesystem::temp_directory_path().string()) {
        std::string pattern = base + "/qvtest.XXXXXX";
        char* made = mkdtemp(pattern.data());
        if (made != nullptr) {
            m_path = made;
        }
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // Memory-backed where the system has /dev/shm: for tests that save the configuration
    // thousands of times, each save ending in fsync.
    static std::string MemoryBase() {
        std::error_code error;
        return std::filesystem::is_directory("/dev/shm", error)
                   ? "/dev/shm"
                   : std::filesystem::temp_directory_path().string();
    }

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void writeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

}  // namespace qvtest
