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
    for (const std::string& word : words) {
        if (word.empty() || std::isdigit(static_cast<unsigned char>(word[0])) == 0) {
            break;
        }
        char* end = nullptr;
        unsigned long low = std::strtoul(word.c_str(), &end, 10);
        unsigned long high = *end == '-' ? std::strtoul(end + 1, nullptr, 10) : low;
        size_t gone = 0;
        if (bySet && low > kReservedSet) {
            context_.warn("rule " + std::to_string(low) +
                          ": setsockopt(IP_FW_XDEL): Invalid argument");
            exitCode = kExitUnavailable;
            continue;
        }
        if (bySet) {
            gone = state.eraseSet(static_cast<uint32_t>(low));
        } else if (low <= kHighestUserRule) {
            gone = state.eraseNumbers(
                static_cast<uint32_t>(low),
                static_cast<uint32_t>(std::min<unsigned long>(high, kHighestUserRule)));
        }
        if (gone == 0) {
            exitCode = kExitUnavailable;
            context_.warn(bySet         ? std::string("rule 0 not found")
                          : low == high ? "rule " + std::to_string(low) + " not found"
                                        : "no rules rules in " + std::to_string(low) + "-" +
                                              std::to_string(high) + " range");
        }
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
