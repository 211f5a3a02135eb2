#include "ipfwsim/DeleteCommand.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "ipfwsim/KeywordMatch.h"

namespace ipfwsim {

int DeleteCommand::runDelete(std::vector<std::string> words) {
    Diagnostics diagnostics;
    const bool bySet = !words.empty() && matchesAbbreviated(words[0], "set", diagnostics);
    context_.warnAll(diagnostics);
    if (bySet) {
        words.erase(words.begin());
    }
    FirewallState state;
    Status status = context_.loadState(state);
    if (!status.ok()) {
        return context_.fail(status);
    }
    int exitCode = kExitOk;
    size_t erased = 0;
    // Like the real command, it stops quietly at the first word that is not a number.
    for (const std::string& word : words) {
        if (word.empty() || std::isdigit(static_cast<unsigned char>(word[0])) == 0) {
            break;
        }
        size_t gone = bySet ? deleteSet(word, state) : deleteNumbers(word, state);
        exitCode = gone == 0 ? kExitUnavailable : exitCode;
        erased += gone;
    }
    if (erased > 0) {
        status = context_.saveState(state);
        if (!status.ok()) {
            return context_.fail(status);
        }
    }
    return exitCode;
}

size_t DeleteCommand::deleteSet(const std::string& word, FirewallState& state) const {
    unsigned long set = std::strtoul(word.c_str(), nullptr, 10);
    if (set > kReservedSet) {
        context_.warn("rule " + std::to_string(set) + ": setsockopt(IP_FW_XDEL): Invalid argument");
        return 0;
    }
    size_t gone = state.eraseSet(static_cast<uint32_t>(set));
    if (gone == 0) {
        context_.warn("rule 0 not found");
    }
    return gone;
}

// "N" or "N-M"; the default rule is never deleted.
size_t DeleteCommand::deleteNumbers(const std::string& word, FirewallState& state) const {
    char* end = nullptr;
    unsigned long low = std::strtoul(word.c_str(), &end, 10);
    unsigned long high = *end == '-' ? std::strtoul(end + 1, nullptr, 10) : low;
    size_t gone = 0;
    if (low <= kHighestUserRule) {
        gone = state.eraseNumbers(
            static_cast<uint32_t>(low),
            static_cast<uint32_t>(std::min<unsigned long>(high, kHighestUserRule)));
    }
    if (gone == 0) {
        context_.warn(low == high ? "rule " + std::to_string(low) + " not found"
                                  : "no rules rules in " + std::to_string(low) + "-" +
                                        std::to_string(high) + " range");
    }
    return gone;
}

// Asks only a person at a terminal; "-f" and "-q" skip the question.
bool DeleteCommand::confirmFlush() const {
    if (context_.options.force || context_.options.quiet || !context_.env.stdinIsTerminal()) {
        return true;
    }
    context_.console.out("Are you sure? [yn] ");
    context_.console.flushOut();
    std::string answer;
    char c = 0;
    do {
        if (!context_.console.readLine(answer)) {
            return false;
        }
        c = answer.empty() ? '\n'
                           : static_cast<char>(std::toupper(static_cast<unsigned char>(answer[0])));
    } while (c != 'Y' && c != 'N');
    context_.console.out("\n");
    return c == 'Y';
}

int DeleteCommand::runFlush() {
    if (!confirmFlush()) {
        return kExitOk;
    }
    FirewallState state;
    Status status = context_.loadState(state);
    if (status.ok()) {
        state.flush();
        status = context_.saveState(state);
    }
    if (!status.ok()) {
        return context_.fail(status);
    }
    if (!context_.options.quiet) {
        context_.console.out("Flushed all rules.\n");
    }
    return kExitOk;
}

}  // namespace ipfwsim
