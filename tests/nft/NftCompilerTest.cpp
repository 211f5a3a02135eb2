// The ipfw command with the nftables back end, on strings against a model of the kernel's
// table: what "ipfw add" turns into nftables rules, what it refuses, that each change
// leaves the table as a whole rebuild would while touching only its own chains, and how
// a table that is not the one the state last left is found and rebuilt.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>

#include "ModelKernel.h"
#include "SimFakes.h"
#include "ipfwnft/EnforcingIpfw.h"
#include "ipfwnft/TableCompiler.h"
#include "ipfwsim/FirewallState.h"
#include "ipfwsim/RuleParser.h"
#include "ipfwsim/StateFile.h"

namespace {

using namespace simtest;

const std::string kGate19 = "numgen random mod 1 offset 19 @enabled_sets ";

// What allow does in each pass: the mark tells the later tables the packet is through.
std::string withAllow(std::string line, const char* bit) {
    const size_t at = line.find("ALLOW");
    return at == std::string::npos
               ? line
               : line.replace(at, 5, std::string("meta mark set meta mark | ") + bit + " accept");
}

class EnforcingIpfwTest : public ::testing::Test {
protected:
    int ipfw(const std::string& line) {
        console.errors.clear();
        return ipfwnft::EnforcingIpfw(env, store, console, kernel).run(words(line));
    }

    // The count of kernel changes in the state's first line.
    uint32_t stateGeneration() const {
        ipfwsim::StateFile file(store.bytes);
        EXPECT_TRUE(file.open().ok());
        return file.kernelGeneration();
    }

    // The kernel as a whole table compiled from the state now would leave it.
    nfttest::ModelKernel rebuilt() const {
        ipfwsim::FirewallState state;
        EXPECT_TRUE(ipfwsim::FirewallState::load(store.bytes, state).ok());
        std::string script;
        EXPECT_TRUE(ipfwnft::compileTable(state, stateGeneration(), script).ok());
        nfttest::ModelKernel fresh;
        EXPECT_TRUE(fresh.apply(script).ok());
        return fresh;
    }

    void expectKernelAsRebuilt(const std::string& after) const {
        const nfttest::ModelKernel whole = rebuilt();
        ASSERT_EQ(kernel.tableNames(), whole.tableNames()) << after;
        for (const std::string& table : whole.tableNames()) {
            for (const char* chain : {"rules_in", "rules_out", "prerouting", "forward"}) {
                ASSERT_EQ(kernel.walk(table, chain), whole.walk(table, chain))
                    << table << " " << chain << " after " << after;
            }
            ASSERT_EQ(kernel.elements(table, "enabled_sets"), whole.elements(table, "enabled_sets"))
                << table << " after " << after;
            ASSERT_EQ(kernel.objectCount(table), whole.objectCount(table))
                << table << " after " << after;
            // What the next change will prove is there.
            ASSERT_EQ(kernel.elements(table, "gen"),
                      std::set<std::string>{std::to_string(stateGeneration())})
                << table << " after " << after;
        }
    }

    // The last script without the statements that prove and move on the generation.
    std::string lastScript() const {
        std::istringstream lines(kernel.scripts.empty() ? std::string() : kernel.scripts.back());
        std::string change;
        for (std::string line; std::getline(lines, line);) {
            if (line.find(" element inet ipfw") == std::string::npos ||
                line.find(" gen { ") == std::string::npos) {
                change += line + "\n";
            }
        }
        return change;
    }

