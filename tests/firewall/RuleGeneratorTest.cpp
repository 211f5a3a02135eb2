// Rule text, byte for byte: the worked examples, every separator and quirk that could
// plausibly break, MAC validation, and the checks that keep free text from the shell.
#include <gtest/gtest.h>

#include <string>

#include "DebugRuleTextLog.h"
#include "LogCapture.h"
#include "QvFirewall.h"
#include "RuleFieldsReader.h"
#include "RuleGenerator.h"

using namespace qor::vela;

namespace {

class RuleGeneratorTest : public ::testing::Test {
protected:
    std::string render(const FwRule& rule, int32_t expected = 0) {
        std::string out;
        EXPECT_EQ(expected, generator.CreateRule(ReadRuleFields(rule), out));
        return out;
    }

    static void addIp(FwIp* ip, uint32_t value, int mask = -1) {
        IpAddr* addr = ip->add_ips();
        addr->set_use_host_name(false);
        addr->set_ip(value);
        if (mask >= 0) {
            addr->set_mask_len(static_cast<uint32_t>(mask));
        }
    }

    static void addHost(FwIp* ip, const std::string& host) {
        IpAddr* addr = ip->add_ips();
        addr->set_use_host_name(true);
        addr->set_host(host);
    }

    static FwRule tcpRule() {
        FwRule rule;
        rule.mutable_protocol()->set_type(PROTO_SPECIFIED);
        rule.mutable_protocol()->set_protocol(PROTO_VALUE_TCP);
        return rule;
    }

