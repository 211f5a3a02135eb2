// The rule set manager against an in-memory ipfw (the simulator's core): allocation,
// spacing, re-installation, the top of the range, refusals and runners that fail, each
// with its exact command lines and log lines.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

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

    // A manager of set `set` from `start` that has taken over its set with no rules.
    std::unique_ptr<RuleMgr> cleanSet(int start = 3100, int set = 19) {
        auto mgr = std::make_unique<RuleMgr>(generator, ipfw, start, set);
        Guard<Mutex> lock(mgr->mutex());
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
    const RuleGenerator generator;
};

// A restart: what an earlier run left in the set goes, other sets stay, the saved rules
// come back under their numbers (a refused one is skipped) and numbering goes on after
// the largest of them; with none saved it never starts below ten.
TEST_F(RuleMgrTest, InitReinstallsSavedRulesInACleanSetAndStartsAfterTheLargest) {
    qvtest::LogCapture log;
    ipfw.ipfw("-q add 3500 set 5 allow proto udp");
    ipfw.ipfw("-q add 3500 set 7 allow proto udp");
    RuleMgr mgr(generator, ipfw, 1000, 5);
    Guard<Mutex> lock(mgr.mutex());
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

    FwRule added = tcpRule();
    EXPECT_EQ(0, mgr.AddRule(added));
    EXPECT_EQ(1020u, added.rule_index());
    FwRule next = tcpRule();
    EXPECT_EQ(0, mgr.AddRule(next));
    EXPECT_EQ(1030u, next.rule_index());

    RuleMgr low(generator, ipfw, 5, 3);
    Guard<Mutex> lowLock(low.mutex());
    low.Init(FwRuleList());
    FwRule first = tcpRule();
    EXPECT_EQ(0, low.AddRule(first));
    EXPECT_EQ(10u, first.rule_index());
}

TEST_F(RuleMgrTest, AllocationProbesUpwardAndSpacesByTen) {
    qvtest::LogCapture log;
    for (int number : {3100, 3101, 3102}) {
        ipfw.ipfw("-q add " + std::to_string(number) + " set 2 allow proto tcp");
    }
    auto mgr = cleanSet();
    Guard<Mutex> lock(mgr->mutex());
    FwRule first = tcpRule();
    ASSERT_EQ(0, mgr->AddRule(first));
    EXPECT_EQ(3103u, first.rule_index());
    FwRule second = tcpRule();
    ASSERT_EQ(0, mgr->AddRule(second));
    EXPECT_EQ(3110u, second.rule_index());

    EXPECT_TRUE(log.has(4, "RuleMgr::GenNextRuleNumPriv rule 3100 is already used"));
    EXPECT_TRUE(log.has(6, "RuleMgr::GenNextRuleNumPriv rule 3103 can be used"));
    EXPECT_TRUE(log.has(6, "RuleMgr::GenNextRuleNum Gened rule num is 3103"));
    EXPECT_EQ((std::vector<int>{3103, 3110}), listed(19));
    EXPECT_EQ(5u, ran("ipfw show "));
}

TEST_F(RuleMgrTest, ProbeAnswerMustMatchExactlyApartFromTrailingBlanks) {
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
    auto mgr = cleanSet(1020, 4);
    Guard<Mutex> lock(mgr->mutex());
    for (uint32_t expected : {1021u, 1030u}) {
        FwRule rule = tcpRule();
        EXPECT_EQ(0, mgr->AddRule(rule));
        EXPECT_EQ(expected, rule.rule_index());
    }
}

