// Whatever ipfw accepts either becomes a table that the kernel's nftables accepts
// ("nft -c", inside a network namespace of the test's own) or is refused with one of the
// documented reasons: the simulator's accepted bodies and random bodies in the form the
// plug-in writes them.

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <sstream>

#include "NetnsWorld.h"
#include "SimFakes.h"
#include "TempDir.h"
#include "ipfwnft/RuleCompiler.h"
#include "ipfwnft/TableCompiler.h"
#include "ipfwsim/RuleParser.h"

namespace {

using namespace simtest;

// The refusals README.md lists.
const char* const kDocumentedReasons[] = {
    "(nftables cannot test the address of an interface)",
    "(nftables interface patterns allow one trailing * only)",
    "(nftables has no test for the IP timestamp option)",
    "(nftables has no test for the T/TCP CC options)",
    "(nftables rejects with ICMP codes 0 to 127 only)",
    "(nftables cannot continue at a rule number)",
    "(nftables matches an address with a non-contiguous mask only when it stands alone)",
    "(nftables cannot negate a test that needs a protocol or a link header)",
};

const char* const kCorpus[] = {
    "allow proto tcp src-ip me dst-ip 3232235777/24,localhost dst-port 80,8000-8080 out keep-state",
    "prob 0.5 deny log logamount 0 proto tcp src-port any tcpflags syn,!ack",
    "unreach 3 log logamount 0 proto all mac any 00:1A:2b:3c:4d:5e in via en0",
    "check-state",
    "reset log logamount 0 not proto ip src-ip any",
    "allow proto icmp icmptypes 8,0",
    "allow tcpoptions mss,!sack ipoptions rr iptos lowdelay,!mincost",
    "allow via 3232235777",
    "allow proto tcp dst-port 0-0",
    "allow ip from any to any",
    "deny tcp from 10.1.2.3 to any 22",
    "allow udp from any 53 to me",
    "allow tcp from any to any http keep-state",
    "allow keep-state proto tcp",
    "deny log logamount 5 proto udp",
    "unreach 1 proto tcp",
    "unreach 200 proto tcp",
    "unreach filter-prohib proto tcp",
    "allow dst-ip 10.1.2.3:255.0.255.0",
    "allow dst-ip 10.1.2.3/0,localhost",
    "allow not proto ip dst-port 80",
    "allow !in via any proto tcp",
    "allow not via en0",
    "allow via en*",
    "count mac 00:11:22:33:44:55/24 any",
    "skipto 4000 proto icmp",
    "allow tcpflags fin,syn,!rst,ack",
    "allow established setup",
    "allow src-ip 10.0.0.0/8,10.1.0.0/16,10.0.0.5 dst-port 1-10,5-20,20",
};

// A body in the plug-in's order of fragments, each present or not at random.
class RandomBody {
public:
    explicit RandomBody(unsigned seed) : m_random(seed) {}

