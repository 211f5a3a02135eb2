#include "ipfwnft/RuleCompiler.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "ipfwnft/LogTag.h"
#include "ipfwnft/MatchCompiler.h"
#include "ipfwnft/Refusal.h"
#include "ipfwnft/TableLayout.h"
#include "ipfwsim/KernelLog.h"

namespace ipfwnft {
namespace {

using ipfwsim::ActionKind;
using ipfwsim::Rule;
using ipfwsim::Status;

constexpr uint32_t kFlowMarkTag = 0x1f000000;
constexpr uint32_t kHighestRejectCode = 127;  // nftables names no ICMP code above it

// "numgen" draws in the same range as ipfw's scaled probability, so the odds are equal.
std::string probabilityTest(const Rule& rule) {
    if (!rule.hasProbability) {
        return {};
    }
    return "numgen random mod " + std::to_string(ipfwsim::kProbabilityScale) + " < " +
           std::to_string(rule.probability) + " ";
}

std::string logStatement(const PlacedRule& placed, Pass pass) {
    const Rule& rule = *placed.rule;
    if (!rule.log) {
        return {};
    }
    LogTag tag{rule.number, placed.ordinal, !isInbound(pass), ipfwsim::actionLogWord(rule.action)};
    return "log group " + std::to_string(kNflogGroup) + " prefix \"" + tag.format() + "\" ";
}

Status verdict(const Rule& rule, Pass pass, std::string& text) {
    const uint32_t argument = rule.action.argument;
    switch (rule.action.kind) {
        case ActionKind::Allow:
            text = "meta mark set meta mark | " + hexWord(allowedBit(pass)) + " accept";
            return Status::success();
        case ActionKind::Deny:
            text = "drop";
            return Status::success();
        case ActionKind::Count:
            text = "counter";
            return Status::success();
        case ActionKind::Reject:
            if (argument == ipfwsim::kRejectWithReset) {
                text = "jump reset_action";
                return Status::success();
            }
            if (argument > kHighestRejectCode) {
                return notEnforceable("unreach " + std::to_string(argument),
                                      "nftables rejects with ICMP codes 0 to 127 only");
            }
            text = "reject with icmp " + std::to_string(argument);
            return Status::success();
        case ActionKind::Skipto:
            return notEnforceable("skipto", "nftables cannot continue at a rule number");
        case ActionKind::CheckState:
            break;
    }
    text.clear();
    return Status::success();
}

// The protocols every match of the rule allows; empty when they exclude each other.
std::vector<uint32_t> ruleProtocols(const Rule& rule, bool& restricted) {
    restricted = false;
    std::vector<uint32_t> allowed;
    for (const ipfwsim::Match& match : rule.matches) {
        std::vector<uint32_t> required = requiredProtocols(match);
        if (required.empty()) {
            continue;
        }
        if (restricted) {
            std::vector<uint32_t> both;
            std::set_intersection(allowed.begin(), allowed.end(), required.begin(), required.end(),
                                  std::back_inserter(both));
            required = both;
        }
        allowed = required;
        restricted = true;
    }
    return allowed;
}

Status conditions(const Rule& rule, Pass pass, std::string& text, bool& possible) {
    bool restricted = false;
    const std::vector<uint32_t> protocols = ruleProtocols(rule, restricted);
    possible = !restricted || !protocols.empty();
    const uint32_t transport = protocols.size() == 1 ? protocols[0] : 0;
    // The tests are pure, so their order is free: the addresses go first because a packet
    // that a rule does not concern mostly fails there, and the kernel stops at the first
    // failed test.
    std::string addresses;
    for (const ipfwsim::Match& match : rule.matches) {
        Condition condition;
        Status status = compileMatch(match, pass, transport, condition);
        if (!status.ok()) {
            return status;
        }
        const bool address =
            match.kind == ipfwsim::MatchKind::SrcAddr || match.kind == ipfwsim::MatchKind::DstAddr;
        if (condition.kind == Condition::Kind::Never) {
            possible = false;
        } else if (condition.kind == Condition::Kind::Test) {
            (address ? addresses : text) += condition.text + " ";
        }
    }
    text = addresses + text;
    return Status::success();
}

std::string comment(const Rule& rule) {
    return " comment \"" + std::to_string(rule.number) + "\"";
}

}  // namespace

std::string hexWord(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08x", value);
    return text;
}

uint32_t flowMark(const PlacedRule& placed) {
    return kFlowMarkTag | (placed.rule->number << 8) | (placed.ordinal & 0xff);
}

Status compileRule(const PlacedRule& placed, Pass pass, std::vector<std::string>& lines) {
    const Rule& rule = *placed.rule;
    std::string action;
    Status status = verdict(rule, pass, action);
    std::string tests;
    bool possible = true;
    if (status.ok()) {
        status = conditions(rule, pass, tests, possible);
    }
    if (!status.ok() || !possible || rule.action.kind == ActionKind::CheckState) {
        return status;
    }
    const std::string keep =
        rule.keepsState() ? "ct mark set " + hexWord(flowMark(placed)) + " " : "";
    lines.push_back(probabilityTest(rule) + tests + keep + logStatement(placed, pass) + action +
                    comment(rule));
    return Status::success();
}

Status compileVerdict(const PlacedRule& placed, Pass pass, bool own, std::string& text) {
    std::string action;
    Status status = verdict(*placed.rule, pass, action);
    text = own ? logStatement(placed, pass) + action + comment(*placed.rule) : action;
    return status;
}

Status stateLookupLines(const std::vector<PlacedRule>& keepers, const Rule& lookupRule, Pass pass,
                        std::vector<std::string>& lines) {
    for (const PlacedRule& keeper : keepers) {
        std::string action;
        Status status = verdict(*keeper.rule, pass, action);
        if (!status.ok()) {
            return status;
        }
        lines.push_back("ct mark " + hexWord(flowMark(keeper)) + " " + probabilityTest(lookupRule) +
                        logStatement(keeper, pass) + action + comment(*keeper.rule));
    }
    return Status::success();
}

Status checkEnforceable(const Rule& rule) {
    for (Pass pass : {Pass::In, Pass::Out}) {
        std::vector<std::string> lines;
        Status status = compileRule(PlacedRule{&rule, 0}, pass, lines);
        if (!status.ok()) {
            return status;
        }
    }
    return Status::success();
}

}  // namespace ipfwnft
