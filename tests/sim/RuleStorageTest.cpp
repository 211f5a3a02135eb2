// The stored form of rules: the token codec and the indexed state file that "show N"
// and "add" use without reading every rule. Dynamic entries kept with their rule across
// rewrites: PacketMatcherTest, whose every command reloads the state.

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

TEST(RuleCodec, RoundTripsEveryConditionExactly) {
    const std::vector<std::vector<std::string>> bodies = {
        {"prob", "0.1234567", "unreach", "host-prohib", "log", "logamount", "7", "udp", "from",
         "not", "10.0.0.0/8,1.2.3.4:255.0.255.0", "53", "to", "me", "not", "in"},
        {"deny", "proto", "tcp", "tcpflags", "syn,!ack", "tcpoptions", "!sack", "ipoptions",
         "rr,!ts", "iptos", "lowdelay", "established", "keep-state"},
        {"skipto", "200", "mac", "00:11:22:33:44:55&ff:00:ff:00:ff:00", "any", "recv", "weird%name",
         "xmit", "10.0.0.1", "icmptypes", "0,3,31", "src-port", "1-2,9"},
        {"check-state"},
        {"count", "via", "en*"}};
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
}

TEST(RuleCodec, RefusesDamagedTokens) {
    Rule rule;
    for (const char* text : {"", "action=explode", "action=allow proto:x", "action=allow src:1/2/3",
                             "action=allow via:n:%4", "action=reject", "action=allow bogus"}) {
        EXPECT_FALSE(decodeRule(text, rule)) << text;
    }
}

TEST(StateFile, FindsRulesByNumberInSortedPartAndOverflow) {
    std::string empty = StateFile::format(StateHeader{}, {});
    StateFile none(empty);
    ASSERT_TRUE(none.open().ok());
    EXPECT_EQ(none.lastNumber(), 0u);
    EXPECT_TRUE(none.linesInRange(0, 65535).empty());
    EXPECT_TRUE(none.appendKeepsOrder(1));

    std::vector<StoredRule> rules;
    for (uint32_t n = 100; n <= 5000; n += 100) {
        rules.push_back(stored(n, std::to_string(n)));
    }
    rules.push_back(stored(5000, "1"));  // a second rule under the same number
    std::string content = StateFile::format(StateHeader{}, rules);
    content += StateFile::formatRuleLine(stored(2500, "2"));  // overflow, out of order
    content += StateFile::formatRuleLine(stored(5000, "3"));
    StateFile file(content);
    ASSERT_TRUE(file.open().ok());
    EXPECT_EQ(file.linesInRange(2500, 2500).size(), 2u);
    EXPECT_EQ(file.linesInRange(2550, 2550).size(), 0u);
    EXPECT_EQ(file.linesInRange(1, 99).size(), 0u);
    std::vector<std::string_view> fives = file.linesInRange(5000, 5000);
    ASSERT_EQ(fives.size(), 3u);
    // Rules of one number keep the order in which they were added.
    EXPECT_NE(fives[0].find("dst-port:5000-5000"), std::string_view::npos);
    EXPECT_NE(fives[2].find("dst-port:3-3"), std::string_view::npos);
    EXPECT_EQ(file.linesInRange(1, 65535).size(), 53u);
    EXPECT_EQ(file.lastNumber(), 5000u);
    EXPECT_EQ(file.overflowLines(), 2u);
    EXPECT_FALSE(file.appendKeepsOrder(6000));
}

TEST(StateFile, IgnoresAnInterruptedLastLine) {
    std::string content = StateFile::format(StateHeader{}, {stored(100, "1")});
    content += "00200 0 0 0 0 action=al";
    StateFile file(content);
    ASSERT_TRUE(file.open().ok());
    EXPECT_EQ(file.lastNumber(), 100u);
    EXPECT_FALSE(file.appendKeepsOrder(300));
    FirewallState state;
    ASSERT_TRUE(FirewallState::load(content, state).ok());
    EXPECT_EQ(state.rules().size(), 1u);
}

TEST(StateFile, ReportsCorruptionInsteadOfGuessing) {
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
}

}  // namespace
}  // namespace simtest
