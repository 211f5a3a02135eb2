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
    words = deleteOperands(std::move(words));
    int inPlaceCode = kExitOk;
    if (!bySet && deleteInPlace(words, inPlaceCode)) {
        return inPlaceCode;
    }
    FirewallState state;
    Status status = context_.loadState(state);
    if (!status.ok()) {
        return context_.fail(status);
    }
    int exitCode = kExitOk;
    size_t erased = 0;
    for (const std::string& word : words) {
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

std::vector<std::string> deleteOperands(std::vector<std::string> words) {
    const auto firstWord = std::find_if(words.begin(), words.end(), [](const std::string& word) {
        return word.empty() || std::isdigit(static_cast<unsigned char>(word[0])) == 0;
    });
    words.erase(firstWord, words.end());
    return words;
}

bool userRuleRange(const std::string& word, uint32_t& low, uint32_t& high) {
    char* end = nullptr;
    const unsigned long first = std::strtoul(word.c_str(), &end, 10);
    const unsigned long last = *end == '-' ? std::strtoul(end + 1, nullptr, 10) : first;
    low = static_cast<uint32_t>(std::min<unsigned long>(first, kHighestUserRule + 1UL));
    high = static_cast<uint32_t>(std::min<unsigned long>(last, kHighestUserRule));
    return first <= kHighestUserRule;
}

namespace {

std::string notFoundText(const std::string& word) {
    char* end = nullptr;
    const unsigned long low = std::strtoul(word.c_str(), &end, 10);
    const unsigned long high = *end == '-' ? std::strtoul(end + 1, nullptr, 10) : low;
    return low == high
               ? "rule " + std::to_string(low) + " not found"
               : "no rules rules in " + std::to_string(low) + "-" + std::to_string(high) + " range";
}

}  // namespace

bool DeleteCommand::deleteInPlace(const std::vector<std::string>& words, int& exitCode) {
    std::string_view content;
    StateHeader header;
    if (!context_.store.read(content).ok()) {
        return false;
    }
    StateFile file(content);
    if (!file.open().ok() || !file.readHeader(header, true).ok()) {
        return false;
    }
    for (const DynamicState& state : header.dynamic) {
        for (const std::string& word : words) {
            uint32_t low = 0;
            uint32_t high = 0;
            if (userRuleRange(word, low, high) && state.ruleNumber >= low &&
                state.ruleNumber <= high) {
                return false;
            }
        }
    }
    exitCode = kExitOk;
    for (const std::string& word : words) {
        // Read again for every word: a range may cover what an earlier word deleted.
        Status status = context_.store.read(content);
        StateFile current(content);
        if (status.ok()) {
            status = current.open();
        }
        if (!status.ok()) {
            exitCode = context_.fail(status);
            return true;
        }
        uint32_t low = 0;
        uint32_t high = 0;
        std::vector<std::string_view> doomed;
        if (userRuleRange(word, low, high) && low <= high) {
            doomed = current.linesInRange(low, high);
        }
        if (doomed.empty()) {
            context_.warn(notFoundText(word));
            exitCode = kExitUnavailable;
            continue;
        }
        std::vector<std::pair<size_t, std::string>> writes;
        for (std::string_view line : doomed) {
            writes.emplace_back(current.offsetOf(line), StateFile::tombstone(line));
        }
        for (const auto& [offset, text] : writes) {
            status = context_.store.overwrite(offset, text);
            if (!status.ok()) {
                exitCode = context_.fail(status);
                return true;
            }
        }
    }
    return true;
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
    uint32_t low = 0;
    uint32_t high = 0;
    const size_t gone = userRuleRange(word, low, high) ? state.eraseNumbers(low, high) : 0;
    if (gone == 0) {
        context_.warn(notFoundText(word));
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
