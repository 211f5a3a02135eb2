// The production command runner: the host's QvSystem, a shell in a process group of its
// own that is killed at the time-out.
#pragma once

#include "CommandRunner.h"

namespace qor {
namespace vela {

class SystemCommandRunner final : public CommandRunner {
public:
    Result<std::string> Run(const std::string& command, unsigned int timeoutSeconds) override;
};

}  // namespace vela
}  // namespace qor
