#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ipfwsim/FirewallState.h"
#include "ipfwsim/Packet.h"

namespace ipfwsim {

struct MatchContext {
    std::vector<uint32_t> localAddresses;  // what "me" stands for
    int64_t now = 0;
    // Uniform in [0, 0x7fffffff), one draw per "prob" test.
    std::function<uint32_t()> random;
};

struct KernelLogLine {
    int priority = 0;
    std::string text;
};

struct Verdict {
    uint32_t ruleNumber = kDefaultRuleNumber;
    std::string action;  // log word: "Accept", "Deny", ...
    bool fromState = false;
    std::vector<KernelLogLine> log;
};

// Runs a packet through the rule set as the kernel does: enabled sets only, in number
// order, first terminal action wins; count and skipto carry on; keep-state creates
// dynamic entries that check-state and later keep-state rules find in both
// directions. Counters, log budgets and dynamic entries are updated in `state`.
class PacketMatcher {
public:
    PacketMatcher(FirewallState& state, MatchContext context);

    Verdict evaluate(const Packet& packet);

private:
    enum class Step { NextRule, Continue, Done };

    Step runRule(RuleEntry& entry, const Packet& packet, Verdict& verdict);
    Step runAction(RuleEntry& entry, const Packet& packet, Verdict& verdict);
    Step jumpToState(DynamicEntry& state, const Packet& packet, Verdict& verdict);
    bool conditionHolds(const Match& match, uint64_t ruleKey, const Packet& packet);
    DynamicEntry* firstStateLookup(const Packet& packet);
    DynamicEntry* lookupState(const Packet& packet);
    void keepState(uint64_t ruleKey, const Packet& packet);
    void logPacket(RuleEntry& entry, const Packet& packet, Verdict& verdict);
    void count(Counters& counters, const Packet& packet) const;
    void purgeExpired();

    FirewallState& state_;
    MatchContext context_;
    bool stateLooked_ = false;
    uint32_t skipBelow_ = 0;
};

// A new dynamic entry lives this long (the kernel's SYN lifetime) until a packet uses it.
constexpr int64_t kNewStateLifetime = 20;
// Seconds a dynamic entry lives after a packet used it. An approximation of the kernel's
// TCP state machine: closing segments 1 s, other TCP 300 s, UDP 10 s, the rest 5 s.
int64_t dynamicLifetime(const Packet& packet);

}  // namespace ipfwsim
