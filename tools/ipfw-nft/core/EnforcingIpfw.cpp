#include "ipfwnft/EnforcingIpfw.h"

#include "ipfwnft/RuleCompiler.h"
#include "ipfwnft/TableCompiler.h"
#include "ipfwsim/CommandLine.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/KeywordMatch.h"
#include "ipfwsim/RuleParser.h"
#include "ipfwsim/Simulator.h"

namespace ipfwnft {
namespace {

using ipfwsim::Status;

bool verbIs(const std::vector<std::string>& words, const char* keyword) {
    ipfwsim::Diagnostics ignored;
    return !words.empty() && ipfwsim::matchesAbbreviated(words[0], keyword, ignored);
}

}  // namespace

EnforcingIpfw::EnforcingIpfw(ipfwsim::Environment& env, ipfwsim::StateStore& store,
                             ipfwsim::Console& console, TableApplier& applier)
    : env_(env), store_(store), console_(console), applier_(applier) {}

bool EnforcingIpfw::reprograms(const std::vector<std::string>& arguments) {
    ipfwsim::CommandLine line;
    if (!ipfwsim::Simulator::changesState(arguments) ||
        !ipfwsim::CommandLine::parse(arguments, line).ok()) {
        return false;
    }
    for (const char* verb : {"add", "delete", "flush", "set"}) {
        if (verbIs(line.words, verb)) {
            return true;
        }
    }
    return false;
}

int EnforcingIpfw::run(const std::vector<std::string>& arguments) {
    Status status = refuseUnenforceable(arguments);
    if (!status.ok()) {
        console_.err("ipfw: " + status.message + "\n");
        return status.code;
    }
    if (!reprograms(arguments)) {
        return ipfwsim::Simulator(env_, store_, console_).run(arguments);
    }
    std::string_view current;
    status = store_.read(current);
    const std::string before(current);
    int result = ipfwsim::Simulator(env_, store_, console_).run(arguments);
    if (result != ipfwsim::kExitOk || !status.ok()) {
        return result;
    }
    status = reprogram();
    if (!status.ok()) {
        console_.err("ipfw: " + status.message + "\n");
        // The kernel kept its table; the state goes back to what that table says.
        const Status restored = store_.replace(before);
        if (!restored.ok()) {
            console_.err("ipfw: the rule state could not be put back (" + restored.message +
                         "); it holds the change that the kernel refused\n");
        }
        return status.code;
    }
    return result;
}

// Only what the simulator would accept is checked here; its own refusals keep their words.
Status EnforcingIpfw::refuseUnenforceable(const std::vector<std::string>& arguments) const {
    ipfwsim::CommandLine line;
    if (!ipfwsim::CommandLine::parse(arguments, line).ok() || !verbIs(line.words, "add")) {
        return Status::success();
    }
    ipfwsim::Diagnostics ignored;
    ipfwsim::Rule rule;
    uint64_t number = 0;
    const std::vector<std::string> body(line.words.begin() + 1, line.words.end());
    if (!ipfwsim::RuleParser(env_.names(), ignored).parse(body, rule, number).ok()) {
        return Status::success();
    }
    return checkEnforceable(rule);
}

Status EnforcingIpfw::reprogram() {
    std::string_view content;
    ipfwsim::FirewallState state;
    Status status = store_.read(content);
    if (status.ok()) {
        status = ipfwsim::FirewallState::load(content, state);
    }
    std::string script;
    if (status.ok()) {
        status = compileTable(state, script);
    }
    return status.ok() ? applier_.apply(script) : status;
}

}  // namespace ipfwnft
