#include "ipfwsim/AddCommand.h"

#include "ipfwsim/RuleLister.h"
#include "ipfwsim/RuleParser.h"
#include "ipfwsim/StateFile.h"

namespace ipfwsim {

uint32_t automaticRuleNumber(uint32_t lastNumber) {
    return lastNumber < kDefaultRuleNumber - kAutoNumberStep ? lastNumber + kAutoNumberStep
                                                             : lastNumber;
}

int AddCommand::run(const std::vector<std::string>& words) {
    Diagnostics diagnostics;
    StoredRule stored;
    uint64_t requested = 0;
    Status status =
        RuleParser(context_.env.names(), diagnostics).parse(words, stored.rule, requested);
    context_.warnAll(diagnostics);
    if (!status.ok()) {
        return context_.fail(status);
    }
    if (requested > kHighestUserRule) {
        return context_.fail(
            Status::failure(kExitUnavailable, "getsockopt(IP_FW_XADD): Invalid argument"));
    }
    stored.rule.number = static_cast<uint32_t>(requested);
    stored.logLeft = stored.rule.logAmount;
    if (!context_.options.testOnly) {
        status = store(stored);
        if (!status.ok()) {
            return context_.fail(status);
        }
    }
    echo(stored.rule);
    return kExitOk;
}

Status AddCommand::store(StoredRule& stored) {
    std::string_view content;
    Status status = context_.store.read(content);
    StateFile file(content);
    if (status.ok()) {
        status = file.open();
    }
    if (!status.ok()) {
        return status;
    }
    if (stored.rule.number == 0) {
        stored.rule.number = automaticRuleNumber(file.lastNumber());
    }
    const bool clean = file.end() == content.size();
    if (!clean || file.overflowLines() >= StateFile::kOverflowLimit) {
        FirewallState state;
        status = FirewallState::load(content, state);
        if (status.ok()) {
            state.insert(stored);
            status = context_.saveState(state);
        }
        return status;
    }
    const bool inOrder = file.appendKeepsOrder(stored.rule.number);
    const size_t newEnd = content.size() + StateFile::formatRuleLine(stored).size();
    status = context_.store.append(StateFile::formatRuleLine(stored));
    if (status.ok() && inOrder) {
        // The appended line extends the sorted part; move its end past it.
        std::string layout = StateFile::layoutLine(file.rulesAt(), newEnd);
        status = context_.store.overwrite(
            StateFile::kSortedEndField,
            std::string_view(layout).substr(StateFile::kSortedEndField, StateFile::kOffsetDigits));
    }
    return status;
}

void AddCommand::echo(const Rule& rule) const {
    if (context_.options.quiet) {
        return;
    }
    ListingStyle style;
    style.sets = context_.options.sets;
    context_.console.out(RuleLister(context_.env.names()).line(rule, Counters{}, style));
}

}  // namespace ipfwsim
