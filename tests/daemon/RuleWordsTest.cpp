// qvfwctl's rule reader beside the plug-in's generator (on qvfwctl's full classes): the
// text of a rule reads back into the same message, typed words give the expected text,
// and what the generator never writes is refused at the right word.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "RuleFieldsReader.h"
#include "RuleGenerator.h"
#include "RuleReader.h"

namespace {

using namespace qor::vela;

constexpr int kRandomRules = 5000;

// Random rules in the forms the reader gives back (see RuleReader.h).
class RandomRule {
public:
    explicit RandomRule(uint32_t seed) : m_random(seed) {}

    FwRule Next() {
        FwRule rule;
        if (Chance(50)) {
            rule.set_probability(Number(0, 1000) / 1000.0);
        }
        rule.set_action(static_cast<ActionEnum>(Number(1, 5)));
        if (rule.action() == ACTION_CHECK_STATE) {
            return rule;
        }
        if (rule.action() == ACTION_UNREACH) {
            rule.set_unreach_code(static_cast<int32_t>(Number(0, 255)));
        }
        if (Chance(60)) {
            FillProtocol(rule.mutable_protocol());
        }
        for (FwIp* ip : {rule.mutable_src_ip(), rule.mutable_dst_ip()}) {
            FillAddresses(ip);
        }
        for (FwPort* port : {rule.mutable_src_port(), rule.mutable_dst_port()}) {
            FillPorts(port);
        }
        for (uint32_t n = Chance(30) ? Number(1, 4) : 0; n > 0; --n) {
            static const int kTypes[] = {0, 3, 4, 5, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18};
            rule.add_icmp_type(static_cast<IcmpTypeEnum>(kTypes[Number(0, 14)]));
        }
        FillFlags<TcpFlagEnum>(rule.mutable_tcp_flags(), 6);
        FillFlags<TcpOptionEnum>(rule.mutable_tcp_opts(), 5);
        FillFlags<IpOptionEnum>(rule.mutable_ip_opts(), 4);
        FillFlags<IpTosOptEnum>(rule.mutable_ip_tos(), 5);
        if (Chance(20)) {
            FillMac(rule.mutable_mac_addr()->mutable_dst_mac());
            FillMac(rule.mutable_mac_addr()->mutable_src_mac());
        }
        if (Chance(66)) {
            rule.set_direction(Chance(50) ? DIRECT_IN : DIRECT_OUT);
        }
        if (Chance(30)) {
            FillInterface(rule.mutable_via_interface());
        }
        if (Chance(30)) {
            rule.set_keep_state(true);
        }
        return rule;
    }

private:
    uint32_t Number(uint32_t low, uint32_t high) {
        return std::uniform_int_distribution<uint32_t>(low, high)(m_random);
    }
    bool Chance(uint32_t percent) { return Number(1, 100) <= percent; }
    // A name that cannot be taken for an address, "me" or "any".
    std::string Name(const std::string& extra, uint32_t length) {
        const std::string characters =
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789" + extra;
        std::string name = "n";
        while (name.size() < length) {
            name += characters[Number(0, static_cast<uint32_t>(characters.size() - 1))];
        }
        return name;
    }

    void FillProtocol(FwProtocol* protocol) {
        static const ProtoValueEnum kValues[] = {PROTO_VALUE_IP, PROTO_VALUE_ICMP, PROTO_VALUE_TCP,
                                                 PROTO_VALUE_UDP};
        if (Chance(20)) {
            protocol->set_type(PROTO_ALL);
            return;
        }
        protocol->set_type(PROTO_SPECIFIED);
        protocol->set_protocol(kValues[Number(0, 3)]);
        if (Chance(30)) {
            protocol->set_exclude(true);
        }
    }
    void FillAddresses(FwIp* ip) {
        ip->set_ip_type(static_cast<IpEnum>(Number(1, 3)));
        for (uint32_t n = ip->ip_type() == IP_LIST ? Number(1, 4) : 0; n > 0; --n) {
            IpAddr* addr = ip->add_ips();
            addr->set_use_host_name(Chance(30));
            if (addr->use_host_name()) {
                addr->set_host(Name(".-_", Number(1, 30)));
                continue;
            }
            addr->set_ip(Number(0, UINT32_MAX));
            if (Chance(50)) {
                addr->set_mask_len(Number(0, 32));
            }
        }
    }
    void FillPorts(FwPort* port) {
        port->set_port_type(static_cast<PortEnum>(Number(1, 2)));
        for (uint32_t n = port->port_type() == PORT_LIST ? Number(1, 4) : 0; n > 0; --n) {
            Port* entry = port->add_ports();
            entry->set_use_range(Chance(40));
            if (entry->use_range()) {
                entry->mutable_port_range()->set_from(Number(0, 65535));
                entry->mutable_port_range()->set_to(Number(0, 65535));
            } else {
                entry->set_port(Number(0, 65535));
            }
        }
    }
    template <typename Enum, typename Entry>
    void FillFlags(google::protobuf::RepeatedPtrField<Entry>* list, uint32_t highest) {
        for (uint32_t n = Chance(25) ? Number(1, 4) : 0; n > 0; --n) {
            Entry* entry = list->Add();
            entry->set_value(static_cast<Enum>(Number(1, highest)));
            if (Chance(30)) {
                entry->set_exclude(true);
            }
        }
    }
    void FillMac(MacAddr* mac) {
        if (Chance(30)) {
            mac->set_type(MAC_ANY);
            return;
        }
        const std::string hex = "0123456789abcdefABCDEF";
        std::string text;
        for (int pair = 0; pair < 6; ++pair) {
            text += std::string(pair == 0 ? "" : ":") + hex[Number(0, 21)] + hex[Number(0, 21)];
        }
        mac->set_type(MAC_SPECIFIED);
        mac->set_mac(text);
        if (Chance(50)) {
            mac->set_mask_len(Number(0, 48));
        }
    }
    void FillInterface(FwIfSpec* iface) {
        if (Chance(30)) {
            iface->set_type(FW_IF_TYPE_2);
            iface->set_ip(Number(0, UINT32_MAX));
            return;
        }
        iface->set_type(FW_IF_TYPE_NAME);
        iface->set_device(Name("._-*", Number(1, 15)));
    }

