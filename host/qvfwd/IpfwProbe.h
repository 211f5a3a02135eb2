// Whether the ipfw that the plug-in drives is there and answers. Without it the plug-in
// would report rules "installed" and a firewall "enabled" over nothing, so the daemon
// refuses to start and its status says so. The command line is fixed.
#pragma once

#include <memory>
#include <string>

#include "CommandRunner.h"

namespace qvfwd {

class IpfwProbe {
public:
    IpfwProbe();
    explicit IpfwProbe(std::unique_ptr<qor::vela::CommandRunner> runner)
        : m_run(std::move(runner)) {}

    // True when "ipfw set show" ran and exited 0; otherwise `why` says what happened, in
    // ipfw's or the shell's own words where there are any.
    bool Answers(std::string* why) const;

private:
    const std::unique_ptr<qor::vela::CommandRunner> m_run;
};

}  // namespace qvfwd
