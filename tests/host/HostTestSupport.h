// Helpers for the host-library tests: environment overrides, line splitting and timing.
// Temporary directories and file helpers come from tests/support.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include "TempDir.h"

namespace qvtest {

// Sets (or, with null, unsets) an environment variable and restores it at scope end.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : m_name(name) {
        const char* old = getenv(name);
        m_hadOld = old != nullptr;
        if (m_hadOld) {
            m_old = old;
        }
        if (value) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
    ScopedEnv(const char* name, const std::string& value) : ScopedEnv(name, value.c_str()) {}
    ~ScopedEnv() {
        if (m_hadOld) {
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
    bool m_hadOld = false;
};

inline std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

inline double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace qvtest
