// The ipfw command with the nftables back end, on strings: what "ipfw add" turns into
// nftables rules, what it refuses, and the table script after each change.

#include <gtest/gtest.h>

#include <sstream>

#include "ipfwnft/EnforcingIpfw.h"
#include "SimFakes.h"

namespace {

using namespace simtest;

class RecordingApplier : public ipfwnft::TableApplier {
public:
    std::vector<std::string> scripts;
    bool fail = false;

    Status apply(const std::string& script) override {
        if (fail) {
            return Status::failure(kExitUnavailable, "nftables: Operation not permitted");
        }
        scripts.push_back(script);
        return Status::success();
    }
};

std::vector<std::string> words(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> result;
    for (std::string word; in >> word;) {
        result.push_back(word);
    }
    return result;
}

class EnforcingIpfwTest : public ::testing::Test {
protected:
    int ipfw(const std::string& line) {
        console.errors.clear();
        return ipfwnft::EnforcingIpfw(env, store, console, applier).run(words(line));
    }
    // The rule lines of one chain of the last script applied.
    std::vector<std::string> chain(const std::string& name) const {
        std::vector<std::string> lines;
        if (applier.scripts.empty()) {
            return lines;
        }
        std::istringstream in(applier.scripts.back());
        bool inside = false;
        for (std::string line; std::getline(in, line);) {
            if (line == "\tchain " + name + " {") {
                inside = true;
            } else if (line == "\t}") {
                inside = false;
            } else if (inside && line.rfind("\t\t", 0) == 0) {
                lines.push_back(line.substr(2));
            }
        }
        return lines;
    }

