// The command table of the real ipfw, run through the simulator's command layer with
// the rule state in memory.

#include <gtest/gtest.h>

#include "SimFakes.h"
#include "ipfwsim/SetCommand.h"

namespace simtest {
namespace {

TEST(ShowCommand, ProbesAFreeNumberAsThePlugInDoes) {
    Session s;
    EXPECT_EQ(s.run("show 3100"), "");
    EXPECT_EQ(s.console.errors, "ipfw: rule 3100 does not exist\n");
    EXPECT_EQ(s.exitCode, kExitUnavailable);
}

TEST(ShowCommand, ListsAnEnabledRuleWithCounters) {
    Session s;
    s.run("-q add 3100 set 19 allow proto tcp");
    EXPECT_EQ(s.run("show 3100"), "03100 0 0 allow ip from any to any proto tcp\n");
    EXPECT_EQ(s.exitCode, kExitOk);
    EXPECT_EQ(s.run("list 3100"), "03100 allow ip from any to any proto tcp\n");
    EXPECT_EQ(s.run("-S list 3100"), "03100 set 19 allow ip from any to any proto tcp\n");
}

TEST(ShowCommand, HidesRulesOfDisabledSetsButTheyStillExist) {
    Session s;
    s.run("-q add 3100 set 19 allow proto tcp");
    s.run("-q set disable 19");
    EXPECT_EQ(s.run("show 3100"), "");
    EXPECT_EQ(s.exitCode, kExitOk);
    EXPECT_EQ(s.console.errors, "");
    EXPECT_EQ(s.run("-S show 3100"),
              "# DISABLED 03100 0 0 set 19 allow ip from any to any proto tcp\n");
    EXPECT_EQ(s.run("show"), "65535 0 0 allow ip from any to any\n");
}

TEST(ShowCommand, PadsCounterColumnsToTheWidestRule) {
    Session s;
    s.run("-q add 100 count proto udp");
    s.run("-q add 200 deny proto tcp");
    for (int i = 0; i < 12; ++i) {
        s.run("packet tcp 1.1.1.1:1 2.2.2.2:2");
    }
    EXPECT_EQ(s.run("show 100"), "00100  0   0 count ip from any to any proto udp\n");
    EXPECT_EQ(s.run("show 200"), "00200 12 480 deny ip from any to any proto tcp\n");
}

TEST(ShowCommand, ListsRangesAndReportsEachMissingNumber) {
    Session s;
    s.run("-q add 100 allow proto tcp");
    s.run("-q add 300 allow proto udp");
    EXPECT_EQ(s.run("list 50-200 250 65535"),
              "00100 allow ip from any to any proto tcp\n65535 allow ip from any to any\n");
    EXPECT_EQ(s.console.errors, "ipfw: rule 250 does not exist\n");
    EXPECT_EQ(s.exitCode, kExitUnavailable);
    s.run("list 1x");
    EXPECT_EQ(s.console.errors, "ipfw: invalid rule number: 1x\n");
    EXPECT_EQ(s.exitCode, kExitUsage);
}

TEST(AddCommand, QuietAddIsSilentAndLoudAddEchoesTheListing) {
    Session s;
    EXPECT_EQ(s.run("-q add 3100 set 19 allow proto tcp src-ip me"), "");
    EXPECT_EQ(s.exitCode, kExitOk);
    EXPECT_EQ(s.run("add 3200 deny log logamount 0 proto tcp"),
              "03200 deny log ip from any to any proto tcp\n");
}

TEST(AddCommand, NumbersAutomaticallyAfterTheLastRule) {
    Session s;
    EXPECT_EQ(s.run("add allow proto tcp"), "00100 allow ip from any to any proto tcp\n");
    s.run("-q add 3100 allow proto tcp");
    EXPECT_EQ(s.run("add 0 allow proto udp"), "03200 allow ip from any to any proto udp\n");
    s.run("-q add 65500 allow proto udp");
    // Near the top the number no longer grows, as in the kernel.
    EXPECT_EQ(s.run("add allow proto icmp"), "65500 allow ip from any to any proto icmp\n");
}

TEST(AddCommand, SameNumberGoesAfterTheExistingRule) {
    Session s;
    s.run("-q add 3100 allow proto tcp");
    s.run("-q add 3100 deny proto udp");
    s.run("-q add 1000 deny proto icmp");
    EXPECT_EQ(s.run("list"),
              "01000 deny ip from any to any proto icmp\n"
              "03100 allow ip from any to any proto tcp\n"
              "03100 deny ip from any to any proto udp\n"
              "65535 allow ip from any to any\n");
}

TEST(AddCommand, RefusesNumbersTheKernelRefuses) {
    Session s;
    for (const char* number : {"65535", "65536"}) {
        s.run(std::string("-q add ") + number + " allow proto tcp");
        EXPECT_EQ(s.console.errors, "ipfw: getsockopt(IP_FW_XADD): Invalid argument\n");
        EXPECT_EQ(s.exitCode, kExitUnavailable);
    }
    s.run("-q add 65534 allow proto tcp");
    EXPECT_EQ(s.exitCode, kExitOk);
    s.run("-q add 3100 set 32 allow proto tcp");
    EXPECT_EQ(s.console.errors, "ipfw: illegal set 32\n");
    EXPECT_EQ(s.exitCode, kExitDataErr);
}

TEST(AddCommand, InvalidActionPrintsAnEmptyLineAfterTheMessage) {
    Session s;
    s.run("-q add 3140 set 19 bogus-keyword");
    EXPECT_EQ(s.console.errors, "ipfw: invalid action bogus-keyword\n\n");
    EXPECT_EQ(s.exitCode, kExitDataErr);
}

TEST(AddCommand, AppendsInOrderAndOverflowsOutOfOrder) {
    Session s;
    s.run("-q add 100 allow proto tcp");
    s.run("-q add 200 allow proto tcp");
    EXPECT_EQ(s.store.replaces, 0);
    StateFile inOrder(s.store.bytes);
    ASSERT_TRUE(inOrder.open().ok());
    EXPECT_EQ(inOrder.overflowLines(), 0u);
    s.run("-q add 150 allow proto tcp");
    StateFile outOfOrder(s.store.bytes);
    ASSERT_TRUE(outOfOrder.open().ok());
    EXPECT_EQ(outOfOrder.overflowLines(), 1u);
    EXPECT_EQ(s.run("list 150"), "00150 allow ip from any to any proto tcp\n");
}

TEST(AddCommand, MergesTheOverflowWhenItIsFull) {
    Session s;
    s.run("-q add 60000 allow proto tcp");
    for (size_t i = 0; i <= StateFile::kOverflowLimit; ++i) {
        s.run("-q add " + std::to_string(1000 + i) + " allow proto udp");
    }
    EXPECT_EQ(s.store.replaces, 1);
    StateFile file(s.store.bytes);
    ASSERT_TRUE(file.open().ok());
    EXPECT_LT(file.overflowLines(), 2u);
    EXPECT_EQ(s.run("list 1000-1999").size(),
              (StateFile::kOverflowLimit + 1) *
                  std::string("01000 allow ip from any to any proto udp\n").size());
}

TEST(DeleteCommand, RemovesEveryRuleOfTheNumberSilently) {
    Session s;
    s.run("-q add 3100 allow proto tcp");
    s.run("-q add 3100 allow proto udp");
    EXPECT_EQ(s.run("-q delete 3100"), "");
    EXPECT_EQ(s.exitCode, kExitOk);
    EXPECT_EQ(s.console.errors, "");
    s.run("show 3100");
    EXPECT_EQ(s.exitCode, kExitUnavailable);
}

TEST(DeleteCommand, MissingRuleIsReportedEvenWhenQuiet) {
    Session s;
    s.run("-q delete 3100");
    EXPECT_EQ(s.console.errors, "ipfw: rule 3100 not found\n");
    EXPECT_EQ(s.exitCode, kExitUnavailable);
    s.run("-q delete 65535");
    EXPECT_EQ(s.console.errors, "ipfw: rule 65535 not found\n");
}

TEST(DeleteCommand, DeletesASetAndReportsAnEmptyOne) {
    Session s;
    s.run("-q add 2100 set 18 allow proto tcp");
    s.run("-q add 3100 set 19 allow proto tcp");
    s.run("-q add 3110 set 19 allow proto udp");
    s.run("-q delete set 19");
    EXPECT_EQ(s.exitCode, kExitOk);
    EXPECT_EQ(s.run("list"),
              "02100 allow ip from any to any proto tcp\n65535 allow ip from any to any\n");
    s.run("-q delete set 19");
    EXPECT_EQ(s.console.errors, "ipfw: rule 0 not found\n");
    EXPECT_EQ(s.exitCode, kExitUnavailable);
}

TEST(SetCommand, EnablesDisablesAndShowsSets) {
    Session s;
    EXPECT_EQ(s.run("set show"),
              "enable 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 "
              "27 28 29 30\n");
    EXPECT_EQ(s.run("-q set disable 19"), "");
    EXPECT_EQ(s.exitCode, kExitOk);
    s.run("-q set disable 31");  // the default rule's set cannot be disabled
    EXPECT_EQ(s.run("set show"),
              "disable 19 enable 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 20 21 22 23 24 "
              "25 26 27 28 29 30\n");
    s.run("-q set enable 19");
    EXPECT_EQ(setShowLine(0), s.run("set show"));
    s.run("set disable 1 enable 1");
    EXPECT_EQ(s.console.errors, "ipfw: cannot enable and disable the same set\n\n");
    s.run("set disable 32");
    EXPECT_EQ(s.console.errors, "ipfw: invalid set number 32\n\n");
    EXPECT_EQ(s.exitCode, kExitDataErr);
}

TEST(FlushCommand, KeepsTheDefaultRuleAndTheDisabledSets) {
    Session s;
    s.run("-q add 3100 set 19 allow proto tcp");
    s.run("-q set disable 19");
    EXPECT_EQ(s.run("-q flush"), "");
    EXPECT_EQ(s.run("flush"), "Flushed all rules.\n");
    EXPECT_EQ(s.run("list"), "65535 allow ip from any to any\n");
    EXPECT_EQ(s.run("set show").substr(0, 10), "disable 19");
}

TEST(FlushCommand, AsksOnlyAPersonAtATerminal) {
    Session s;
    s.run("-q add 3100 allow proto tcp");
    s.env.terminal = true;
    s.console.input = {"maybe", "n"};
    EXPECT_EQ(s.run("flush"), "Are you sure? [yn] \n");
    EXPECT_EQ(s.run("list 3100"), "03100 allow ip from any to any proto tcp\n");
    s.console.input = {"y"};
    EXPECT_EQ(s.run("flush"), "Are you sure? [yn] \nFlushed all rules.\n");
    s.run("-q add 3100 allow proto tcp");
    s.console.input = {};
    EXPECT_EQ(s.run("flush"), "Are you sure? [yn] ");  // end of input: nothing flushed
    EXPECT_EQ(s.run("-f flush"), "Flushed all rules.\n");
}

TEST(CounterCommands, ZeroAndResetlogReportPerEntry) {
    Session s;
    s.run("-q add 100 deny log logamount 1 proto tcp");
    s.run("packet tcp 1.1.1.1:1 2.2.2.2:2");
    s.run("packet tcp 1.1.1.1:1 2.2.2.2:2");
    const std::string logged =
        "Nov 14 22:13:20 myhost kernel: ipfw: 100 Deny TCP 1.1.1.1:1 2.2.2.2:2 [no if info]\n";
    const std::string limit = "Nov 14 22:13:20 myhost kernel: ipfw: limit 1 reached on entry 100\n";
    EXPECT_EQ(s.env.files["/var/log/ipfw.log"], logged + limit);
    EXPECT_EQ(s.run("resetlog 100"), "Entry 100 logging count reset.\n");
    EXPECT_EQ(s.run("show 100"), "00100 2 80 deny log logamount 1 ip from any to any proto tcp\n");
    s.run("packet tcp 1.1.1.1:1 2.2.2.2:2");
    EXPECT_EQ(s.env.files["/var/log/ipfw.log"], logged + limit + logged + limit);
    EXPECT_EQ(s.run("zero"), "Accounting cleared.\n");
    EXPECT_EQ(s.run("show 100"), "00100 0 0 deny log logamount 1 ip from any to any proto tcp\n");
    s.run("zero 200");
    EXPECT_EQ(s.console.errors, "ipfw: rule 200: setsockopt(IP_FW_ZERO): Invalid argument\n");
    EXPECT_EQ(s.exitCode, kExitUnavailable);
}

TEST(CommandLine, UsageErrorsAndCommaJoining) {
    Session s;
    s.run("");
    EXPECT_EQ(s.console.errors,
              "usage: ipfw [options]\ndo \"ipfw -h\" or \"ipfw help\" for details\n");
    EXPECT_EQ(s.exitCode, kExitUsage);
    s.run("frobnicate");
    EXPECT_EQ(s.console.errors, "ipfw: bad command `frobnicate'\n");
    s.run("-x show");
    EXPECT_EQ(s.console.errors.substr(0, 30), "ipfw: illegal option -- x\nusag");
    EXPECT_EQ(s.run("add 100 allow proto tcp dst-port 80, 443"),
              "00100 allow ip from any to any proto tcp dst-port 80,443\n");
    EXPECT_NE(s.run("help").find("ipfw packet PROTO"), std::string::npos);
}

TEST(CommandLine, OneArgumentHoldsTheWholeCommand) {
    Session s;
    std::vector<std::string> single{"add 100 allow proto tcp dst-port 80,  443 # a comment"};
    Simulator(s.env, s.store, s.console).run(single);
    EXPECT_EQ(s.console.output, "00100 allow ip from any to any proto tcp dst-port 80,443\n");
}

TEST(StateChanges, ListingsShareTheLockOtherCommandsDoNot) {
    EXPECT_FALSE(Simulator::changesState({"show", "3100"}));
    EXPECT_FALSE(Simulator::changesState({"-S", "list"}));
    EXPECT_FALSE(Simulator::changesState({"set", "show"}));
    EXPECT_TRUE(Simulator::changesState({"-q", "add", "100", "allow", "proto", "tcp"}));
    EXPECT_TRUE(Simulator::changesState({"set", "disable", "3"}));
    EXPECT_TRUE(Simulator::changesState({"packet", "tcp", "1.1.1.1", "2.2.2.2"}));
}

TEST(CorruptState, EveryCommandReportsItAndLeavesItAlone) {
    Session s;
    s.store.bytes = "not a state file\n";
    for (const char* command : {"show 100", "show", "-q add 100 allow proto tcp", "-q delete 100",
                                "-q flush", "set show", "packet tcp 1.1.1.1 2.2.2.2"}) {
        s.run(command);
        EXPECT_EQ(s.exitCode, kExitDataErr) << command;
        EXPECT_EQ(s.console.errors, "ipfw: state file is corrupt: bad first line\n") << command;
    }
    EXPECT_EQ(s.store.bytes, "not a state file\n");
}

}  // namespace
}  // namespace simtest