    FakeEnvironment env;
    MemoryStore store;
    FakeConsole console;
    nfttest::ModelKernel kernel;
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
     "ct mark 0x1f0c1c00 ALLOW comment \"3100\"",
     "ip daddr { 127.0.0.1, 192.168.1.0-192.168.1.255 } meta l4proto 6 fib saddr type local "
     "tcp dport { 80, 8000-8080 } ct mark set 0x1f0c1c00 ALLOW comment "
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
    {"allow proto icmp icmptypes 8,0", "meta l4proto 1 icmp type { 0, 8 } ALLOW comment \"3100\"",
     "meta l4proto 1 icmp type { 0, 8 } ALLOW comment \"3100\""},
    {"allow tcpoptions mss,!sack ipoptions rr iptos lowdelay,!mincost",
     "tcp option maxseg exists tcp option sack-perm missing ip option rr exists @nh,8,8 & 0x12 "
     "== 0x10 ALLOW comment \"3100\"",
     "tcp option maxseg exists tcp option sack-perm missing ip option rr exists @nh,8,8 & 0x12 "
     "== 0x10 ALLOW comment \"3100\""},
    {"deny not proto udp dst-ip 10.1.2.3:255.0.255.0 not src-ip me",
     "ip daddr & 255.0.255.0 == 10.0.2.0 meta l4proto != 17 fib saddr type != local drop "
     "comment \"3100\"",
     "ip daddr & 255.0.255.0 == 10.0.2.0 meta l4proto != 17 fib saddr type != local drop "
     "comment \"3100\""},
    {"deny dst-port 22,20-25,26 src-ip 10.0.0.0/8,10.1.0.0/16",
     "ip saddr 10.0.0.0-10.255.255.255 meta l4proto { 6, 17 } th dport 20-26 drop "
     "comment \"3100\"",
     "ip saddr 10.0.0.0-10.255.255.255 meta l4proto { 6, 17 } th dport 20-26 drop "
     "comment \"3100\""},
    // A packet made here has an empty receiving interface in its out pass.
    {"count established recv en* not xmit eth0",
     "tcp flags & 0x14 != 0x00 iifname \"en*\" counter comment \"3100\"",
     "tcp flags & 0x14 != 0x00 iifname \"en*\" oifname != \"eth0\" counter comment \"3100\""},
    {"unreach 1 proto udp not via lo",
     "meta l4proto 17 iifname != \"lo\" reject with icmp 1 comment \"3100\"",
     "meta l4proto 17 oifname != \"lo\" reject with icmp 1 comment \"3100\""},
    // Matches that need different protocols never hold together.
    {"deny proto udp tcpflags syn", "", ""},
};

TEST_F(EnforcingIpfwTest, AddCompilesEachMatchForEachPass) {
    for (const Translation& row : kTranslations) {
        store = MemoryStore();
        kernel = nfttest::ModelKernel();
        ASSERT_EQ(ipfw(std::string("-q add 3100 set 19 ") + row.body), 0)
            << row.body << ": " << console.errors;
        // The rule's own line, without its set's gate.
        const auto lineOf = [](const std::vector<std::string>& lines) {
            const std::string last = lines.empty() ? std::string() : lines.back();
            return last.rfind(kGate19, 0) == 0 ? last.substr(kGate19.size()) : last;
        };
        EXPECT_EQ(lineOf(kernel.walkAll("rules_in")), withAllow(row.inbound, "0x00100000"))
            << row.body;
        EXPECT_EQ(lineOf(kernel.walkAll("rules_out")), withAllow(row.outbound, "0x00200000"))
            << row.body;
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
    EXPECT_TRUE(kernel.scripts.empty());
}

TEST_F(EnforcingIpfwTest, SimulatorRefusalsKeepTheirWords) {
    EXPECT_EQ(ipfw("-q add 3100 set 19 allow src-ip fileserver"), 68);
    EXPECT_EQ(console.errors, "ipfw: hostname ``fileserver'' unknown\n");
    EXPECT_TRUE(kernel.scripts.empty());
}

// A change reaches the kernel as statements on what it touched: a keyed rule is an
// element, a line is appended to its run, a set switch is one element, and only a flush
// rebuilds.
TEST_F(EnforcingIpfwTest, EachChangeTouchesOnlyItsOwnChains) {
    ASSERT_EQ(ipfw("-q add 2100 set 18 allow proto tcp dst-port 22"), 0);
    EXPECT_EQ(lastScript().rfind("table inet ipfw\ndelete table inet ipfw\n", 0), 0u)
        << "the first command builds the table";
    ASSERT_EQ(ipfw("-q add 3100 set 19 deny proto tcp"), 0);
    ASSERT_EQ(ipfw("-q add 3110 set 19 deny proto udp"), 0);
    EXPECT_EQ(lastScript(),
              "add element inet ipfw_s0 rules_in_k0_p1_s1 { 17 comment \"3110\" : jump "
              "rules_in_k0_v19_deny }\n"
              "add element inet ipfw_s0 rules_out_k0_p1_s1 { 17 comment \"3110\" : jump "
              "rules_out_k0_v19_deny }\n")
        << "a rule that meets no packet of its group's rules joins the group";
    EXPECT_EQ(kernel.scripts.back().rfind("delete element inet ipfw gen { 2 }\n"
                                          "delete element inet ipfw_s0 gen { 2 }\n",
                                          0),
              0u)
        << "every table proves the count before the change";
    EXPECT_NE(kernel.scripts.back().find("add element inet ipfw gen { 3 }\n"
                                         "add element inet ipfw_s0 gen { 3 }\n"),
              std::string::npos);
    EXPECT_EQ(ipfwnft::readAheadScript(kernel.scripts.back()),
              "add table inet ipfw { }\nadd element inet ipfw gen { 3 }\n")
        << "what the enforcer reads ahead with declares again what the change left";
    EXPECT_EQ(ipfwnft::readAheadScript("delete element inet ipfw gen { 3 }\n"), "");
    ASSERT_EQ(ipfw("-q add 3120 set 18 deny proto icmp"), 0);
    EXPECT_EQ(lastScript(),
              "add chain inet ipfw_s0 rules_in_k0_v18_deny\n"
              "add rule inet ipfw_s0 rules_in_k0_v18_deny numgen random mod 1 offset 18 != "
              "@enabled_sets return\n"
              "add rule inet ipfw_s0 rules_in_k0_v18_deny drop\n"
              "add chain inet ipfw_s0 rules_out_k0_v18_deny\n"
              "add rule inet ipfw_s0 rules_out_k0_v18_deny numgen random mod 1 offset 18 != "
              "@enabled_sets return\n"
              "add rule inet ipfw_s0 rules_out_k0_v18_deny drop\n"
              "add element inet ipfw_s0 rules_in_k0_p1_s1 { 1 comment \"3120\" : jump "
              "rules_in_k0_v18_deny }\n"
              "add element inet ipfw_s0 rules_out_k0_p1_s1 { 1 comment \"3120\" : jump "
              "rules_out_k0_v18_deny }\n")
        << "another set's rule joins the group behind its set's verdict chain";
    ASSERT_EQ(ipfw("-q add 3130 set 19 count recv lo"), 0);
    ASSERT_EQ(ipfw("-q add 3140 set 19 count recv lo"), 0);
    EXPECT_EQ(lastScript(),
              "add rule inet ipfw_s0 rules_in_k0_p2 iifname \"lo\" counter comment \"3140\"\n"
              "add rule inet ipfw_s0 rules_out_k0_p2 iifname \"lo\" counter comment \"3140\"\n")
        << "a rule that is no key joins the run of lines before it";
    ASSERT_EQ(ipfw("-q delete 3120"), 0);
    EXPECT_EQ(lastScript(),
              "delete element inet ipfw_s0 rules_in_k0_p1_s1 { 1 }\n"
              "delete element inet ipfw_s0 rules_out_k0_p1_s1 { 1 }\n"
              "flush chain inet ipfw_s0 rules_in_k0_v18_deny\n"
              "delete chain inet ipfw_s0 rules_in_k0_v18_deny\n"
              "flush chain inet ipfw_s0 rules_out_k0_v18_deny\n"
              "delete chain inet ipfw_s0 rules_out_k0_v18_deny\n");
    expectKernelAsRebuilt("delete 3120");
    ASSERT_EQ(ipfw("-q set disable 19"), 0);
    EXPECT_EQ(lastScript(), "delete element inet ipfw_s0 enabled_sets { 19 }\n");
    ASSERT_EQ(ipfw("-q set enable 19"), 0);
    ASSERT_EQ(ipfw("-q delete 3140"), 0);
    const std::string cut = lastScript();
    EXPECT_EQ(std::count(cut.begin(), cut.end(), '\n'), 2) << cut;
    EXPECT_EQ(cut.rfind("delete rule inet ipfw_s0 rules_in_k0_p2 handle ", 0), 0u) << cut;
    EXPECT_NE(cut.find("\ndelete rule inet ipfw_s0 rules_out_k0_p2 handle "), std::string::npos)
        << "the block's last rule goes by its lines' handles, and nothing else";
    expectKernelAsRebuilt("delete 3140");
    // A run that lost a line in its middle is written anew.
    ASSERT_EQ(ipfw("-q add 3140 set 19 count recv lo"), 0);
    ASSERT_EQ(ipfw("-q delete 3130"), 0);
    EXPECT_EQ(lastScript(),
              "flush chain inet ipfw_s0 rules_in_k0_p2\n"
              "add rule inet ipfw_s0 rules_in_k0_p2 iifname \"lo\" counter comment \"3140\"\n"
              "flush chain inet ipfw_s0 rules_out_k0_p2\n"
              "add rule inet ipfw_s0 rules_out_k0_p2 iifname \"lo\" counter comment \"3140\"\n");
    // Without 3100, nothing keeps 3110 out of 2100's group: the block's pieces are made
    // anew, but 2100's element stays where it is.
    ASSERT_EQ(ipfw("-q delete 3100"), 0);
    EXPECT_EQ(lastScript().find("element inet ipfw_s0 rules_in_k0_p0_s17"), std::string::npos)
        << lastScript();
    expectKernelAsRebuilt("delete 3100");
    // A rule past 16,383 goes into a table of its own, hooked after the first.
    ASSERT_EQ(ipfw("-q add 20000 set 19 allow proto tcp"), 0);
    EXPECT_EQ(kernel.tableNames(), (std::vector<std::string>{"ipfw", "ipfw_s0", "ipfw_s1"}));
    expectKernelAsRebuilt("add 20000");
    EXPECT_EQ(kernel.walk("ipfw", "forward"),
              (std::vector<std::string>{"meta mark set meta mark & 0xffcfffff"}));
    EXPECT_EQ(kernel.walk("ipfw_s1", "forward"),
              (std::vector<std::string>{"meta mark & 0x00200000 == 0x00200000 accept",
                                        "meta nfproto ipv4 jump rules_out"}));
    ASSERT_EQ(ipfw("-q delete 20000"), 0);
    EXPECT_EQ(lastScript(), "delete table inet ipfw_s1\n");
    ASSERT_EQ(ipfw("-q flush"), 0);
    EXPECT_EQ(lastScript().rfind("table inet ipfw\ndelete table inet ipfw\n", 0), 0u);
    EXPECT_EQ(kernel.tableNames(), (std::vector<std::string>{"ipfw"}));
    const size_t scripts = kernel.scripts.size();
    ipfw("show");
    ipfw("-q zero");
    ipfw("-q delete 4000");
    EXPECT_EQ(kernel.scripts.size(), scripts) << "what changes no rule leaves the table alone";
}

// Whatever the order of adds, deletes, set switches and kept flows, the table after each
// change is the one a rebuild from the state would give.
TEST_F(EnforcingIpfwTest, RandomChangesLeaveTheTableAsARebuildWould) {
    std::mt19937 random(20261125);
    auto below = [&random](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    const char* bodies[] = {"deny proto tcp dst-port 22",
                            "allow proto udp",
                            "deny log logamount 0 proto icmp",
                            "count recv lo",
                            "allow proto tcp dst-port 80 keep-state",
                            "check-state"};
    uint32_t last = 3000;
    for (int step = 0; step < 400; ++step) {
        const uint32_t pick = below(100);
        const std::string set = std::to_string(18 + below(2));
        std::string command;
        if (pick < 45) {
            last += 1 + below(300);
            command = "-q add " + std::to_string(last) + " set " + set + " " + bodies[below(4)];
        } else if (pick < 60) {
            command = "-q add " + std::to_string(3000 + below(last - 2999)) + " set " + set + " " +
                      bodies[below(4)];
        } else if (pick < 62) {
            command = "-q add " + std::to_string(3000 + below(9000)) + " set " + set + " " +
                      bodies[4 + below(2)];
        } else if (pick < 80) {
            command = "-q delete " + std::to_string(3000 + below(last - 2999));
        } else if (pick < 84) {
            const uint32_t low = 3000 + below(last - 2999);
            const uint32_t span = below(2) == 0 ? below(600) : below(20000);
            command = "-q delete " + std::to_string(low) + "-" + std::to_string(low + span);
        } else if (pick < 96) {
            command = std::string("-q set ") + (below(2) == 0 ? "enable " : "disable ") + set;
        } else if (pick < 98) {
            command = "-q delete set " + set;
        } else {
            command = "-q flush";
            last = 3000;
        }
        const int code = ipfw(command);
        // A delete of numbers without rules says so; the kernel must take every change.
        ASSERT_EQ(console.errors.find("nftables"), std::string::npos)
            << command << ": " << console.errors;
        ASSERT_TRUE(code == 0 || code == ipfwsim::kExitUnavailable) << command;
        expectKernelAsRebuilt(command);
    }
}

// A table that is not the one this state last left, because the ruleset was flushed or a
// command was cut off between state and kernel, is rebuilt by the next command, which
// says so.
TEST_F(EnforcingIpfwTest, ATableThatDriftedIsRebuiltOnceAndSaidSo) {
    const std::string note =
        "ipfw: the nftables tables were not as this rule state last left them; rebuilt them from "
        "the rule state\n";
    ASSERT_EQ(ipfw("-q add 3100 set 19 deny proto tcp"), 0);
    ASSERT_EQ(ipfw("-q add 3200 set 19 deny proto udp"), 0);
    EXPECT_EQ(console.errors, "");
    kernel.flushRuleset();
    ASSERT_EQ(ipfw("-q add 3300 set 19 deny proto icmp"), 0);
    EXPECT_EQ(console.errors, note);
    expectKernelAsRebuilt("a flushed ruleset");
    ASSERT_EQ(ipfw("-q add 3400 set 19 deny proto icmp"), 0);
    EXPECT_EQ(console.errors, "") << "once";

    // Cut off after its state was written and before the kernel took the change: the
    // state still carries the mark of a change under way.
    const std::string pending = "kernel=4294967295";
    store.bytes.replace(ipfwsim::StateFile::kKernelField - 7, pending.size(), pending);
    ASSERT_EQ(ipfw("-q delete 3300"), 0);
    EXPECT_EQ(console.errors, note);
    expectKernelAsRebuilt("a command cut off");
}

// Every table, not only the ones a change touches, must still be the one the state last
// wrote: a change far from the rules that a flushed ruleset lost must not pass as applied.
TEST_F(EnforcingIpfwTest, AChangeInAnotherTableFindsTheFlushedRulesetAndRebuildsIt) {
    FakeNames names;
    ipfwsim::FirewallState state;
    for (uint32_t number = 10000; number < 12000; ++number) {
        ipfwsim::Diagnostics ignored;
        ipfwsim::StoredRule stored;
        uint64_t parsed = 0;
        ASSERT_TRUE(ipfwsim::RuleParser(names, ignored)
                        .parse(words("deny proto tcp dst-port 22"), stored.rule, parsed)
                        .ok());
        stored.rule.number = number;
        stored.rule.set = 19;
        state.insert(stored);
    }
    store.bytes = state.serialize();
    ASSERT_EQ(ipfw("-q set disable 30"), 0) << console.errors;  // builds the tables
    kernel.flushRuleset();
    ASSERT_EQ(ipfw("-q add 60100 set 19 deny proto udp"), 0) << console.errors;
    EXPECT_NE(console.errors.find("rebuilt them from the rule state"), std::string::npos)
        << console.errors;
    const std::vector<std::string> lines = kernel.walkAll("rules_in");
    // Each deny rule's drop, as a line or behind its element.
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) {
                                return line.find(" drop comment") != std::string::npos ||
                                       line.compare(line.size() - 7, 7, " : drop") == 0;
                            }),
              2001);
    expectKernelAsRebuilt("a change in a table of its own after a flushed ruleset");