TEST_F(RuleMgrTest, TopOfTheRangeIsHandedOutUnprobedAndRefused) {
    qvtest::LogCapture log;
    RuleMgr mgr(generator, ipfw, 3100, 19);
    Guard<Mutex> lock(mgr.mutex());
    FwRuleList saved;
    *saved.add_rules() = tcpRule(65520);
    mgr.Init(saved);
    for (int n = 65530; n <= 65534; ++n) {
        ipfw.ipfw("-q add " + std::to_string(n) + " set 1 allow proto tcp");
    }
    FwRule rule = tcpRule();
    EXPECT_EQ(FW_ERR_RULE_REFUSED, mgr.AddRule(rule));
    EXPECT_EQ(65535u, rule.rule_index());
    EXPECT_TRUE(log.has(6, "RuleMgr::GenNextRuleNum Gened rule num is 65535"));
    EXPECT_EQ(0u, ran("ipfw show 65535"));
}

TEST_F(RuleMgrTest, RefusedRuleConsumesItsNumberAndLogsTheCommand) {
    qvtest::LogCapture log;
    auto mgr = cleanSet();
    Guard<Mutex> lock(mgr->mutex());
    FwRule bare;  // " allow": ipfw wants a protocol
    EXPECT_EQ(FW_ERR_RULE_REFUSED, mgr->AddRule(bare));
    EXPECT_EQ(3100u, bare.rule_index());
    FwRule next = tcpRule();
    EXPECT_EQ(0, mgr->AddRule(next));
    EXPECT_EQ(3110u, next.rule_index());
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
    EXPECT_EQ(FW_ERR_IPFW_PRINTED, mgr->Enable());
}

// A runner that cannot complete the shell: adds answer 20016, allocations 20703 and the
// quiet commands 20016. An ipfw that is not there answers every probe with the shell's
// complaint, which is not about the number: one probe, not one per number up to 65535.
TEST_F(RuleMgrTest, RunnerThatCannotCompleteOrAnIpfwThatIsMissing) {
    qvtest::LogCapture log;
    auto mgr = cleanSet();
    Guard<Mutex> lock(mgr->mutex());
    ipfw.override(
        [](const std::string&) -> Answer { return Result<std::string>::Failure(QV_ERR_CMD); });
    FwRule rule = tcpRule();
    EXPECT_EQ(QV_ERR_CMD, mgr->AddRulePriv(rule, 3100));
    EXPECT_TRUE(log.has(3, "RuleMgr::AddRulePriv failed to excute cmd"));
    EXPECT_NE(std::string::npos,
              log.text().find("RuleMgr::DoCmd failed to excute the cmd ipfw -q add 3100 set 19 "
                              " allow proto tcp 2>/dev/stdout, ret is 0"));
    EXPECT_EQ(FW_ERR_NO_RULE_NUM, mgr->AddRule(rule));
    EXPECT_FALSE(rule.has_rule_index());
    EXPECT_TRUE(log.has(3,
                        "RuleMgr::GenNextRuleNumPriv Faield to excute cmd ipfw show 3100 "
                        "2>/dev/stdout"));
    EXPECT_EQ(QV_ERR_CMD, mgr->Enable());
    EXPECT_EQ(QV_ERR_CMD, mgr->DeleteRule(3100));

    ipfw.override([](const std::string& command) -> Answer {
        const bool joined = command.find("2>/dev/stdout") != std::string::npos;
        return Result<std::string>::Success(joined ? "sh: 1: ipfw: not found\n" : "");
    });
    const size_t probes = ran("ipfw show ");
    EXPECT_EQ(FW_ERR_NO_RULE_NUM, mgr->AddRule(rule));
    EXPECT_EQ(probes + 1, ran("ipfw show "));
    // The quiet commands cannot see the shell's complaint.
    EXPECT_EQ(0, mgr->DeleteRule(3100));
}

