// The rule set manager against an in-memory ipfw (the simulator's core): allocation,
// spacing, re-installation, the top of the range, refusals and runners that fail, each
// with its exact command lines and log lines. That every fragment the generator writes is
// one ipfw accepts is checked by the simulator's parser on the generator's own texts
// (tests/sim/RuleParserTest).
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "DebugRuleTextLog.h"
#include "InMemoryIpfw.h"
#include "IpfwListing.h"
#include "LogCapture.h"
#include "QvFirewall.h"
#include "RuleMgr.h"

using namespace qor::vela;

namespace {

using Answer = std::optional<Result<std::string>>;

class RuleMgrTest : public ::testing::Test {
protected:
    // Rule numbers ipfw lists for `set` (all sets when -1), the default rule aside.
    std::vector<int> listed(int set = -1) {
        std::vector<int> numbers;
        for (const qvtest::IpfwRuleLine& rule : qvtest::parseIpfwListing(ipfw.ipfw("-S list"))) {
            if (rule.number != 65535 && (set < 0 || rule.set == set)) {
                numbers.push_back(rule.number);
            }
        }
        return numbers;
    }

    static FwRule tcpRule(uint32_t index = 0) {
        FwRule rule;
        if (index != 0) {
            rule.set_rule_index(index);
        }
        rule.mutable_protocol()->set_type(PROTO_SPECIFIED);
        rule.mutable_protocol()->set_protocol(PROTO_VALUE_TCP);
        return rule;
    }

    // The number a new TCP rule gets from `mgr`, or 0 when the add failed.
    static uint32_t added(RuleMgr& mgr) {
        FwRule rule = tcpRule();
        return mgr.AddRule(rule).ok() ? rule.rule_index() : 0;
    }

    // A manager of set `set` from `start` that has taken over its set with no rules.
    std::unique_ptr<RuleMgr> cleanSet(int start = 3100, int set = 19) {
        auto mgr = std::make_unique<RuleMgr>(generator, ipfw, start, set);
        mgr->Init(FwRuleList());
        return mgr;
    }

    // How many command lines so far began with `prefix`.
    size_t ran(const std::string& prefix) const {
        size_t count = 0;
        for (const std::string& command : ipfw.commands()) {
            count += command.rfind(prefix, 0) == 0;
        }
        return count;
    }