    // A table that another writer moved on is found the same way, by a change in another.
    const std::string generation = std::to_string(stateGeneration());
    ASSERT_TRUE(kernel
                    .apply("delete element inet ipfw_s0 gen { " + generation +
                           " }\nadd element inet ipfw_s0 gen { 7777 }\n")
                    .ok());
    ASSERT_EQ(ipfw("-q add 60200 set 19 deny proto icmp"), 0) << console.errors;
    EXPECT_NE(console.errors.find("rebuilt them from the rule state"), std::string::npos);
    expectKernelAsRebuilt("a change after another writer moved a table on");
}

TEST_F(EnforcingIpfwTest, KeptFlowsTakeTheirRuleActionAtTheFirstLookup) {
    ASSERT_EQ(ipfw("-q add 3000 set 19 prob 0.5 check-state"), 0);
    ASSERT_EQ(ipfw("-q add 3100 set 19 allow proto tcp dst-port 80 keep-state"), 0);
    ASSERT_EQ(ipfw("-q add 3200 set 19 deny log proto tcp"), 0);
    EXPECT_EQ(
        kernel.walkAll("rules_in"),
        (std::vector<std::string>{
            kGate19 +
                "ct mark 0x1f0c1c00 numgen random mod 2147483647 < 1073741823 meta mark set meta "
                "mark | 0x00100000 accept comment \"3100\"",
            kGate19 +
                "ct mark 0x1f0c1c00 meta mark set meta mark | 0x00100000 accept comment \"3100\"",
            kGate19 + "meta l4proto 6 tcp dport 80 ct mark set 0x1f0c1c00 meta mark set meta "
                      "mark | 0x00100000 accept comment \"3100\"",
            // An exact key: an element whose verdict chain tests the set.
            "meta l4proto 6 comment \"3200\" : numgen random mod 1 offset 19 != @enabled_sets "
            "return",
            "meta l4proto 6 comment \"3200\" : log group 65 prefix \"3200 0 in Deny\" drop comment "
            "\"3200\""}));
}

