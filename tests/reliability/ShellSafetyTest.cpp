// No message that parses can make the generator write rule text holding anything the
// shell would act on (ShellInert.h): rules whose host, interface and MAC texts are drawn
// from every byte value and from shell syntax, and the byte-level mutants of their
// encodings, parsed as a host's request would be.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "RuleGenerator.h"
#include "ShellInert.h"

namespace {

using namespace qor::vela;

class RandomText {
public:
    explicit RandomText(std::mt19937& random) : m_random(random) {}

    // Pieces of shell syntax, name characters and arbitrary bytes, glued together.
    std::string next() {
        static const char* const kPieces[] = {";",  "`id`", "$(id)", "|",        "&",     ">",
                                              "<",  "*",    "?",     "[a]",      "~",     "#",
                                              "\\", "'",    "\"",    "\n",       "!",     "{a,b}",
                                              " ",  "\t",   "en0",   "host.lan", "a-b_c", "00:1a"};
        std::string text;
        for (int i = 0, n = below(4); i <= n; ++i) {
            if (below(3) == 0) {
                text += static_cast<char>(below(256));
            } else {
                text += kPieces[below(sizeof kPieces / sizeof kPieces[0])];
            }
        }
        return text;
    }
    int below(int n) { return static_cast<int>(m_random() % static_cast<unsigned>(n)); }

private:
    std::mt19937& m_random;
};

FwRule RandomRule(RandomText& text) {
    FwRule rule;
    rule.set_action(static_cast<ActionEnum>(1 + text.below(5)));  // every valid action
    rule.set_description(text.next());
    FwIp* ip = text.below(2) == 0 ? rule.mutable_src_ip() : rule.mutable_dst_ip();
    ip->set_ip_type(IP_LIST);
    IpAddr* addr = ip->add_ips();
    addr->set_use_host_name(true);
    addr->set_host(text.next());
    FwIfSpec* via = rule.mutable_via_interface();
    via->set_type(FW_IF_TYPE_NAME);
    via->set_device(text.next());
    if (text.below(2) == 0) {
        MacAddr* mac = rule.mutable_mac_addr()->mutable_src_mac();
        mac->set_type(MAC_SPECIFIED);
        mac->set_mac(text.next());
        rule.mutable_mac_addr()->mutable_dst_mac()->set_type(MAC_ANY);
    }
    return rule;
}

// A few random byte edits: flips, insertions, deletions.
std::string Mutate(std::string bytes, RandomText& text) {
    for (int i = 0, n = 1 + text.below(4); i < n && !bytes.empty(); ++i) {
        const size_t at = static_cast<size_t>(text.below(static_cast<int>(bytes.size())));
        switch (text.below(3)) {
            case 0:
                bytes[at] = static_cast<char>(bytes[at] ^ (1 << text.below(8)));
                break;
            case 1:
                bytes.insert(at, 1, static_cast<char>(text.below(256)));
                break;
            default:
                bytes.erase(at, 1);
        }
    }
    return bytes;
}

TEST(ShellSafetyTest, NoParsedRuleGivesTextTheShellActsOn) {
    const RuleGenerator generator;
    std::mt19937 random(20261123);
    RandomText text(random);
    int generated = 0;
    for (int i = 0; i < 20000; ++i) {
        const FwRule original = RandomRule(text);
        FwRule rule;
        if (!rule.ParsePartialFromString(Mutate(original.SerializeAsString(), text))) {
            rule = original;
        }
        std::string body;
        if (generator.CreateRule(rule, body) != 0) {
            continue;
        }
        ++generated;
        ASSERT_EQ(qvfuzz::FirstShellActiveChar(body), std::string::npos) << body;
    }
    // The property must have been put to the test, not only met by refusals.
    EXPECT_GT(generated, 2000);
}

}  // namespace