    qvtest::InMemoryIpfw ipfw;
    const RuleGenerator generator{DebugRuleTextLog::Get()};
};

// A restart: what an earlier run left in the set goes, other sets stay, the saved rules
// come back under their numbers (a refused one is skipped) and numbering goes on after
// the largest of them; with none saved it never starts below ten.
TEST_F(RuleMgrTest, InitReinstallsSavedRulesInACleanSetAndStartsAfterTheLargest) {
    qvtest::LogCapture log;
    ipfw.ipfw("-q add 3500 set 5 allow proto udp");
    ipfw.ipfw("-q add 3500 set 7 allow proto udp");
    RuleMgr mgr(generator, ipfw, 1000, 5);
    FwRuleList rules;
    *rules.add_rules() = tcpRule(1010);
    FwRule bad;  // an action alone: ipfw wants a protocol
    bad.set_rule_index(1005);
    *rules.add_rules() = bad;
    *rules.add_rules() = tcpRule(1000);
    mgr.Init(rules);
    EXPECT_EQ((std::vector<int>{1000, 1010}), listed(5));
    EXPECT_EQ((std::vector<int>{3500}), listed(7));
    EXPECT_TRUE(log.has(3, "RuleMgr::Init failed to excute cmd"));

    EXPECT_EQ(1020u, added(mgr));
    EXPECT_EQ(1030u, added(mgr));

    RuleMgr low(generator, ipfw, 5, 3);
    low.Init(FwRuleList());
    EXPECT_EQ(10u, added(low));
}

// Numbers other sets hold are probed past, then numbering spaces by ten; at the top of
// the range 65535 is handed out unprobed, and ipfw refuses it.
TEST_F(RuleMgrTest, AllocationProbesUpwardSpacesByTenAndStopsAtTheTop) {
    qvtest::LogCapture log;
    for (int number : {3100, 3101, 3102}) {
        ipfw.ipfw("-q add " + std::to_string(number) + " set 2 allow proto tcp");
    }
    auto mgr = cleanSet();
    EXPECT_EQ(3103u, added(*mgr));
    EXPECT_EQ(3110u, added(*mgr));

    EXPECT_TRUE(log.has(4, "RuleMgr::GenNextRuleNumPriv rule 3100 is already used"));
    EXPECT_TRUE(log.has(6, "RuleMgr::GenNextRuleNumPriv rule 3103 can be used"));
    EXPECT_TRUE(log.has(6, "RuleMgr::GenNextRuleNum Gened rule num is 3103"));
    EXPECT_EQ((std::vector<int>{3103, 3110}), listed(19));
    EXPECT_EQ(5u, ran("ipfw show "));

    RuleMgr top(generator, ipfw, 3100, 18);
    FwRuleList saved;
    *saved.add_rules() = tcpRule(65520);
    top.Init(saved);
    for (int n = 65530; n <= 65534; ++n) {
        ipfw.ipfw("-q add " + std::to_string(n) + " set 1 allow proto tcp");
    }
    FwRule rule = tcpRule();
    EXPECT_EQ(FW_ERR_RULE_REFUSED, top.AddRule(rule).code());
    EXPECT_EQ(65535u, rule.rule_index());
    EXPECT_TRUE(log.has(6, "RuleMgr::GenNextRuleNum Gened rule num is 65535"));
    EXPECT_EQ(0u, ran("ipfw show 65535"));

    // Free numbers answer with trailing line ends; 1020 answers with a leading blank,
    // which is not the "does not exist" answer.
    ipfw.override([](const std::string& command) -> Answer {
        int number = 0;
        if (sscanf(command.c_str(), "ipfw show %d", &number) != 1) {
            return std::nullopt;
        }
        const std::string text = "ipfw: rule " + std::to_string(number) + " does not exist";
        return Result<std::string>::Success(number == 1020 ? " " + text + "\n"
                                                           : text + "\r\n\n\t ");
    });
    auto probed = cleanSet(1020, 4);
    EXPECT_EQ(1021u, added(*probed));
    EXPECT_EQ(1030u, added(*probed));
}

// A refused rule consumes its number and logs its exact command line; a quiet command
// that prints anything answers -2. A runner that cannot complete the shell: adds answer
// 20016, allocations 20703 and the quiet commands 20016. An ipfw that is not there
// answers every probe with the shell's complaint, which is not about the number: one
// probe, not one per number up to 65535.
TEST_F(RuleMgrTest, RefusalsAndRunnersThatFail) {
    qvtest::LogCapture log;
    auto mgr = cleanSet();
    FwRule bare;  // " allow": ipfw wants a protocol
    EXPECT_EQ(FW_ERR_RULE_REFUSED, mgr->AddRule(bare).code());
    EXPECT_EQ(3100u, bare.rule_index());
    EXPECT_EQ(3110u, added(*mgr));
    EXPECT_EQ((std::vector<int>{3110}), listed(19));
    EXPECT_TRUE(log.has(3, "RuleMgr::AddRulePriv invalid rule"));
    // The exact command line, two blanks after the set number included.
    EXPECT_NE(std::string::npos,
              log.text().find("RuleMgr::DoCmd Failed to add rule ipfw -q add 3100 set 19  "
                              "allow 2>/dev/stdout, error is ipfw: missing protocol"));
    // A quiet command that prints anything answers -2, whatever it was.
    ipfw.override([](const std::string& command) -> Answer {
        if (command != "ipfw -q set enable 19") {
            return std::nullopt;
        }
        return Result<std::string>::Success("ipfw: unexpected\n");
    });
    EXPECT_EQ(FW_ERR_IPFW_PRINTED, mgr->Enable().code());

    ipfw.override(
        [](const std::string&) -> Answer { return Result<std::string>::Failure(QV_ERR_CMD); });
    FwRule rule = tcpRule();
    EXPECT_EQ(QV_ERR_CMD, mgr->AddRulePriv(rule, 3100).code());
    EXPECT_TRUE(log.has(3, "RuleMgr::AddRulePriv failed to excute cmd"));
    EXPECT_NE(std::string::npos,
              log.text().find("RuleMgr::DoCmd failed to excute the cmd ipfw -q add 3100 set 19 "
                              " allow proto tcp 2>/dev/stdout, ret is 0"));
    EXPECT_EQ(FW_ERR_NO_RULE_NUM, mgr->AddRule(rule).code());
    EXPECT_FALSE(rule.has_rule_index());
    EXPECT_TRUE(log.has(3,
                        "RuleMgr::GenNextRuleNumPriv Faield to excute cmd ipfw show 3120 "
                        "2>/dev/stdout"));
    EXPECT_EQ(QV_ERR_CMD, mgr->Enable().code());
    EXPECT_EQ(QV_ERR_CMD, mgr->DeleteRule(3100).code());

    ipfw.override([](const std::string& command) -> Answer {
        const bool joined = command.find("2>/dev/stdout") != std::string::npos;
        return Result<std::string>::Success(joined ? "sh: 1: ipfw: not found\n" : "");
    });
    const size_t probes = ran("ipfw show ");
    EXPECT_EQ(FW_ERR_NO_RULE_NUM, mgr->AddRule(rule).code());
    EXPECT_EQ(probes + 1, ran("ipfw show "));
    // The quiet commands cannot see the shell's complaint.
    EXPECT_EQ(0, mgr->DeleteRule(3100).code());
}

// Deletes and flushes of the set of one manager beside another's: deleting a set always
// deletes the manager's own and keeps the numbering, flushing it restarts the numbering,
// and flushing the rules empties every set but keeps the default rule.
TEST_F(RuleMgrTest, DeletesAndFlushesReachTheirSetsAndResetNumbering) {
    qvtest::LogCapture log;
    auto normal = cleanSet(3100, 19);
    auto exception = cleanSet(2100, 18);
    for (int i = 0; i < 2; ++i) {
        ASSERT_NE(0u, added(*normal));
        ASSERT_NE(0u, added(*exception));
    }
    ipfw.ipfw("-q add 1010 set 7 allow proto tcp");
    EXPECT_EQ(0, exception->DeleteSet(7).code());
    EXPECT_TRUE(log.has(7, "RuleMgr::DeleteSet delete set 7"));
    EXPECT_TRUE(listed(18).empty());
    EXPECT_EQ((std::vector<int>{1010}), listed(7));
    EXPECT_EQ(2120u, added(*exception));

    EXPECT_EQ(0, exception->FlushVelaRules().code());
    EXPECT_EQ((std::vector<int>{3100, 3110}), listed(19));
    EXPECT_EQ(0, normal->DeleteRule(3100).code());
    EXPECT_EQ((std::vector<int>{3110}), listed(19));

    EXPECT_EQ(2100u, added(*exception));
    EXPECT_EQ(0, normal->FlushRules().code());
    EXPECT_EQ(3100u, added(*normal));
    EXPECT_EQ((std::vector<int>{3100}), listed());
    EXPECT_NE(std::string::npos, ipfw.ipfw("list").find("65535 allow ip from any to any"));
}

}  // namespace
