// The packet and byte counters of every installed rule, as "ipfw -S show" reports them.
// The command line is fixed: nothing a client sends reaches it.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>

#include "CommandRunner.h"

namespace qvfwd {

class IpfwCounters {
public:
    IpfwCounters();
    explicit IpfwCounters(std::unique_ptr<qor::vela::CommandRunner> runner)
        : m_run(std::move(runner)) {}

    // 0 with ipfw's listing in `listing`, or QV_ERR_CMD when ipfw could not be run.
    int32_t Show(std::string* listing) const;

private:
    const std::unique_ptr<qor::vela::CommandRunner> m_run;
};

}  // namespace qvfwd