    std::string Next() {
        std::string body = Maybe(4) ? "prob 0." + std::to_string(Pick(1, 9)) + " " : "";
        body +=
            Choose({"allow", "deny log logamount 0", "reset log logamount 0",
                    "unreach " + std::to_string(Pick(0, 255)) + " log logamount 0", "check-state"});
        if (Maybe(2)) {
            body += Maybe(5) ? " proto all"
                             : std::string(Maybe(4) ? " not" : "") + " proto " +
                                   Choose({"tcp", "udp", "icmp", "ip"});
        }
        for (const char* side : {" src-ip ", " dst-ip "}) {
            if (Maybe(3)) {
                body += side + (Maybe(3) ? Choose({"me", "any"}) : AddressList());
            }
        }
        for (const char* side : {" src-port ", " dst-port "}) {
            if (Maybe(3)) {
                body += side + (Maybe(4) ? std::string("any") : PortList());
            }
        }
        body +=
            Maybe(4) ? " icmptypes " + List(1, 3, [&] { return std::to_string(Pick(0, 18)); }) : "";
        body += Flags(" tcpflags ", {"syn", "fin", "ack", "psh", "rst", "urg"});
        body += Flags(" tcpoptions ", {"mss", "window", "sack", "ts", "cc"});
        body += Flags(" ipoptions ", {"ssrr", "lsrr", "rr", "ts"});
        body +=
            Flags(" iptos ", {"lowdelay", "throughput", "reliability", "mincost", "congestion"});
        body += Maybe(6) ? " mac any 00:1A:2b:3c:4d:5" + std::to_string(Pick(0, 9)) : "";
        body += Maybe(3) ? Choose({" in", " out"}) : "";
        body += Maybe(4) ? " via " + Choose({"en0", "en*", "lo", "3232235777"}) : "";
        body += Maybe(4) ? " keep-state" : "";
        return body;
    }

private:
    int Pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_random); }
    bool Maybe(int oneIn) { return Pick(1, oneIn) == 1; }
    std::string Choose(const std::vector<std::string>& options) {
        return options[static_cast<size_t>(Pick(0, static_cast<int>(options.size()) - 1))];
    }
    template <typename Element>
    std::string List(int low, int high, Element element) {
        std::string text = element();
        for (int n = Pick(low, high); n > 1; --n) {
            text += "," + element();
        }
        return text;
    }
    std::string AddressList() {
        return List(1, 3, [&] {
            return std::to_string(m_random()) + (Maybe(2) ? "/" + std::to_string(Pick(0, 32)) : "");
        });
    }
    std::string PortList() {
        return List(1, 3, [&] {
            const int low = Pick(0, 65535);
            return Maybe(2) ? std::to_string(low)
                            : std::to_string(low) + "-" + std::to_string(Pick(low, 65535));
        });
    }
    std::string Flags(const char* keyword, const std::vector<std::string>& names) {
        return Maybe(5)
                   ? keyword + List(1, 3, [&] { return (Maybe(3) ? "!" : "") + Choose(names); })
                   : "";
    }

    std::mt19937 m_random;
};

std::vector<std::string> Words(const std::string& body) {
    std::istringstream in(body);
    std::vector<std::string> words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

bool Documented(const std::string& message) {
    for (const char* reason : kDocumentedReasons) {
        if (message.rfind("rule cannot be enforced: ", 0) == 0 &&
            message.size() > std::string(reason).size() &&
            message.compare(message.size() - std::string(reason).size(), std::string::npos,
                            reason) == 0) {
            return true;
        }
    }
    return false;
}

TEST(NftAcceptanceTest, EveryAcceptedBodyLoadsOrIsRefusedWithADocumentedReason) {
    std::string whyNot;
    if (!nfttest::EnterPrivateNetwork(whyNot)) {
        GTEST_SKIP() << whyNot;
    }
    std::vector<std::string> bodies(std::begin(kCorpus), std::end(kCorpus));
    RandomBody random(20240611);
    for (int i = 0; i < 400; ++i) {
        bodies.push_back(random.Next());
    }
    FakeNames names;
    FirewallState state;
    size_t refused = 0;
    std::string listing;
    for (size_t i = 0; i < bodies.size(); ++i) {
        Diagnostics ignored;
        StoredRule stored;
        uint64_t number = 0;
        if (!RuleParser(names, ignored).parse(Words(bodies[i]), stored.rule, number).ok()) {
            continue;
        }
        Status status = ipfwnft::checkEnforceable(stored.rule);
        if (!status.ok()) {
            ++refused;
            EXPECT_TRUE(Documented(status.message)) << bodies[i] << ": " << status.message;
            continue;
        }
        stored.rule.number = static_cast<uint32_t>(100 + i);
        state.insert(stored);
        listing += std::to_string(100 + i) + ": " + bodies[i] + "\n";
    }
    std::string script;
    ASSERT_TRUE(ipfwnft::compileTable(state, 1, script).ok());
    qvtest::TempDir dir;
    std::ofstream(dir.file("table.nft")) << script;
    nfttest::CommandResult check = nfttest::Shell("nft -c -f " + dir.file("table.nft"));
    EXPECT_EQ(check.exitCode, 0) << check.output << "\n(comment \"N\" names the body)\n" << listing;
    // Both outcomes must be exercised for the test to mean anything.
    EXPECT_GT(state.rules().size(), 200u);
    EXPECT_GT(refused, 20u);
}

}  // namespace
