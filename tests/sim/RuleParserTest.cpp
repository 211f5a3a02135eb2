// The rule compiler against the fact sheet of the real command: which bodies it
// accepts, how it lists them, and the exact message and exit code of each refusal; then
// the stored form of rules: the token codec, and the state file's damage. The bodies the
// plug-in itself sends are checked through the binary (IpfwBinaryTest); the file's index
// (lookups in the sorted part and the overflow, the last number) through SimulatorTest's
// commands, and dynamic entries kept across rewrites through PacketMatcherTest's: every
// command there reloads the state.

#include <gtest/gtest.h>

#include "SimFakes.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/RuleCodec.h"
#include "ipfwsim/RuleLister.h"
#include "ipfwsim/RuleParser.h"

namespace simtest {
namespace {

struct Compiled {
    Status status;
    std::string listing;
    std::vector<std::string> warnings;
    uint64_t number = 0;
    Rule rule;
};

FakeNames names;

Compiled compile(const std::string& body) {
    Compiled result;
    Diagnostics diagnostics;
    result.status =
        RuleParser(names, diagnostics).parse(splitAtBlanks(body), result.rule, result.number);
    result.warnings = diagnostics.warnings;
    if (result.status.ok()) {
        result.listing = RuleLister(names).body(result.rule);
    }
    return result;
}

struct Accepted {
    const char* body;
    const char* listing;
};

class AcceptedBody : public ::testing::TestWithParam<Accepted> {};

TEST_P(AcceptedBody, ListsInCanonicalForm) {
    Compiled result = compile(GetParam().body);
    ASSERT_TRUE(result.status.ok()) << result.status.message;
    EXPECT_EQ(result.listing, GetParam().listing);
}

INSTANTIATE_TEST_SUITE_P(
    FactSheetAndGrammar, AcceptedBody,
    ::testing::Values(
        Accepted{"unreach 3 log logamount 0 proto all mac any 00:1A:2b:3c:4d:5e in via en0",
                 "unreach port log ip from any to any MAC any 00:1a:2b:3c:4d:5e in via en0"},
        Accepted{"reset log logamount 0 not proto ip src-ip any", "reset log ip from any to any"},
        Accepted{"allow tcpoptions mss,!sack ipoptions rr iptos lowdelay,!mincost",
                 "allow ip from any to any tcpoptions mss,!sack ipoptions rr iptos "
                 "lowdelay,!mincost"},
        Accepted{"prob 0.5 deny log logamount 0 proto tcp src-port any tcpflags syn,!ack",
                 "prob 0.500000 deny log ip from any to any proto tcp setup"},
        // Every fragment the generator writes, in its order.
        Accepted{"allow proto tcp src-ip me dst-ip any src-port any dst-port any icmptypes 18 "
                 "tcpflags urg tcpoptions cc ipoptions rr iptos congestion mac any any via "
                 "3232235777 keep-state",
                 "allow ip from any to any proto tcp src-ip me icmptypes 18 tcpflags urg "
                 "tcpoptions cc ipoptions rr iptos congestion MAC any any via 192.168.1.1 "
                 "keep-state"},
        Accepted{"allow not proto udp src-ip 1/0,db.example.com,4294967295/32 src-port "
                 "0-0,0,65535 mac 00:1A:2b:3C:4d:5E/40 any via bridge100.1_a-*",
                 "allow ip from any to any not proto udp src-port 0,0,65535 MAC "
                 "00:1a:2b:3c:4d:00/40 any via bridge100.1_a-*"},
        // The grammar beyond what the plug-in writes.
        Accepted{"deny tcp from 10.1.2.3 to any 22", "deny tcp from 10.1.2.3 to any dst-port 22"},
        Accepted{"deny log logamount 5 proto udp",
                 "deny log logamount 5 ip from any to any proto udp"},
        Accepted{"allow dst-ip 10.1.2.3:255.0.255.0",
                 "allow ip from any to any dst-ip 10.0.2.0:255.0.255.0"},
        Accepted{"allow dst-ip 10.1.2.3/0,fileserver", "allow ip from any to any"},
        Accepted{"allow not proto ip dst-port 80", "allow ip from any to any not dst-port 80"},
        Accepted{"allow !in via any proto tcp", "allow ip from any to any out proto tcp"},
        Accepted{"allow tcpflags fin,syn,!rst,ack",
                 "allow ip from any to any tcpflags syn,fin,ack,!rst"},
        Accepted{"check-state proto tcp bogus", "check-state"},
        // "log" is a leading part of "logamount", so the real command takes it as one.
        Accepted{"deny log log 5 proto tcp", "deny log logamount 5 ip from any to any proto tcp"}));

struct Refused {
    const char* body;
    int code;
    const char* message;
};

class RefusedBody : public ::testing::TestWithParam<Refused> {};

TEST_P(RefusedBody, GivesTheRealMessageAndCode) {
    Compiled result = compile(GetParam().body);
    EXPECT_EQ(result.status.code, GetParam().code);
    EXPECT_EQ(result.status.message, GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Grammar, RefusedBody,
    ::testing::Values(
        Refused{"deny log logamount 0", kExitUsage, "missing protocol"},
        Refused{"allow src-ip", kExitUsage, "missing source IP"},
        Refused{"prob 0 allow proto tcp", kExitDataErr, "illegal match prob. 0"},
        Refused{"", kExitUsage, "missing action"},
        Refused{"unreach", kExitUsage, "missing reject code"},
        Refused{"allow proto foo", kExitDataErr, "invalid protocol ``foo''"},
        Refused{"allow dst-ip 1.2.3.4/33", kExitDataErr, "bad width ``33''"},
        Refused{"allow dst-port 80x", kExitDataErr, "invalid destination port 80x"},
        Refused{"allow tcpoptions mss,bogus", kExitDataErr, "invalid flag bogus"},
        Refused{"allow mac 00:11:22:33:44:55", kExitDataErr, "MAC dst src"},
        Refused{"allow mac 00:11:22:33:44:55/49 any", kExitDataErr, "Incorrect mask length"},
        Refused{"allow via", kExitUsage, "recv, xmit, via require interface name or address"},
        Refused{"allow keep-state keep-state", kExitUsage,
                "only one of keep-state and limit is allowed"},
        Refused{"allow foo", kExitUsage, "unrecognised option [-1] foo\n"},
        Refused{"allow not src-ip 0.0.0.0/0", kExitDataErr, "not any never matches"}));

// The rule's head, abbreviations with their warnings, a bad separator's warning before
// its refusal, and services looked up for the rule's protocol.
TEST(RuleParserHead, NumberSetProbabilityWarningsAndServices) {
    Compiled result = compile("3100 set 19 prob 0.25 deny proto tcp");
    ASSERT_TRUE(result.status.ok());
    EXPECT_EQ(result.number, 3100u);
    EXPECT_EQ(result.rule.set, 19u);
    EXPECT_EQ(result.rule.probability, static_cast<int32_t>(0.25 * 0x7fffffff));
    EXPECT_EQ(compile("deny proto tcp").number, 0u);
    EXPECT_FALSE(compile("prob 1 allow proto tcp").rule.hasProbability);

    result = compile("allow src-ip a dst-ip m");
    EXPECT_EQ(result.listing, "allow ip from any to any dst-ip me");
    EXPECT_EQ(result.warnings,
              (std::vector<std::string>{"DEPRECATED: 'a' matched 'any' as a sub-string",
                                        "DEPRECATED: 'm' matched 'me' as a sub-string"}));

    result = compile("allow dst-port 80;81");
    EXPECT_EQ(result.status.message, "invalid destination port 80;81");
    EXPECT_EQ(result.warnings,
              std::vector<std::string>{"port list: invalid separator <;> in <80;81>"});

    result = compile("allow proto udp dst-port domain");
    ASSERT_TRUE(result.status.ok());
    EXPECT_EQ(names.lastServiceProtocol, "udp");
    EXPECT_EQ(result.rule.matches.back().ports[0].low, 53);
}

StoredRule stored(uint32_t number, const std::string& port) {
    StoredRule entry;
    entry.rule = compile("allow proto tcp dst-port " + port).rule;
    entry.rule.number = number;
    return entry;
}

TEST(RuleCodec, RoundTripsEveryConditionExactlyAndRefusesDamagedTokens) {
    for (const char* body :
         {"prob 0.1234567 unreach host-prohib log logamount 7 udp from not "
          "10.0.0.0/8,1.2.3.4:255.0.255.0 53 to me not in",
          "deny proto tcp tcpflags syn,!ack tcpoptions !sack ipoptions rr,!ts iptos lowdelay "
          "established keep-state",
          "skipto 200 mac 00:11:22:33:44:55&ff:00:ff:00:ff:00 any recv weird%name xmit 10.0.0.1 "
          "icmptypes 0,3,31 src-port 1-2,9",
          "check-state"}) {
        const Compiled original = compile(body);
        ASSERT_TRUE(original.status.ok()) << original.status.message;
        Rule decoded;
        ASSERT_TRUE(decodeRule(encodeRule(original.rule), decoded)) << encodeRule(original.rule);
        decoded.number = original.rule.number;
        EXPECT_EQ(RuleLister(names).body(decoded), original.listing);
        EXPECT_EQ(encodeRule(decoded), encodeRule(original.rule));
        EXPECT_EQ(decoded.probability, original.rule.probability);
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
