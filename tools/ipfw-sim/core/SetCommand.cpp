#include "ipfwsim/SetCommand.h"

#include <cctype>
#include <cstdlib>

#include "ipfwsim/FirewallSwitches.h"
#include "ipfwsim/KeywordMatch.h"

namespace ipfwsim {

std::string setShowLine(uint32_t disabledSets) {
    std::string text;
    const char* word = "disable";
    for (uint32_t set = 0; set < kReservedSet; ++set) {
        if ((disabledSets & (1u << set)) != 0) {
            text += std::string(word) + " " + std::to_string(set);
            word = "";
        }
    }
    word = disabledSets != 0 ? " enable" : "enable";
    for (uint32_t set = 0; set < kReservedSet; ++set) {
        if ((disabledSets & (1u << set)) == 0) {
            text += std::string(word) + " " + std::to_string(set);
            word = "";
        }
    }
    return text + "\n";
}

int SetCommand::runSet(const std::vector<std::string>& words) {
    if (words.empty()) {
        return context_.fail(Status::failure(kExitUsage, "set needs command"));
    }
    Diagnostics diagnostics;
    const std::string& verb = words[0];
    if (matchesAbbreviated(verb, "show", diagnostics)) {
        context_.warnAll(diagnostics);
        return show();
    }
    if (matchesAbbreviated(verb, "swap", diagnostics) ||
        matchesAbbreviated(verb, "move", diagnostics) ||
        std::isdigit(static_cast<unsigned char>(verb.empty() ? 'x' : verb[0])) != 0) {
        context_.warnAll(diagnostics);
        return context_.fail(Status::notModelled("set " + verb));
    }
    bool enable = matchesAbbreviated(verb, "enable", diagnostics);
    if (enable || matchesAbbreviated(verb, "disable", diagnostics)) {
        context_.warnAll(diagnostics);
        return changeSets(words, enable);
    }
    context_.warnAll(diagnostics);
    return context_.fail(Status::failure(kExitUsage, "invalid set command " + verb + "\n"));
}

int SetCommand::show() {
    StateHeader header;
    Status status = loadHeader(context_.store, header);
    if (!status.ok()) {
        return context_.fail(status);
    }
    context_.console.out(setShowLine(header.disabledSets));
    return kExitOk;
}

int SetCommand::changeSets(const std::vector<std::string>& words, bool enableFirst) {
    uint32_t masks[2] = {0, 0};  // [0] to disable, [1] to enable
    int which = enableFirst ? 1 : 0;
    Diagnostics diagnostics;
    for (size_t i = 1; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (!word.empty() && std::isdigit(static_cast<unsigned char>(word[0])) != 0) {
            long set = std::strtol(word.c_str(), nullptr, 10);
            if (set < 0 || set > static_cast<long>(kReservedSet)) {
                return context_.fail(Status::failure(
                    kExitDataErr, "invalid set number " + std::to_string(set) + "\n"));
            }
            masks[which] |= 1u << set;
        } else if (matchesAbbreviated(word, "disable", diagnostics)) {
            which = 0;
        } else if (matchesAbbreviated(word, "enable", diagnostics)) {
            which = 1;
        } else {
            context_.warnAll(diagnostics);
            return context_.fail(
                Status::failure(kExitDataErr, "invalid set command " + word + "\n"));
        }
    }
    context_.warnAll(diagnostics);
    if ((masks[0] & masks[1]) != 0) {
        return context_.fail(
            Status::failure(kExitDataErr, "cannot enable and disable the same set\n"));
    }
    FirewallState state;
    Status status = context_.loadState(state);
    if (status.ok()) {
        uint32_t& disabled = state.header().disabledSets;
        disabled = (disabled | masks[0]) & ~masks[1] & ~(1u << kReservedSet);
        status = context_.saveState(state);
    }
    return status.ok() ? kExitOk : context_.fail(status);
}

int SetCommand::runSwitch(const std::vector<std::string>& words, bool enable) {
    if (words.empty()) {
        context_.warn("missing keyword to enable/disable\n");
        return kExitOk;
    }
    Diagnostics diagnostics;
    const std::string& word = words[0];
    if (matchesAbbreviated(word, "verbose", diagnostics)) {
        context_.warnAll(diagnostics);
        Status status = writeVerbose(context_.store, enable);
        return status.ok() ? kExitOk : context_.fail(status);
    }
    for (const char* known : {"firewall", "one_pass", "debug", "dyn_keepalive", "altq"}) {
        if (matchesAbbreviated(word, known, diagnostics)) {
            context_.warnAll(diagnostics);
            return context_.fail(Status::notModelled(std::string("enable/disable ") + known));
        }
    }
    context_.warn("unrecognize enable/disable keyword: " + word + "\n");
    return kExitOk;
}

}  // namespace ipfwsim
