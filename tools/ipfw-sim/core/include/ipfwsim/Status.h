#pragma once

#include <string>
#include <utility>

#include "ipfwsim/ExitCode.h"

namespace ipfwsim {

// Outcome of an operation: an exit code and, on failure, the text that follows "ipfw: ".
// Some real messages carry a trailing '\n' of their own (ipfw then prints an empty line),
// so the text is kept exactly as the command would print it.
struct Status {
    int code = kExitOk;
    std::string message;

    bool ok() const { return code == kExitOk; }
    static Status success() { return Status{}; }
    static Status failure(int exitCode, std::string text) {
        return Status{exitCode, std::move(text)};
    }
    // A construct the real command knows but this simulator does not model.
    static Status notModelled(const std::string& what) {
        return failure(kExitUsage, what + ": not supported by the ipfw simulator");
    }
};

}  // namespace ipfwsim
