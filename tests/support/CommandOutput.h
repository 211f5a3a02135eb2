// Runs a shell command line from a test and returns what it wrote to standard output.
#pragma once

#include <stdio.h>
#include <sys/wait.h>

#include <string>

namespace qvtest {

// What `command` wrote to standard output; its exit status in `exitCode` (-1 when it did
// not exit), when given.
inline std::string commandOutput(const std::string& command, int* exitCode = nullptr) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return output;
    }
    char chunk[4096];
    for (size_t n; (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;) {
        output.append(chunk, n);
    }
    const int status = pclose(pipe);
    if (exitCode != nullptr) {
        *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    return output;
}

}  // namespace qvtest
