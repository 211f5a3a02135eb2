// Helpers for the host-library tests: line splitting and timing. Temporary directories,
// file helpers and environment overrides come from tests/support.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include "ScopedEnv.h"
#include "TempDir.h"

namespace qvtest {

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