    RuleGenerator generator{DebugRuleTextLog::Get()};
};

// The worked examples: allow with addresses, ports and state (and its log line), a
// probable deny with a negated flag, and check-state, which ignores every other field.
// (Unreach, MACs and interfaces: the tests below.)
TEST_F(RuleGeneratorTest, WorkedExamples) {
    qvtest::LogCapture log;
    FwRule rule = tcpRule();
    rule.set_action(ACTION_ALLOW);
    rule.mutable_src_ip()->set_ip_type(IP_ME);
    rule.mutable_dst_ip()->set_ip_type(IP_LIST);
    addIp(rule.mutable_dst_ip(), 3232235777u, 24);
    addHost(rule.mutable_dst_ip(), "fileserver");
    FwPort* port = rule.mutable_dst_port();
    port->set_port_type(PORT_LIST);
    Port* single = port->add_ports();
    single->set_use_range(false);
    single->set_port(80);
    Port* range = port->add_ports();
    range->set_use_range(true);
    range->mutable_port_range()->set_from(8000);
    range->mutable_port_range()->set_to(8080);
    rule.set_direction(DIRECT_OUT);
    rule.set_keep_state(true);
    const std::string text = render(rule);
    EXPECT_EQ(
        " allow proto tcp src-ip me dst-ip 3232235777/24,fileserver dst-port 80,8000-8080 out "
        "keep-state",
        text);
    EXPECT_TRUE(log.has(7, "RuleGenerator::ParseOpt generated rule is " + text));

    FwRule deny = tcpRule();
    deny.set_probability(0.5);
    deny.set_action(ACTION_DENY);
    deny.mutable_src_port()->set_port_type(PORT_ANY);
    deny.add_tcp_flags()->set_value(TCP_FLAG_SYN);
    TcpFlags* ackFlag = deny.add_tcp_flags();
    ackFlag->set_value(TCP_FLAG_ACK);
    ackFlag->set_exclude(true);
    EXPECT_EQ("prob 0.5 deny log logamount 0 proto tcp src-port any tcpflags syn,\\!ack",
              render(deny));

    FwRule checkState = tcpRule();
    checkState.set_action(ACTION_CHECK_STATE);
    checkState.set_keep_state(true);
    checkState.mutable_src_ip()->set_ip_type(IP_ANY);
    EXPECT_EQ(" check-state", render(checkState));
    checkState.set_probability(0.5);
    EXPECT_EQ("prob 0.5 check-state", render(checkState));
}

// Actions and their logging, the probability to six significant digits, and the forms
// of the protocol.
TEST_F(RuleGeneratorTest, ActionsProbabilityAndProtocolForms) {
    FwRule rule = tcpRule();
    rule.set_action(ACTION_RESET);
    EXPECT_EQ(" reset log logamount 0 proto tcp", render(rule));
    rule.set_action(ACTION_UNREACH);
    rule.set_unreach_code(-1);
    EXPECT_EQ(" unreach -1 log logamount 0 proto tcp", render(rule));
    rule.clear_action();  // reads as allow
    EXPECT_EQ(" allow proto tcp", render(rule));

    rule.set_probability(1);
    EXPECT_EQ("prob 1 allow proto tcp", render(rule));
    rule.set_probability(0.1234567);
    EXPECT_EQ("prob 0.123457 allow proto tcp", render(rule));
    rule.set_probability(1e-7);
    EXPECT_EQ("prob 1e-07 allow proto tcp", render(rule));

    FwRule bare;
    FwProtocol* proto = bare.mutable_protocol();
    proto->set_type(PROTO_SPECIFIED);
    EXPECT_EQ(" allow proto tcp", render(bare));  // protocol absent reads as TCP
    proto->set_protocol(PROTO_VALUE_UDP);
    proto->set_exclude(true);
    EXPECT_EQ(" allow not proto udp", render(bare));
    proto->set_protocol(PROTO_VALUE_IP);
    proto->set_exclude(false);
    EXPECT_EQ(" allow proto ip", render(bare));
    proto->set_type(PROTO_ALL);
    proto->set_exclude(true);
    EXPECT_EQ(" allow proto all", render(bare));
}

TEST_F(RuleGeneratorTest, AddressAndPortListSeparatorsAndSkippedEntries) {
    FwRule rule;
    FwIp* src = rule.mutable_src_ip();
    src->set_ip_type(IP_LIST);
    EXPECT_EQ(" allow src-ip ", render(rule));  // empty list: nothing after the keyword

    addIp(src, 3232235777u);
    src->add_ips()->set_use_host_name(true);  // host absent: skipped, comma stays
    EXPECT_EQ(" allow src-ip 3232235777,", render(rule));

    FwRule second;
    FwIp* dst = second.mutable_dst_ip();
    dst->set_ip_type(IP_LIST);
    dst->add_ips()->set_use_host_name(false);  // ip absent: skipped with its separator
    addIp(dst, 1, 0);
    addHost(dst, "db.example.com");
    EXPECT_EQ(" allow dst-ip 1/0,db.example.com", render(second));

    dst->set_ip_type(IP_ANY);
    EXPECT_EQ(" allow dst-ip any", render(second));
    addIp(dst, 4294967295u, 32);
    dst->set_ip_type(IP_LIST);
    EXPECT_EQ(" allow dst-ip 1/0,db.example.com,4294967295/32", render(second));

    FwRule ports;
    FwPort* port = ports.mutable_src_port();
    port->set_port_type(PORT_LIST);
    EXPECT_EQ(" allow src-port ", render(ports));
    port->add_ports()->set_use_range(true);   // range message absent reads 0-0
    port->add_ports()->set_use_range(false);  // port absent reads 0
    Port* high = port->add_ports();
    high->set_use_range(false);
    high->set_port(65535);
    EXPECT_EQ(" allow src-port 0-0,0,65535", render(ports));
}

TEST_F(RuleGeneratorTest, OptionListsAndTheFixedFragmentOrder) {
    FwRule rule;
    rule.add_icmp_type(ICMP_TYPE_ECHO);
    rule.add_icmp_type(ICMP_TYPE_ECHO_REPLY);
    TcpOption* mss = rule.add_tcp_opts();
    mss->set_value(TCP_OPTION_MSS);
    TcpOption* sack = rule.add_tcp_opts();
    sack->set_value(TCP_OPTION_SACK);
    sack->set_exclude(true);
    rule.add_ip_opts()->set_value(IP_OPTION_TS);
    rule.add_ip_tos()->set_value(IP_TOS_LOWDELAY);
    IpTosOpt* mincost = rule.add_ip_tos();
    mincost->set_value(IP_TOS_MINCOST);
    mincost->set_exclude(true);
    EXPECT_EQ(" allow icmptypes 8,0 tcpoptions mss,\\!sack ipoptions ts iptos lowdelay,\\!mincost",
              render(rule));

    FwRule ordered = tcpRule();
    ordered.set_keep_state(true);
    ordered.mutable_via_interface()->set_type(FW_IF_TYPE_2);
    ordered.mutable_via_interface()->set_ip(3232235777u);
    ordered.set_direction(DIRECT_BOTH);
    ordered.mutable_mac_addr()->mutable_src_mac()->set_type(MAC_ANY);
    ordered.mutable_mac_addr()->mutable_dst_mac()->set_type(MAC_ANY);
    ordered.add_ip_tos()->set_value(IP_TOS_CONGESTION);
    ordered.add_ip_opts()->set_value(IP_OPTION_RR);
    ordered.add_tcp_opts()->set_value(TCP_OPTION_CC);
    ordered.add_tcp_flags()->set_value(TCP_FLAG_URG);
    ordered.add_icmp_type(ICMP_TYPE_ADDRESS_MASK_REPLY);
    ordered.mutable_dst_port()->set_port_type(PORT_ANY);
    ordered.mutable_src_port()->set_port_type(PORT_ANY);
    ordered.mutable_dst_ip()->set_ip_type(IP_ANY);
    ordered.mutable_src_ip()->set_ip_type(IP_ME);
    EXPECT_EQ(
        " allow proto tcp src-ip me dst-ip any src-port any dst-port any icmptypes 18 tcpflags "
        "urg tcpoptions cc ipoptions rr iptos congestion mac any any via 3232235777 keep-state",
        render(ordered));
}

TEST_F(RuleGeneratorTest, MacAddressValidation) {
    qvtest::LogCapture log;
    for (const char* bad : {"00-1a-2b-3c-4d-5e", "0:1a:2b:3c:4d:5e", "00:1a:2b:3c:4d:5e/24",
                            "00:1a:2b:3c:4d", "00:1a:2b:3c:4d:5e:6f", "gg:1a:2b:3c:4d:5e", ""}) {
        EXPECT_NE(0, generator.VerifyMacAddr(bad)) << bad;
    }
    EXPECT_NE(0, generator.VerifyMacAddr(std::string("00:1a:2b:3c:4d:5e\0;reboot", 25)));
    EXPECT_EQ(0, generator.VerifyMacAddr("00:1A:2b:3C:4d:5E"));

    FwRule rule;
    MacAddr* dst = rule.mutable_mac_addr()->mutable_dst_mac();
    dst->set_type(MAC_SPECIFIED);
    dst->set_mac("00:1A:2b:3C:4d:5E");
    dst->set_mask_len(40);
    rule.mutable_mac_addr()->mutable_src_mac()->set_type(MAC_ANY);
    rule.set_direction(DIRECT_IN);
    EXPECT_EQ(" allow mac 00:1A:2b:3C:4d:5E/40 any in", render(rule));

    dst->set_mac("00-1a-2b-3c-4d-5e");
    EXPECT_EQ(" allow mac  ", render(rule, FW_ERR_MAC));  // the blank follows a failed side too
    EXPECT_TRUE(log.has(3, "RuleGenerator::FillMacAddr Mac address 00-1a-2b-3c-4d-5e invalid"));

    dst->clear_mac();
    render(rule, FW_ERR_MAC);
    EXPECT_TRUE(log.has(3, "RuleGenerator::FillMacAddr do not have mac addr"));

    // Both sides must be given: an absent side is neither "any" nor an address.
    FwRule oneSide;
    oneSide.mutable_mac_addr()->mutable_dst_mac()->set_type(MAC_ANY);
    EXPECT_EQ(" allow mac any ", render(oneSide, FW_ERR_MAC));
    FwRule otherSide;
    otherSide.mutable_mac_addr()->mutable_src_mac()->set_type(MAC_ANY);
    render(otherSide, FW_ERR_MAC);
}

TEST_F(RuleGeneratorTest, UnsafeHostAndInterfaceNamesNeverReachTheRuleText) {
    qvtest::LogCapture log;
    const std::string tooLong(254, 'a');
    for (const std::string& host :
         {std::string("fileserver;reboot"), std::string("$(reboot)"), std::string("`id`"),
          std::string("a b"), std::string("host|cat"), std::string("h>x"), std::string("x&"),
          std::string("a\nb"), std::string("a\\!b"), std::string("a*"), tooLong,
          std::string("ok\0;reboot", 10)}) {
        FwRule rule;
        rule.mutable_dst_ip()->set_ip_type(IP_LIST);
        addIp(rule.mutable_dst_ip(), 1);
        addHost(rule.mutable_dst_ip(), host);
        std::string out = render(rule, FW_ERR_UNSAFE_TEXT);
        EXPECT_EQ(std::string::npos, out.find(host)) << host;
        EXPECT_EQ(std::string::npos, out.find("1,")) << "nothing of the list is written";
    }
    EXPECT_TRUE(log.has(3, "RuleGenerator::GetIpAndMask invalid host name fileserver;reboot"));

    FwRule fine;
    fine.mutable_src_ip()->set_ip_type(IP_LIST);
    addHost(fine.mutable_src_ip(), "File-Server_01.example.com");
    addHost(fine.mutable_src_ip(), std::string(253, 'b'));
    EXPECT_EQ(" allow src-ip File-Server_01.example.com," + std::string(253, 'b'), render(fine));

    for (const std::string& device :
         {std::string("en0;reboot"), std::string("en0 in"), std::string("$IFS"),
          std::string("en/0"), std::string("0123456789abcdef"), std::string("en0\0x", 5)}) {
        FwRule rule;
        rule.mutable_via_interface()->set_type(FW_IF_TYPE_NAME);
        rule.mutable_via_interface()->set_device(device);
        EXPECT_EQ(" allow", render(rule, FW_ERR_UNSAFE_TEXT)) << device;
    }
    EXPECT_TRUE(log.has(3, "RuleGenerator::GenViaInterface invalid interface name en0;reboot"));

    FwRule named;
    named.mutable_via_interface()->set_type(FW_IF_TYPE_NAME);
    named.mutable_via_interface()->set_device("bridge100.1_a-*");
    EXPECT_EQ(" allow via bridge100.1_a-\\*", render(named));
    // An address-typed interface ignores the device text entirely.
    named.mutable_via_interface()->set_type(FW_IF_TYPE_3);
    named.mutable_via_interface()->set_device("en0;reboot");
    named.mutable_via_interface()->set_ip(16909060);
    EXPECT_EQ(" allow via 16909060", render(named));
}

#ifdef NDEBUG
// Only a message built in memory can hold an action outside its enum (the parser keeps
// such values aside, and debug builds assert in the setter).
TEST_F(RuleGeneratorTest, ActionWithoutKeywordFailsAfterTheProbability) {
    qvtest::LogCapture log;
    FwRule rule;
    rule.set_probability(0.5);
    rule.set_action(static_cast<ActionEnum>(9));
    EXPECT_EQ("prob 0.5", render(rule, FW_ERR_ACTION));
    EXPECT_TRUE(log.has(3, "RuleGenerator::CreateRule not support actions 9"));
}
#endif

}  // namespace