    std::mt19937 m_random;
};

std::string TextOf(const FwRule& rule) {
    std::string text;
    EXPECT_EQ(RuleGenerator().CreateRule(ReadRuleFields(rule), text), 0);
    return text;
}

TEST(RuleWordsTest, EveryGeneratedTextReadsBackIntoTheSameMessage) {
    const uint32_t seed = std::random_device()();
    RandomRule random(seed);
    for (int i = 0; i < kRandomRules; ++i) {
        FwRule rule = random.Next();
        const std::string text = TextOf(rule);
        FwRule read;
        qvctl::ReadResult result = qvctl::ReadRuleText(text, &read);
        ASSERT_TRUE(result.ok) << "seed " << seed << ": " << text << "\n" << result.Describe();
        ASSERT_EQ(read.SerializeAsString(), rule.SerializeAsString())
            << "seed " << seed << ": " << text;
    }
}

TEST(RuleWordsTest, TypedWordsGiveTheTextTheGeneratorWrites) {
    const struct {
        const char* typed;
        const char* text;
    } cases[] = {
        {"deny proto tcp src-ip 10.1.2.3 dst-port 2222 in",
         " deny log logamount 0 proto tcp src-ip 167838211 dst-port 2222 in"},
        {"drop log not proto udp dst-ip 10.1.2.0/24,fileserver,3232235777/16 out via en*",
         " deny log logamount 0 not proto udp dst-ip 167838208/24,fileserver,3232235777/16 out"
         " via en\\*"},
        {"  prob 0.25   unreach 3 log logamount 0 mac any 00:1A:2b:3c:4d:5e/40 via 10.0.0.1",
         "prob 0.25 unreach 3 log logamount 0 mac any 00:1A:2b:3c:4d:5e/40 via 167772161"},
        {"allow keep-state tcpflags syn,!ack iptos \\!lowdelay src-port 80,8000-8080 "
         "tcpoptions mss ipoptions ts icmptypes 0,8",
         " allow src-port 80,8000-8080 icmptypes 0,8 tcpflags syn,\\!ack tcpoptions mss "
         "ipoptions ts iptos \\!lowdelay keep-state"},
        {"check-state", " check-state"},
        {"reset proto all src-ip me dst-ip any dst-port any",
         " reset log logamount 0 proto all"
         " src-ip me dst-ip any dst-port any"},
    };
    for (const auto& c : cases) {
        FwRule rule;
        qvctl::ReadResult result = qvctl::ReadRuleText(c.typed, &rule);
        ASSERT_TRUE(result.ok) << c.typed << ": " << result.Describe();
        EXPECT_EQ(TextOf(rule), c.text) << c.typed;
    }
}

TEST(RuleWordsTest, RefusalsNameTheWordAndItsPlace) {
    const struct {
        const char* typed;
        size_t position;
        const char* word;
    } cases[] = {
        {"", 1, ""},
        {"dney proto tcp", 1, "dney"},
        {"deny proto tcpp", 3, "tcpp"},
        {"deny proto", 3, ""},
        {"deny not proto all", 4, "all"},
        {"deny not src-ip 1.2.3.4", 3, "src-ip"},
        {"allow log", 2, "log"},
        {"deny log logamount 5", 4, "5"},
        {"check-state proto tcp", 2, "proto"},
        {"unreach 256", 2, "256"},
        {"prob 1.5 deny", 2, "1.5"},
        {"prob nan deny", 2, "nan"},
        {"prob 0.3333333 deny", 2, "0.3333333"},
        {"deny src-ip 10.1.2.256", 3, "10.1.2.256"},
        {"deny src-ip 10.1.2.3/33", 3, "10.1.2.3/33"},
        {"deny src-ip 10.1.2", 3, "10.1.2"},
        {"deny src-ip host/24", 3, "host/24"},
        {"deny src-ip a;reboot", 3, "a;reboot"},
        {"deny src-ip 1.2.3.4,", 3, "1.2.3.4,"},
        {"deny via en0$(id)", 3, "en0$(id)"},
        {"deny via abcdefghijklmnop", 3, "abcdefghijklmnop"},
        {"deny dst-port 65536", 3, "65536"},
        {"deny dst-port 1-", 3, "1-"},
        {"deny icmptypes 0,2", 3, "0,2"},
        {"deny tcpflags syn,bogus", 3, "syn,bogus"},
        {"deny mac 00:11:22:33:44:55 00-11-22-33-44-55", 4, "00-11-22-33-44-55"},
        {"deny in out", 3, "out"},
        {"deny proto tcp proto udp", 4, "proto"},
        {"deny from any to any", 2, "from"},
        {"keep-state allow", 1, "keep-state"},
    };
    for (const auto& c : cases) {
        FwRule rule;
        qvctl::ReadResult result = qvctl::ReadRuleText(c.typed, &rule);
        ASSERT_FALSE(result.ok) << c.typed;
        EXPECT_EQ(result.position, c.position) << c.typed << ": " << result.Describe();
        EXPECT_EQ(result.word, c.word) << c.typed;
        EXPECT_FALSE(result.expected.empty()) << c.typed;
    }
}

}  // namespace