    FakeEnvironment env;
    MemoryStore store;
    FakeConsole console;
    RecordingApplier applier;
};

struct Translation {
    const char* body;
    const char* inbound;   // the line in rules_in; "" when the rule cannot match there
    const char* outbound;  // the line in rules_out
};

// Bodies as the plug-in writes them (after the shell took the backslashes) and the
// grammar's other forms.
const Translation kTranslations[] = {
    {"allow proto tcp src-ip me dst-ip 3232235777/24,localhost dst-port 80,8000-8080 out "
     "keep-state",
     "ct mark 0x1f0c1c00 accept comment \"3100\"",
     "meta l4proto 6 fib saddr type local ip daddr { 127.0.0.1, 192.168.1.0-192.168.1.255 } "
     "tcp dport { 80, 8000-8080 } ct mark set 0x1f0c1c00 accept comment "
     "\"3100\""},
    {"prob 0.5 deny log logamount 0 proto tcp src-port any tcpflags syn,!ack",
     "numgen random mod 2147483647 < 1073741823 meta l4proto 6 tcp flags & 0x12 == 0x02 log group "
     "65 prefix \"3100 0 in Deny\" drop comment "
     "\"3100\"",
     "numgen random mod 2147483647 < 1073741823 meta l4proto 6 tcp flags & 0x12 == 0x02 log group "
     "65 prefix \"3100 0 out Deny\" drop comment "
     "\"3100\""},
    {"unreach 3 log logamount 0 proto all mac any 00:1A:2b:3c:4d:5e in via en0",
     "ether saddr 00:1a:2b:3c:4d:5e iifname \"en0\" log group 65 prefix \"3100 0 in Unreach "
     "3\" reject with icmp 3 comment \"3100\"",
     ""},
    {"reset log logamount 0 not proto ip src-ip any",
     "log group 65 prefix \"3100 0 in Reset\" jump reset_action comment \"3100\"",
     "log group 65 prefix \"3100 0 out Reset\" jump reset_action comment \"3100\""},
    {"allow proto icmp icmptypes 8,0", "meta l4proto 1 icmp type { 0, 8 } accept comment \"3100\"",
     "meta l4proto 1 icmp type { 0, 8 } accept comment \"3100\""},
    {"allow tcpoptions mss,!sack ipoptions rr iptos lowdelay,!mincost",
     "tcp option maxseg exists tcp option sack-perm missing ip option rr exists @nh,8,8 & 0x12 "
     "== 0x10 accept comment \"3100\"",
     "tcp option maxseg exists tcp option sack-perm missing ip option rr exists @nh,8,8 & 0x12 "
     "== 0x10 accept comment \"3100\""},
    {"deny not proto udp dst-ip 10.1.2.3:255.0.255.0 not src-ip me",
     "meta l4proto != 17 ip daddr & 255.0.255.0 == 10.0.2.0 fib saddr type != local drop "
     "comment \"3100\"",
     "meta l4proto != 17 ip daddr & 255.0.255.0 == 10.0.2.0 fib saddr type != local drop "
     "comment \"3100\""},
    {"deny dst-port 22,20-25,26 src-ip 10.0.0.0/8,10.1.0.0/16",
     "meta l4proto { 6, 17 } th dport { 20-26 } ip saddr { 10.0.0.0-10.255.255.255 } drop "
     "comment \"3100\"",
     "meta l4proto { 6, 17 } th dport { 20-26 } ip saddr { 10.0.0.0-10.255.255.255 } drop "
     "comment \"3100\""},
    {"count established recv en* not xmit eth0",
     "tcp flags & 0x14 != 0x00 iifname \"en*\" counter comment \"3100\"", ""},
    {"unreach 1 proto udp not via lo",
     "meta l4proto 17 iifname != \"lo\" reject with icmp 1 comment \"3100\"",
     "meta l4proto 17 oifname != \"lo\" reject with icmp 1 comment \"3100\""},
    // Matches that need different protocols never hold together.
    {"deny proto udp tcpflags syn", "", ""},
};

TEST_F(EnforcingIpfwTest, AddCompilesEachMatchForEachPass) {
    for (const Translation& row : kTranslations) {
        store = MemoryStore();
        ASSERT_EQ(ipfw(std::string("-q add 3100 set 19 ") + row.body), 0)
            << row.body << ": " << console.errors;
        const auto lineOf = [](const std::vector<std::string>& lines) {
            return lines.empty() ? std::string() : lines.back();
        };
        EXPECT_EQ(lineOf(chain("rules_in")), row.inbound) << row.body;
        EXPECT_EQ(lineOf(chain("rules_out")), row.outbound) << row.body;
    }
}

struct Refusal {
    const char* body;
    const char* message;
};

const Refusal kRefusals[] = {
    {"allow via 3232235777", "via 192.168.1.1 (nftables cannot test the address of an interface)"},
    {"allow recv e?0", "recv e?0 (nftables interface patterns allow one trailing * only)"},
    {"allow ipoptions rr,ts", "ipoptions ts (nftables has no test for the IP timestamp option)"},
    {"allow tcpoptions cc", "tcpoptions cc (nftables has no test for the T/TCP CC options)"},
    {"unreach 200 proto tcp", "unreach 200 (nftables rejects with ICMP codes 0 to 127 only)"},
    {"skipto 4000 proto tcp", "skipto (nftables cannot continue at a rule number)"},
    {"allow dst-ip 10.1.2.3:255.0.255.0,10.9.9.9",
     "dst-ip (nftables matches an address with a non-contiguous mask only when it stands alone)"},
    {"allow not dst-port 80",
     "not dst-port (nftables cannot negate a test that needs a protocol or a link header)"},
    {"allow not tcpflags syn",
     "not tcpflags (nftables cannot negate a test that needs a protocol or a link header)"},
};

TEST_F(EnforcingIpfwTest, RefusesWhatNftablesCannotTestBeforeStoringIt) {
    for (const Refusal& row : kRefusals) {
        const std::string before = store.bytes;
        EXPECT_EQ(ipfw(std::string("-q add 3100 set 19 ") + row.body), 69) << row.body;
        EXPECT_EQ(console.errors,
                  std::string("ipfw: rule cannot be enforced: ") + row.message + "\n");
        EXPECT_EQ(store.bytes, before) << row.body;
    }
    EXPECT_TRUE(applier.scripts.empty());
}

TEST_F(EnforcingIpfwTest, SimulatorRefusalsKeepTheirWords) {
    EXPECT_EQ(ipfw("-q add 3100 set 19 allow src-ip fileserver"), 68);
    EXPECT_EQ(console.errors, "ipfw: hostname ``fileserver'' unknown\n");
    EXPECT_TRUE(applier.scripts.empty());
}

TEST_F(EnforcingIpfwTest, ReplacesTheWholeTableAtomicallyAfterEveryChange) {
    ASSERT_EQ(ipfw("-q add 2100 set 18 allow proto tcp dst-port 22"), 0);
    ASSERT_EQ(ipfw("-q add 3100 set 19 deny proto tcp"), 0);
    ASSERT_EQ(applier.scripts.size(), 2u);
    EXPECT_EQ(applier.scripts.back().rfind(
                  "table inet ipfw\ndelete table inet ipfw\ntable inet ipfw {\n", 0),
              0u);
    EXPECT_EQ(chain("input"),
              (std::vector<std::string>{"type filter hook input priority filter; policy accept;",
                                        "meta nfproto ipv4 jump rules_in"}));
    EXPECT_EQ(chain("forward").back(), "meta nfproto ipv4 jump rules_forward_out");
    ASSERT_EQ(chain("rules_in").size(), 2u);
    EXPECT_EQ(chain("rules_forward_in")[0],
              "meta l4proto 6 tcp dport { 22 } return comment \"2100\"");

    ASSERT_EQ(ipfw("-q set disable 19"), 0);
    EXPECT_EQ(chain("rules_in").size(), 1u);
    ASSERT_EQ(ipfw("-q set enable 19"), 0);
    ASSERT_EQ(ipfw("-q delete 2100"), 0);
    EXPECT_EQ(chain("rules_in"),
              (std::vector<std::string>{"meta l4proto 6 drop comment \"3100\""}));
    ASSERT_EQ(ipfw("-q flush"), 0);
    EXPECT_TRUE(chain("rules_in").empty());
    EXPECT_EQ(applier.scripts.size(), 6u);
    ipfw("show");
    ipfw("-q zero");
    EXPECT_EQ(applier.scripts.size(), 6u) << "listings and counters leave the table alone";
}

TEST_F(EnforcingIpfwTest, KeptFlowsTakeTheirRuleActionAtTheFirstLookup) {
    ASSERT_EQ(ipfw("-q add 3000 set 19 prob 0.5 check-state"), 0);
    ASSERT_EQ(ipfw("-q add 3100 set 19 allow proto tcp dst-port 80 keep-state"), 0);
    ASSERT_EQ(ipfw("-q add 3200 set 19 deny log proto tcp"), 0);
    EXPECT_EQ(
        chain("rules_in"),
        (std::vector<std::string>{
            "ct mark 0x1f0c1c00 numgen random mod 2147483647 < 1073741823 accept comment \"3100\"",
            "ct mark 0x1f0c1c00 accept comment \"3100\"",
            "meta l4proto 6 tcp dport { 80 } ct mark set 0x1f0c1c00 accept "
            "comment \"3100\"",
            "meta l4proto 6 log group 65 prefix \"3200 0 in Deny\" drop comment \"3200\""}));
}

TEST_F(EnforcingIpfwTest, AFailedTableReplacementUndoesTheChange) {
    ASSERT_EQ(ipfw("-q add 3100 set 19 deny proto tcp"), 0);
    const std::string before = store.bytes;
    applier.fail = true;
    EXPECT_EQ(ipfw("-q add 3110 set 19 deny proto udp"), 69);
    EXPECT_EQ(console.errors, "ipfw: nftables: Operation not permitted\n");
    EXPECT_EQ(store.bytes, before);
    // An undo that cannot be written is said, not passed over.
    store.refuseReplace = true;
    EXPECT_EQ(ipfw("-q add 3120 set 19 deny proto udp"), 69);
    EXPECT_EQ(console.errors,
              "ipfw: nftables: Operation not permitted\n"
              "ipfw: the rule state could not be put back (No space left on device); it holds "
              "the change that the kernel refused\n");
}

}  // namespace
