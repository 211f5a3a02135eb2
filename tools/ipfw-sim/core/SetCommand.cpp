#include "ipfwsim/SetCommand.h"

#include <cctype>
#include <cstdio>
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
    const Status status = switchSets(masks[0], masks[1]);
    return status.ok() ? kExitOk : context_.fail(status);
}

// The switches are one fixed-width header line, written in place: a switch costs the same
// however many rules there are.
Status SetCommand::switchSets(uint32_t disable, uint32_t enable) {
    std::string_view content;
    StateHeader header;
    Status status = context_.store.read(content);
    StateFile file(content);
    if (status.ok()) {
        status = file.open();
    }
    if (status.ok()) {
        status = file.readHeader(header, false);
    }
    if (!status.ok()) {
        return status;
    }
    const size_t at = file.headerValueAt("disabled-sets");
    if (at == std::string_view::npos) {
        return Status::failure(kExitDataErr, "state file is corrupt: no set switches");
    }
    const uint32_t disabled = (header.disabledSets | disable) & ~enable & ~(1u << kReservedSet);
    char digits[16];
    std::snprintf(digits, sizeof(digits), "%08x", disabled);
    return context_.store.overwrite(at, digits);
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