// Deletes and flushes of the set of one manager beside another's: deleting a set always
// deletes the manager's own and keeps the numbering, flushing it restarts the numbering,
// and flushing the rules empties every set but keeps the default rule.
TEST_F(RuleMgrTest, DeletesAndFlushesReachTheirSetsAndResetNumbering) {
    qvtest::LogCapture log;
    auto normal = cleanSet(3100, 19);
    auto exception = cleanSet(2100, 18);
    Guard<Mutex> normalLock(normal->mutex());
    Guard<Mutex> exceptionLock(exception->mutex());
    for (int i = 0; i < 2; ++i) {
        FwRule n = tcpRule();
        FwRule e = tcpRule();
        ASSERT_EQ(0, normal->AddRule(n));
        ASSERT_EQ(0, exception->AddRule(e));
    }
    ipfw.ipfw("-q add 1010 set 7 allow proto tcp");
    EXPECT_EQ(0, exception->DeleteSet(7));
    EXPECT_TRUE(log.has(7, "RuleMgr::DeleteSet delete set 7"));
    EXPECT_TRUE(listed(18).empty());
    EXPECT_EQ((std::vector<int>{1010}), listed(7));
    FwRule third = tcpRule();
    ASSERT_EQ(0, exception->AddRule(third));
    EXPECT_EQ(2120u, third.rule_index());

    EXPECT_EQ(0, exception->FlushVelaRules());
    EXPECT_EQ((std::vector<int>{3100, 3110}), listed(19));
    EXPECT_EQ(0, normal->DeleteRule(3100));
    EXPECT_EQ((std::vector<int>{3110}), listed(19));

    FwRule e = tcpRule();
    ASSERT_EQ(0, exception->AddRule(e));
    EXPECT_EQ(2100u, e.rule_index());
    EXPECT_EQ(0, normal->FlushRules());
    FwRule n = tcpRule();
    ASSERT_EQ(0, normal->AddRule(n));
    EXPECT_EQ(3100u, n.rule_index());
    EXPECT_EQ((std::vector<int>{3100}), listed());
    EXPECT_NE(std::string::npos, ipfw.ipfw("list").find("65535 allow ip from any to any"));
}

// Builds random rules that a real ipfw accepts: every field the generator renders, with a
// protocol always present (ipfw refuses a rule without any option) and non-empty lists.
class RandomRule {
public:
    explicit RandomRule(unsigned seed) : m_random(seed) {}

    FwRule next() {
        FwRule rule;
        rule.set_action(pick<ActionEnum>(
            {ACTION_ALLOW, ACTION_DENY, ACTION_RESET, ACTION_UNREACH, ACTION_CHECK_STATE}));
        rule.set_unreach_code(below(256));
        if (chance()) {
            rule.set_probability((below(1000) + 1) / 1000.0);
        }
        FwProtocol* proto = rule.mutable_protocol();
        proto->set_type(chance() ? PROTO_SPECIFIED : PROTO_ALL);
        proto->set_protocol(pick<ProtoValueEnum>(
            {PROTO_VALUE_TCP, PROTO_VALUE_UDP, PROTO_VALUE_ICMP, PROTO_VALUE_IP}));
        proto->set_exclude(chance());
        if (chance())
            fillIp(rule.mutable_src_ip());
        if (chance())
            fillIp(rule.mutable_dst_ip());
        if (chance())
            fillPort(rule.mutable_src_port());
        if (chance())
            fillPort(rule.mutable_dst_port());
        if (chance()) {
            for (int i = 0, n = 1 + below(3); i < n; ++i) {
                rule.add_icmp_type(pick<IcmpTypeEnum>({ICMP_TYPE_ECHO_REPLY, ICMP_TYPE_DEST_UNREACH,
                                                       ICMP_TYPE_ECHO, ICMP_TYPE_TIME_EXCEEDED,
                                                       ICMP_TYPE_ADDRESS_MASK_REPLY}));
            }
        }
        fillFlags<TcpFlags, TcpFlagEnum>(rule.mutable_tcp_flags(), 6);
        fillFlags<TcpOption, TcpOptionEnum>(rule.mutable_tcp_opts(), 5);
        fillFlags<IpOption, IpOptionEnum>(rule.mutable_ip_opts(), 4);
        fillFlags<IpTosOpt, IpTosOptEnum>(rule.mutable_ip_tos(), 5);
        if (chance()) {
            fillMac(rule.mutable_mac_addr()->mutable_dst_mac());
            fillMac(rule.mutable_mac_addr()->mutable_src_mac());
        }
        if (chance())
            rule.set_direction(pick<DirectEnum>({DIRECT_IN, DIRECT_OUT, DIRECT_BOTH}));
        if (chance()) {
            FwIfSpec* via = rule.mutable_via_interface();
            via->set_type(pick<FwIfTypeEnum>({FW_IF_TYPE_NAME, FW_IF_TYPE_2, FW_IF_TYPE_3}));
            via->set_device(pick<std::string>({"en0", "lo0", "bridge100", "utun*"}));
            via->set_ip(static_cast<uint32_t>(m_random()));
        }
        rule.set_keep_state(chance());
        return rule;
    }

private:
    bool chance() { return below(2) == 0; }
    int below(int n) { return static_cast<int>(m_random() % static_cast<unsigned>(n)); }
    template <typename T>
    T pick(std::initializer_list<T> values) {
        return *(values.begin() + below(static_cast<int>(values.size())));
    }

