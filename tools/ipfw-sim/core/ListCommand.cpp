#include "ipfwsim/ListCommand.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "ipfwsim/Inet.h"

namespace ipfwsim {

int ListCommand::run(const std::vector<std::string>& words) {
    std::string_view content;
    Status status = context_.store.read(content);
    StateFile file(content);
    StateHeader header;
    if (status.ok()) {
        status = file.open();
    }
    if (status.ok()) {
        status = prepare(file, header);
    }
    if (!status.ok()) {
        return context_.fail(status);
    }
    std::vector<Range> ranges;
    int exitCode = kExitOk;
    if (words.empty()) {
        bool found = false;
        status = printRange(file, header, Range{1, kDefaultRuleNumber}, found);
        ranges.push_back(Range{0, kDefaultRuleNumber});
    }
    for (size_t i = 0; status.ok() && i < words.size(); ++i) {
        Range range{};
        if (!parseRange(words[i], range)) {
            context_.warn("invalid rule number: " + words[i]);
            exitCode = kExitUsage;
            continue;
        }
        bool found = false;
        status = printRange(file, header, range, found);
        ranges.push_back(range);
        if (!found) {
            exitCode = exitCode == kExitOk ? kExitUnavailable : exitCode;
            context_.warn("rule " + std::to_string(range.low) + " does not exist");
        }
    }
    if (!status.ok()) {
        return context_.fail(status);
    }
    printDynamic(header, ranges);
    return exitCode;
}

Status ListCommand::prepare(StateFile& file, StateHeader& header) {
    Status status = file.readHeader(header, context_.options.dynamic);
    style_.counters = showCounters_ || context_.options.counters;
    style_.sets = context_.options.sets;
    style_.disabledSets = header.disabledSets;
    uint64_t packets = std::max(header.widest.packets, header.defaultRule.packets);
    uint64_t bytes = std::max(header.widest.bytes, header.defaultRule.bytes);
    for (const DynamicState& state : header.dynamic) {
        packets = std::max(packets, state.counters.packets);
        bytes = std::max(bytes, state.counters.bytes);
    }
    style_.packetWidth = decimalWidth(packets);
    style_.byteWidth = decimalWidth(bytes);
    return status;
}

bool ListCommand::parseRange(const std::string& word, Range& range) const {
    char* end = nullptr;
    unsigned long low = std::strtoul(word.c_str(), &end, 10);
    unsigned long high = low;
    if (*end == '-') {
        high = std::strtoul(end + 1, &end, 10);
    }
    if (*end != '\0' || word.empty()) {
        return false;
    }
    range.low = static_cast<uint32_t>(std::min<unsigned long>(low, 0xffffffffUL));
    range.high = static_cast<uint32_t>(std::min<unsigned long>(high, 0xffffffffUL));
    return true;
}

Status ListCommand::printRange(const StateFile& file, const StateHeader& header, Range range,
                               bool& found) {
    for (std::string_view line : file.linesInRange(range.low, range.high)) {
        found = true;
        Status status = printLine(line);
        if (!status.ok()) {
            return status;
        }
    }
    if (range.low <= kDefaultRuleNumber && range.high >= kDefaultRuleNumber) {
        found = true;
        printDefaultRule(header);
    }
    return Status::success();
}

Status ListCommand::printLine(std::string_view line) const {
    StoredRule stored;
    if (!StateFile::parseRuleLine(line, stored)) {
        return Status::failure(kExitDataErr,
                               "state file is corrupt: bad rule line '" + std::string(line) + "'");
    }
    context_.console.out(
        RuleLister(context_.env.names()).line(stored.rule, stored.counters, style_));
    return Status::success();
}

void ListCommand::printDefaultRule(const StateHeader& header) const {
    Rule rule;
    rule.number = kDefaultRuleNumber;
    rule.set = kReservedSet;
    context_.console.out(RuleLister(context_.env.names()).line(rule, header.defaultRule, style_));
}

// "## Dynamic rules" and one line per live entry of the listed numbers; with counters,
// each line also tells the seconds the entry has left.
void ListCommand::printDynamic(const StateHeader& header, const std::vector<Range>& ranges) const {
    if (!context_.options.dynamic || header.dynamic.empty()) {
        return;
    }
    const bool all = ranges.size() == 1 && ranges[0].low == 0;
    context_.console.out(all ? "## Dynamic rules (" + std::to_string(header.dynamic.size()) + "):\n"
                             : std::string("## Dynamic rules:\n"));
    const int64_t now = context_.env.now();
    for (const Range& range : ranges) {
        for (const DynamicState& state : header.dynamic) {
            const int64_t left = std::max<int64_t>(0, state.expires - now);
            if (state.ruleNumber >= range.low && state.ruleNumber <= range.high &&
                (left > 0 || context_.options.expired)) {
                context_.console.out(dynamicLine(state, left));
            }
        }
    }
}

std::string ListCommand::dynamicLine(const DynamicState& state, int64_t secondsLeft) const {
    char text[96];
    std::snprintf(text, sizeof(text), "%05u", state.ruleNumber);
    std::string line = text;
    if (style_.counters) {
        std::snprintf(text, sizeof(text), " %*llu %*llu (%llds)", style_.packetWidth,
                      static_cast<unsigned long long>(state.counters.packets), style_.byteWidth,
                      static_cast<unsigned long long>(state.counters.bytes),
                      static_cast<long long>(secondsLeft));
        line += text;
    }
    const std::string proto = context_.env.names().protocolName(state.proto);
    return line + " STATE " + (proto.empty() ? "proto " + std::to_string(state.proto) : proto) +
           " " + dottedQuad(state.srcAddress) + " " + std::to_string(state.srcPort) + " <-> " +
           dottedQuad(state.dstAddress) + " " + std::to_string(state.dstPort) + "\n";
}

}  // namespace ipfwsim
