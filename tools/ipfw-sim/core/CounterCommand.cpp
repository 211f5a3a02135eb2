#include "ipfwsim/CounterCommand.h"

#include <cctype>
#include <cstdlib>

namespace ipfwsim {

void CounterCommand::clear(StoredRule& stored) const {
    if (!logOnly_) {
        stored.counters = Counters{};
    }
    stored.logLeft = stored.rule.logAmount;
}

bool CounterCommand::clearNumber(FirewallState& state, uint32_t number) const {
    bool found = false;
    for (RuleEntry& entry : state.rules()) {
        if (entry.stored.rule.number == number) {
            clear(entry.stored);
            found = true;
        }
    }
    if (number == kDefaultRuleNumber) {
        if (!logOnly_) {
            state.header().defaultRule = Counters{};
        }
        found = true;
    }
    return found;
}

int CounterCommand::run(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        if (word.empty() || std::isdigit(static_cast<unsigned char>(word[0])) == 0) {
            return context_.fail(
                Status::failure(kExitUsage, "invalid rule number ``" + word + "''"));
        }
    }
    FirewallState state;
    Status status = context_.loadState(state);
    if (!status.ok()) {
        return context_.fail(status);
    }
    const char* name = logOnly_ ? "RESETLOG" : "ZERO";
    int exitCode = kExitOk;
    if (words.empty()) {
        for (RuleEntry& entry : state.rules()) {
            clear(entry.stored);
        }
        clearNumber(state, kDefaultRuleNumber);
    }
    for (const std::string& word : words) {
        char* end = nullptr;
        unsigned long number = std::strtoul(word.c_str(), &end, 10);
        if (*end != '\0' || number > 0xffff) {
            return context_.fail(
                Status::failure(kExitDataErr, "invalid rule number " + word + "\n"));
        }
        if (!clearNumber(state, static_cast<uint32_t>(number))) {
            context_.warn("rule " + word + ": setsockopt(IP_FW_" + name + "): Invalid argument");
            exitCode = kExitUnavailable;
        } else if (!context_.options.quiet) {
            context_.console.out("Entry " + word +
                                 (logOnly_ ? " logging count reset.\n" : " cleared.\n"));
        }
    }
    status = context_.saveState(state);
    if (!status.ok()) {
        return context_.fail(status);
    }
    if (words.empty() && !context_.options.quiet) {
        context_.console.out(logOnly_ ? "Logging counts reset.\n" : "Accounting cleared.\n");
    }
    return exitCode;
}

}  // namespace ipfwsim
