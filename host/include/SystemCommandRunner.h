// The production command runner: the host's QvSystem, a shell in a process group of its
// own that is killed at the time-out.
#pragma once

#include <cstddef>

#include "CommandRunner.h"

namespace qor {
namespace vela {

class SystemCommandRunner final : public CommandRunner {
public:
    // `outputLimit`: the most output kept, the terminating NUL included; qvfwd reads whole
    // rule listings through it.
    explicit SystemCommandRunner(size_t outputLimit = kOutputLimit) : m_outputLimit(outputLimit) {}

    Result<std::string> Run(const std::string& command, unsigned int timeoutSeconds) override;

private:
    size_t m_outputLimit;
};

}  // namespace vela
}  // namespace qor
