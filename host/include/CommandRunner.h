// Runs one command line through /bin/sh and hands back what it printed: the only way the
// plug-in and qvfwd reach ipfw, sysctl, killall and touch. In the product it is the
// host's QvSystem (SystemCommandRunner); tests and the fuzzer give it an ipfw of their own.
#pragma once

#include <cstdint>
#include <string>

#include "QvFirewall.h"
#include "QvResult.h"

namespace qor {
namespace vela {

class CommandRunner {
public:
    // Output beyond this many bytes (the terminating NUL included) is cut off, unless the
    // runner was made for more.
    static constexpr unsigned int kOutputLimit = 4096;
    // The failure of a command line that could not be run to completion: the plug-in's
    // own code, which its callers pass on as it is.
    static constexpr int32_t kCannotRun = QV_ERR_CMD;

    virtual ~CommandRunner() = default;

    // What the command wrote to its standard output, or kCannotRun when it could not be
    // run to completion within `timeoutSeconds`. Called from any thread.
    virtual Result<std::string> Run(const std::string& command, unsigned int timeoutSeconds) = 0;
};

}  // namespace vela
}  // namespace qor