TEST_F(EnforcingIpfwTest, AChangeTheKernelRefusesIsUndone) {
    ASSERT_EQ(ipfw("-q add 3100 set 19 deny proto tcp"), 0);
    const std::string before = store.bytes;
    kernel.refuse = true;
    EXPECT_EQ(ipfw("-q add 3110 set 19 deny proto udp"), 69);
    EXPECT_EQ(console.errors, "ipfw: nftables: Operation not permitted\n");
    EXPECT_EQ(store.bytes, before);
    // A delete marks its line and a set switch rewrites a header field, both in place;
    // each goes back byte for byte, whatever view of the old state the change was compiled
    // from.
    for (const char* change : {"-q delete 3100", "-q set disable 19"}) {
        EXPECT_EQ(ipfw(change), 69) << change;
        EXPECT_EQ(console.errors, "ipfw: nftables: Operation not permitted\n") << change;
        EXPECT_EQ(store.bytes, before) << change;
    }
    // An undo that cannot be written is said, not passed over.
    store.refuseReplace = true;
    EXPECT_EQ(ipfw("-q add 3120 set 19 deny proto udp"), 69);
    EXPECT_EQ(console.errors,
              "ipfw: nftables: Operation not permitted\n"
              "ipfw: the rule state could not be put back (No space left on device); it holds "
              "the change that the kernel refused\n");
}

// A change whose answer was lost may be in force: the state goes back, and the next
// command rebuilds the tables from it.
TEST_F(EnforcingIpfwTest, AChangeWhoseAnswerWasLostIsRebuiltByTheNextCommand) {
    ASSERT_EQ(ipfw("-q add 3100 set 19 deny proto tcp"), 0);
    kernel.loseAnswers = true;
    EXPECT_EQ(ipfw("-q add 3110 set 19 deny proto udp"), 74);
    EXPECT_EQ(console.errors, "ipfw: nftables: no answer\n");
    kernel.loseAnswers = false;
    EXPECT_EQ(ipfw("list 3110"), 69) << "the state went back";
    console.errors.clear();
    ASSERT_EQ(ipfw("-q add 3120 set 19 deny proto udp"), 0);
    EXPECT_NE(console.errors.find("rebuilt them from the rule state"), std::string::npos)
        << console.errors;
    expectKernelAsRebuilt("add 3120 after a lost answer");
}

}  // namespace
