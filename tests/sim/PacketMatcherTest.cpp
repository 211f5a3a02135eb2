// Packet evaluation: rule order, sets, every kind of condition, dynamic states, the
// kernel's log lines with their budget, and their routing as FreeBSD's syslogd reads
// syslog.conf.

#include <gtest/gtest.h>

#include "SimFakes.h"
#include "ipfwsim/KernelLog.h"
#include "ipfwsim/SyslogRouter.h"

namespace simtest {
namespace {

// The first matching rule in number order decides; rules of disabled sets are passed
// over; skipto jumps forward.
TEST(PacketMatcher, FirstMatchingRuleOfAnEnabledSetDecides) {
    Session s;
    s.add({"300 deny proto tcp", "200 allow proto tcp dst-port 22", "100 count proto tcp"});
    EXPECT_EQ(s.run("packet tcp 10.0.0.1:1000 10.0.0.2:22"), "200 Accept\n");
    EXPECT_EQ(s.run("packet tcp 10.0.0.1:1000 10.0.0.2:23"), "300 Deny\n");
    EXPECT_EQ(s.run("packet udp 10.0.0.1:1000 10.0.0.2:22"), "65535 Accept\n");
    EXPECT_EQ(s.run("show 100"), "00100 2 80 count ip from any to any proto tcp\n");

    Session sets;
    sets.add({"100 set 3 deny proto tcp", "200 set 4 reset proto tcp",
              "300 set 5 skipto 500 proto tcp", "400 set 5 deny proto tcp",
              "500 set 5 unreach 3 proto tcp"});
    sets.run("-q set disable 3");
    EXPECT_EQ(sets.run("packet tcp 10.0.0.1:1 10.0.0.2:2"), "200 Reset\n");
    sets.run("-q set enable 3 disable 4");
    EXPECT_EQ(sets.run("packet tcp 10.0.0.1:1 10.0.0.2:2"), "100 Deny\n");
    sets.run("-q set disable 3");
    EXPECT_EQ(sets.run("packet tcp 10.0.0.1:1 10.0.0.2:2"), "500 Unreach 3\n");
    EXPECT_EQ(sets.run("packet udp 10.0.0.1:1 10.0.0.2:2"), "65535 Accept\n");
}

struct Case {
    const char* body;
    const char* matching;
    const char* other;
};

class Condition : public ::testing::TestWithParam<Case> {};

TEST_P(Condition, MatchesOnlyWhatItDescribes) {
    Session s;
    s.run(std::string("-q add 100 deny ") + GetParam().body);
    ASSERT_EQ(s.exitCode, 0) << s.console.errors;
    EXPECT_EQ(s.run(std::string("packet ") + GetParam().matching), "100 Deny\n");
    EXPECT_EQ(s.run(std::string("packet ") + GetParam().other), "65535 Accept\n");
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Condition,
    ::testing::Values(
        Case{"proto udp", "udp 1.1.1.1:1 2.2.2.2:2", "tcp 1.1.1.1:1 2.2.2.2:2"},
        Case{"src-ip 192.168.0.0/16,10.1.1.1", "tcp 10.1.1.1:1 2.2.2.2:2",
             "tcp 10.1.1.2:1 2.2.2.2:2"},
        Case{"not dst-ip 192.168.0.0/16", "tcp 1.1.1.1:1 8.8.8.8:2", "tcp 1.1.1.1:1 192.168.0.1:2"},
        Case{"dst-ip me", "tcp 1.1.1.1:1 10.0.0.2:2", "tcp 1.1.1.1:1 10.0.0.3:2"},
        Case{"dst-port 80,8000-8080", "tcp 1.1.1.1:1 2.2.2.2:8080", "tcp 1.1.1.1:1 2.2.2.2:8081"},
        Case{"src-port 53", "udp 1.1.1.1:53 2.2.2.2:9", "icmp 1.1.1.1 2.2.2.2"},
        Case{"icmptypes 0,8", "icmp 1.1.1.1 2.2.2.2 icmptype 8",
             "icmp 1.1.1.1 2.2.2.2 icmptype 3.1"},
        Case{"tcpflags syn,!ack", "tcp 1.1.1.1:1 2.2.2.2:2 tcpflags syn",
             "tcp 1.1.1.1:1 2.2.2.2:2 tcpflags syn,ack"},
        Case{"established", "tcp 1.1.1.1:1 2.2.2.2:2 tcpflags ack",
             "tcp 1.1.1.1:1 2.2.2.2:2 tcpflags syn"},
        Case{"tcpoptions mss,!sack", "tcp 1.1.1.1:1 2.2.2.2:2 tcpoptions mss,ts",
             "tcp 1.1.1.1:1 2.2.2.2:2 tcpoptions mss,sack"},
        Case{"ipoptions rr", "udp 1.1.1.1:1 2.2.2.2:2 ipoptions rr,lsrr",
             "udp 1.1.1.1:1 2.2.2.2:2"},
        Case{"iptos lowdelay,!mincost", "udp 1.1.1.1:1 2.2.2.2:2 iptos lowdelay",
             "udp 1.1.1.1:1 2.2.2.2:2 iptos lowdelay,mincost"},
        Case{"in via en0", "tcp 1.1.1.1:1 2.2.2.2:2 in via en0",
             "tcp 1.1.1.1:1 2.2.2.2:2 out via en0"},
        Case{"via en*", "tcp 1.1.1.1:1 2.2.2.2:2 via en3", "tcp 1.1.1.1:1 2.2.2.2:2 via lo0"},
        Case{"via 10.9.9.9", "tcp 1.1.1.1:1 2.2.2.2:2 via en0 ifaddr 10.9.9.9",
             "tcp 1.1.1.1:1 2.2.2.2:2 via en0 ifaddr 10.9.9.8"},
        // MAC conditions only ever match packets seen at layer 2.
        Case{"mac any 00:1A:2b:3c:4d:5e",
             "udp 1.1.1.1:1 2.2.2.2:2 mac 11:11:11:11:11:11 00:1a:2b:3c:4d:5e",
             "udp 1.1.1.1:1 2.2.2.2:2"}));

TEST(PacketMatcher, KeepStateLetsTheAnswerBackUntilItExpiresOrItsRuleGoes) {
    Session s;
    s.add({"100 check-state", "200 allow proto tcp src-ip me keep-state", "300 deny proto tcp"});
    EXPECT_EQ(s.run("packet tcp 1.1.1.1:80 10.0.0.2:5000"), "300 Deny\n");
    EXPECT_EQ(s.run("packet tcp 10.0.0.2:5000 1.1.1.1:80 tcpflags syn"), "200 Accept\n");
    EXPECT_EQ(s.run("packet tcp 1.1.1.1:80 10.0.0.2:5000 tcpflags syn,ack"),
              "200 Accept (state)\n");
    EXPECT_EQ(s.run("packet tcp 1.1.1.1:81 10.0.0.2:5000"), "300 Deny\n");
    EXPECT_EQ(s.run("-d show 200"),
              "00200 2 80 allow ip from any to any proto tcp src-ip me keep-state\n"
              "## Dynamic rules:\n"
              "00200 1 40 (300s) STATE tcp 10.0.0.2 5000 <-> 1.1.1.1 80\n");

    Session udp;
    udp.add(
        {"100 check-state", "150 deny proto udp src-port 53", "200 allow proto udp keep-state"});
    udp.run("packet udp 10.0.0.2:4000 9.9.9.9:53");
    EXPECT_EQ(udp.run("packet udp 9.9.9.9:53 10.0.0.2:4000"), "200 Accept (state)\n");
    EXPECT_EQ(udp.run("packet udp 9.9.9.9:53 10.0.0.2:4000"), "200 Accept (state)\n");
    udp.env.clock += 11;  // UDP entries live ten seconds after their last packet
    EXPECT_EQ(udp.run("packet udp 9.9.9.9:53 10.0.0.2:4000"), "150 Deny\n");
    udp.run("packet udp 10.0.0.2:4000 9.9.9.9:53");
    EXPECT_EQ(udp.run("packet udp 9.9.9.9:53 10.0.0.2:4000"), "200 Accept (state)\n");
    udp.run("-q delete 200");
    EXPECT_EQ(udp.run("packet udp 9.9.9.9:53 10.0.0.2:4000"), "150 Deny\n");
}

// The kernel's line goes to the file syslog routes it to. The budget counts logged
// packets only: with verbose off nothing is logged and no budget is used.
TEST(PacketLog, WritesTheKernelLineWithinItsBudgetWhileVerbose) {
    Session s;
    s.add({"3100 deny log logamount 0 proto tcp", "3200 unreach 1 log proto udp",
           "3300 allow log proto icmp", "3400 reset log proto 47"});
    for (const char* packet :
         {"tcp 10.0.0.1:1234 10.0.0.2:22 in via en0", "udp 10.0.0.1:5 10.0.0.2:6 out via en1",
          "icmp 10.0.0.1 10.0.0.2 icmptype 8", "47 10.0.0.1 10.0.0.2 via gif0"}) {
        s.run(std::string("packet ") + packet);
    }
    EXPECT_EQ(
        s.env.files["/var/log/ipfw.log"],
        "Nov 14 22:13:20 myhost kernel: ipfw: 3100 Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via en0\n"
        "Nov 14 22:13:20 myhost kernel: ipfw: 3200 Reject UDP 10.0.0.1:5 10.0.0.2:6 out via en1\n"
        "Nov 14 22:13:20 myhost kernel: ipfw: 3300 Accept ICMP:8.0 10.0.0.1 10.0.0.2 [no if info]\n"
        "Nov 14 22:13:20 myhost kernel: ipfw: 3400 Reset P:47 10.0.0.1 10.0.0.2 in via gif0\n");

    Session budget;
    budget.run("-q add 3100 deny log logamount 2 proto tcp");
    const std::string packet = "packet tcp 10.0.0.1:1 10.0.0.2:2 via en0";
    const std::string& log = budget.env.files["/var/log/ipfw.log"];
    budget.run("disable verbose");
    budget.run(packet);
    EXPECT_EQ(log, "");
    budget.run("enable verbose");
    for (int i = 0; i < 4; ++i) {
        budget.run(packet);
    }
    const std::string line =
        "Nov 14 22:13:20 myhost kernel: ipfw: 3100 Deny TCP 10.0.0.1:1 10.0.0.2:2 in via en0\n";
    EXPECT_EQ(log,
              line + line + "Nov 14 22:13:20 myhost kernel: ipfw: limit 2 reached on entry 3100\n");
    EXPECT_EQ(budget.run("show 3100"),
              "03100 5 200 deny log logamount 2 ip from any to any proto tcp\n");
}

using Files = std::vector<std::string>;

// Each configuration and the files an ipfw line of `priority` goes to.
TEST(SyslogRouter, RoutesAsFreeBSDsSyslogdReadsItsConfiguration) {
    struct Row {
        const char* conf;
        Files files;
        int priority = kLogPriorityInfo;
    };
    const Row rows[] = {
        // The ipfw block names the file, however it is spelt.
        {"!ipfw\n*.*\t\t/var/log/ipfw.log\n", {"/var/log/ipfw.log"}},
        {"#!ipfw\n*.*\t-/var/log/ipfw.log\n", {"/var/log/ipfw.log"}},
        // Other programs' blocks do not apply.
        {"!ppp\n*.*\t/var/log/ppp.log\n!ipfw\n*.*\t/var/log/ipfw.log\n!*\n*.*\t/var/log/all.log\n",
         {"/var/log/ipfw.log", "/var/log/all.log"}},
        {"!ipfwx\n*.*\t/var/log/x.log\n", {}},
        {"!-ipfw\n*.*\t/var/log/others.log\n", {}},
        // Selectors filter by facility and priority.
        {"security.*\t/var/log/security\n", {"/var/log/security"}},
        {"*.notice\t/var/log/messages\n", {"/var/log/messages"}, kLogPriorityNotice},
        {"mail.*\t/m\nbogus.*\t/b\n*.nonsense\t/c\n", {}},
        // Only file actions count, and each file once.
        {"*.*\t@loghost\n*.*\t|/usr/bin/logger\n*.*\troot,operator\n*.*\t*\n*.*\t/a\n"
         "security.*\t/a\n",
         {"/a"}},
        // Comments, blank lines and host blocks.
        {"# a comment\n\n   \n+otherhost\n*.*\t/remote\n+*\n*.*\t/local\n", {"/local"}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(
            routeSyslogMessage(row.conf, "ipfw", kLogFacilitySecurity, row.priority, "myhost"),
            row.files)
            << row.conf;
    }
}

TEST(SyslogLine, FormatsTheSyslogdPrefixInLocalTime) {
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(syslogFileLine(1700000000, "myhost", "ipfw: 1 Deny P:2 1.1.1.1 2.2.2.2 [no if info]"),
              "Nov 14 22:13:20 myhost kernel: ipfw: 1 Deny P:2 1.1.1.1 2.2.2.2 [no if info]\n");
    EXPECT_EQ(syslogFileLine(1699000000, "h", "x"), "Nov  3 08:26:40 h kernel: x\n");
}

}  // namespace
}  // namespace simtest