    void fillIp(FwIp* ip) {
        ip->set_ip_type(pick<IpEnum>({IP_ME, IP_ANY, IP_LIST, IP_LIST}));
        for (int i = 0, n = 1 + below(3); i < n; ++i) {
            IpAddr* addr = ip->add_ips();
            addr->set_use_host_name(below(4) == 0);
            if (addr->use_host_name()) {
                addr->set_host("localhost");
            } else {
                addr->set_ip(static_cast<uint32_t>(m_random()));
                if (chance())
                    addr->set_mask_len(static_cast<uint32_t>(below(33)));
            }
        }
    }

    void fillPort(FwPort* port) {
        port->set_port_type(chance() ? PORT_ANY : PORT_LIST);
        for (int i = 0, n = 1 + below(3); i < n; ++i) {
            Port* entry = port->add_ports();
            entry->set_use_range(chance());
            entry->set_port(static_cast<uint32_t>(below(65536)));
            uint32_t from = static_cast<uint32_t>(below(65536));
            entry->mutable_port_range()->set_from(from);
            entry->mutable_port_range()->set_to(from + static_cast<uint32_t>(below(65536 - from)));
        }
    }

    template <typename Flag, typename Enum>
    void fillFlags(google::protobuf::RepeatedPtrField<Flag>* list, int values) {
        if (!chance())
            return;
        for (int i = 0, n = 1 + below(3); i < n; ++i) {
            Flag* flag = list->Add();
            flag->set_value(static_cast<Enum>(1 + below(values)));
            flag->set_exclude(chance());
        }
    }

    void fillMac(MacAddr* mac) {
        mac->set_type(chance() ? MAC_ANY : MAC_SPECIFIED);
        char text[18];
        snprintf(text, sizeof(text), "%02x:%02X:%02x:%02x:%02x:%02x", below(256), below(256),
                 below(256), below(256), below(256), below(256));
        mac->set_mac(text);
        if (chance())
            mac->set_mask_len(static_cast<uint32_t>(below(49)));
    }

    std::mt19937 m_random;
};

TEST_F(RuleMgrTest, EveryBodyGeneratedForAValidRuleIsAccepted) {
    auto mgr = cleanSet();
    Guard<Mutex> lock(mgr->mutex());
    RandomRule random(20261122);
    constexpr int kRules = 1000;
    for (int i = 0; i < kRules; ++i) {
        FwRule rule = random.next();
        ASSERT_TRUE(rule.IsInitialized());
        std::string body;
        ASSERT_EQ(0, generator.CreateRule(rule, body));
        ASSERT_EQ(0, mgr->AddRule(rule)) << "refused: " << body;
        if (i % 50 == 49) {
            ASSERT_EQ(50u, listed(19).size());
            ASSERT_EQ(0, mgr->FlushVelaRules());
        }
    }
}

}  // namespace
