// The stored form of rules: the token codec, and the state file's damage. The file's
// index (lookups in the sorted part and the overflow, the last number) is reached through
// SimulatorTest's commands, and dynamic entries kept across rewrites through
// PacketMatcherTest's: every command there reloads the state.

#include <gtest/gtest.h>

#include "SimFakes.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/RuleCodec.h"
#include "ipfwsim/RuleLister.h"
#include "ipfwsim/RuleParser.h"

namespace simtest {
namespace {

Rule compiled(const std::vector<std::string>& body, uint32_t number = 100) {
    FakeNames names;
    Diagnostics diagnostics;
    Rule rule;
    uint64_t ignored = 0;
    Status status = RuleParser(names, diagnostics).parse(body, rule, ignored);
    EXPECT_TRUE(status.ok()) << status.message;
    rule.number = number;
    return rule;
}

StoredRule stored(uint32_t number, const std::string& port, uint32_t set = 0) {
    StoredRule entry;
    entry.rule = compiled({"allow", "proto", "tcp", "dst-port", port}, number);
    entry.rule.set = set;
    return entry;
}

TEST(RuleCodec, RoundTripsEveryConditionExactlyAndRefusesDamagedTokens) {
    const std::vector<std::vector<std::string>> bodies = {
        {"prob", "0.1234567", "unreach", "host-prohib", "log", "logamount", "7", "udp", "from",
         "not", "10.0.0.0/8,1.2.3.4:255.0.255.0", "53", "to", "me", "not", "in"},
        {"deny", "proto", "tcp", "tcpflags", "syn,!ack", "tcpoptions", "!sack", "ipoptions",
         "rr,!ts", "iptos", "lowdelay", "established", "keep-state"},
        {"skipto", "200", "mac", "00:11:22:33:44:55&ff:00:ff:00:ff:00", "any", "recv", "weird%name",
         "xmit", "10.0.0.1", "icmptypes", "0,3,31", "src-port", "1-2,9"},
        {"check-state"}};
    FakeNames names;
    for (const auto& body : bodies) {
        Rule original = compiled(body);
        Rule decoded;
        ASSERT_TRUE(decodeRule(encodeRule(original), decoded)) << encodeRule(original);
        decoded.number = original.number;
        EXPECT_EQ(RuleLister(names).body(decoded), RuleLister(names).body(original));
        EXPECT_EQ(encodeRule(decoded), encodeRule(original));
        EXPECT_EQ(decoded.probability, original.probability);
    }

    Rule rule;
    for (const char* text : {"", "action=explode", "action=allow proto:x", "action=allow src:1/2/3",
                             "action=allow via:n:%4", "action=reject", "action=allow bogus"}) {
        EXPECT_FALSE(decodeRule(text, rule)) << text;
    }
}

TEST(StateFile, ReportsCorruptionButIgnoresAnInterruptedLastLine) {
    std::string good = StateFile::format(StateHeader{}, {stored(100, "1"), stored(200, "2")});
    std::string swapped = StateFile::format(StateHeader{}, {stored(200, "2"), stored(100, "1")});
    std::string badHeader = good;
    badHeader.replace(badHeader.find("verbose 1"), 9, "verbose 7");
    std::string badRule = good;
    badRule.replace(badRule.find("action=allow"), 12, "action=fly!!");
    for (const std::string& content : {std::string("garbage\n"), std::string(), swapped, badHeader,
                                       badRule, good.substr(0, 30)}) {
        FirewallState state;
        Status status = FirewallState::load(content, state);
        EXPECT_EQ(status.code, kExitDataErr) << content;
        EXPECT_EQ(status.message.rfind("state file is corrupt", 0), 0u);
    }

    std::string interrupted = StateFile::format(StateHeader{}, {stored(100, "1")});
    interrupted += "00200 0 0 0 0 action=al";
    StateFile index(interrupted);
    ASSERT_TRUE(index.open().ok());
    EXPECT_EQ(index.lastNumber(), 100u);
    EXPECT_FALSE(index.appendKeepsOrder(300));
    FirewallState kept;
    ASSERT_TRUE(FirewallState::load(interrupted, kept).ok());
    EXPECT_EQ(kept.rules().size(), 1u);
}

}  // namespace
}  // namespace simtest
