// Runs a shell command line from a test and returns what it wrote to standard output.
#pragma once

#include <stdio.h>

#include <string>

namespace qvtest {

inline std::string commandOutput(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return output;
    }
    char chunk[512];
    size_t n;
    while ((n = fread(chunk, 1, sizeof(chunk), pipe)) > 0) {
        output.append(chunk, n);
    }
    pclose(pipe);
    return output;
}

}  // namespace qvtest
