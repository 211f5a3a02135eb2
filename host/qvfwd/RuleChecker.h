// What ipfw would make of a rule, without installing it: the rule body the plug-in's
// generator writes for it, and ipfw's verdict on "ipfw -q -n add BODY" (-n: check only).
// The body is built by the same generator that refuses host and interface names unsafe
// for the shell, so nothing from the message reaches /bin/sh unchecked.
#pragma once

#include <stdint.h>

#include <memory>
#include <string>

#include "CommandRunner.h"
#include "RuleGenerator.h"

namespace qvfwd {

// How long qvfwd lets any ipfw command line of its own run.
constexpr unsigned int kIpfwTimeoutSeconds = 10;

class RuleChecker {
public:
    // On the host's runner.
    RuleChecker();
    // Every command line goes through `runner`, which joins standard error to the output
    // where the command line asks for it.
    explicit RuleChecker(std::unique_ptr<qor::vela::CommandRunner> runner)
        : m_run(std::move(runner)) {}

    // `rule`: a serialized qor.vela.FwRule. 0 with the body in `text`, QV_ERR_INCOMPLETE for an
    // incomplete message, or the generator's code.
    int32_t RuleText(const std::string& rule, std::string* text) const;

    // 0 when ipfw accepts the rule, FW_ERR_RULE_REFUSED when it refuses (its words follow the body
    // in `report`), QV_ERR_CMD when ipfw could not be run, or RuleText's code.
    int32_t Check(const std::string& rule, std::string* report) const;

private:
    const std::unique_ptr<qor::vela::CommandRunner> m_run;
    // Read-only once made: the control sessions' threads share it.
    const qor::vela::RuleGenerator m_generator;
};

}  // namespace qvfwd
