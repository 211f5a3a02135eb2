// Runs one command line through /bin/sh and hands back what it printed: the firewall's
// only way to ipfw, sysctl, killall and touch. The plug-in runs them through the host's
// QvSystem (SystemCommandRunner); tests and the fuzzer give it an ipfw of their own.
#pragma once

#include <string>

#include "QvResult.h"

namespace qor {
namespace vela {

class CommandRunner {
public:
    // Output beyond this many bytes (the terminating NUL included) is cut off.
    static constexpr unsigned int kOutputLimit = 4096;

    virtual ~CommandRunner() = default;

    // What the command wrote to its standard output, or QV_ERR_CMD when it could not be
    // run to completion within `timeoutSeconds`. Called from any thread.
    virtual Result<std::string> Run(const std::string& command, unsigned int timeoutSeconds) = 0;
};

}  // namespace vela
}  // namespace qor
