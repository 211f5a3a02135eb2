// The command table of the real ipfw, run through the simulator's command layer with
// the rule state in memory.

#include <gtest/gtest.h>

#include "SimFakes.h"

namespace simtest {
namespace {

// show and list: rules of disabled sets hidden but for -S, ranges, and each missing number
// reported.
TEST(ShowCommand, ListsEnabledSetsPadsCountersAndReportsMissingNumbers) {
    Session s;
    s.run("-q add 3100 set 19 allow proto tcp");
    EXPECT_EQ(s.run("show 3100"), "03100 0 0 allow ip from any to any proto tcp\n");
    EXPECT_EQ(s.run("list 3100"), "03100 allow ip from any to any proto tcp\n");
    EXPECT_EQ(s.run("-S list 3100"), "03100 set 19 allow ip from any to any proto tcp\n");
    s.run("-q set disable 19");
    EXPECT_EQ(s.run("show 3100"), "");
    EXPECT_EQ(s.exitCode, kExitOk);
    EXPECT_EQ(s.console.errors, "");
    EXPECT_EQ(s.run("-S show 3100"),
              "# DISABLED 03100 0 0 set 19 allow ip from any to any proto tcp\n");
    EXPECT_EQ(s.run("show"), "65535 0 0 allow ip from any to any\n");

    Session counted;
    counted.add({"100 count proto udp", "200 deny proto tcp", "300 allow proto udp"});
    EXPECT_EQ(counted.run("list 50-200 250 65535"),
              "00100 count ip from any to any proto udp\n00200 deny ip from any to any proto tcp\n"
              "65535 allow ip from any to any\n");
    EXPECT_EQ(counted.console.errors, "ipfw: rule 250 does not exist\n");
    EXPECT_EQ(counted.exitCode, kExitUnavailable);
}

// A delete by number marks its lines in place, so it costs the same however many rules
// there are; the marked lines count nowhere and go with the next rewrite. Rules added out
// of order overflow until the overflow is full, then the whole file is merged.
TEST(StateRewrites, DeleteMarksLinesInPlaceAndAFullOverflowIsMerged) {
    Session s;
    s.add({"100 allow proto tcp", "200 allow proto tcp", "300 allow proto tcp"});
    const size_t size = s.store.bytes.size();
    EXPECT_EQ(s.run("-q delete 300 150-250"), "");
    EXPECT_EQ(s.console.errors, "");
    EXPECT_EQ(s.store.replaces, 0);
    EXPECT_EQ(s.store.bytes.size(), size);
    EXPECT_EQ(s.run("list"),
              "00100 allow ip from any to any proto tcp\n65535 allow ip from any to any\n");
    EXPECT_EQ(s.run("-q delete 200"), "");
    EXPECT_EQ(s.console.errors, "ipfw: rule 200 not found\n");
    EXPECT_EQ(s.exitCode, kExitUnavailable);
    // A rule numbered below a marked line goes after it out of order, and is found.
    s.run("-q add 250 allow proto udp");
    EXPECT_EQ(s.run("list 250"), "00250 allow ip from any to any proto udp\n");
    // A listing above an overflowed rule leaves it out.
    s.run("-q add 400 allow proto tcp");
    EXPECT_EQ(s.run("list 400"), "00400 allow ip from any to any proto tcp\n");
    EXPECT_EQ(s.run("-q delete 250 400"), "");
    EXPECT_EQ(s.run("list"),
              "00100 allow ip from any to any proto tcp\n65535 allow ip from any to any\n");
    // Numbering follows the last rule that is left.
    EXPECT_EQ(s.run("add allow proto udp"), "00200 allow ip from any to any proto udp\n");
    s.run("-q zero");
    EXPECT_EQ(s.store.replaces, 1);
    EXPECT_EQ(s.store.bytes.find(" -"), std::string::npos);
    EXPECT_EQ(s.run("list"),
              "00100 allow ip from any to any proto tcp\n00200 allow ip from any to any proto udp\n"
              "65535 allow ip from any to any\n");

    Session full;
    full.run("-q add 60000 allow proto tcp");
    for (size_t i = 0; i <= StateFile::kOverflowLimit; ++i) {
        full.run("-q add " + std::to_string(1000 + i) + " allow proto udp");
    }
    EXPECT_EQ(full.store.replaces, 1);
    StateFile merged(full.store.bytes);
    ASSERT_TRUE(merged.open().ok());
    EXPECT_LT(merged.overflowLines(), 2u);
    EXPECT_EQ(full.run("list 1000-1999").size(),
              (StateFile::kOverflowLimit + 1) *
                  std::string("01000 allow ip from any to any proto udp\n").size());
}

// Sets are enabled, disabled and shown (the default rule's set stays). A flush keeps the
// default rule and leaves disabled sets disabled.
TEST(SetAndFlushCommands, SwitchSetsAndFlushKeepsTheDefaultRule) {
    Session s;
    const std::string allEnabled =
        "enable 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 27 28 29 "
        "30\n";
    EXPECT_EQ(s.run("set show"), allEnabled);
    EXPECT_EQ(s.run("-q set disable 19"), "");
    EXPECT_EQ(s.exitCode, kExitOk);
    s.run("-q set disable 31");  // the default rule's set cannot be disabled
    EXPECT_EQ(s.run("set show"),
              "disable 19 enable 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 20 21 22 23 24 "
              "25 26 27 28 29 30\n");
    s.run("-q set enable 19");
    EXPECT_EQ(s.run("set show"), allEnabled);
    EXPECT_EQ(s.store.replaces, 0) << "a switch is written in place";

    Session flush;
    flush.run("-q add 3100 set 19 allow proto tcp");
    flush.run("-q set disable 19");
    EXPECT_EQ(flush.run("flush"), "Flushed all rules.\n");  // no terminal: no question
    EXPECT_EQ(flush.run("-S list"), "65535 set 31 allow ip from any to any\n");
    EXPECT_EQ(flush.run("set show").substr(0, 10), "disable 19");
    flush.run("-q add 3100 allow proto tcp");
    EXPECT_EQ(flush.run("-q flush"), "");
    EXPECT_EQ(flush.run("list"), "65535 allow ip from any to any\n");
}

// Each refusal on a fresh state: its whole message on standard error, nothing on
// standard output, and the exit code of the real command.
TEST(Refusals, GiveTheMessageAndExitCodeOfTheRealCommand) {
    const std::string usage =
        "usage: ipfw [options]\ndo \"ipfw -h\" or \"ipfw help\" for details\n";
    const std::string xadd = "ipfw: getsockopt(IP_FW_XADD): Invalid argument\n";
    struct Row {
        const char* command;
        std::string errors;
        int exitCode;
    };
    const Row rows[] = {
        {"-q delete 65535", "ipfw: rule 65535 not found\n", kExitUnavailable},
        {"-q add 65535 allow proto tcp", xadd, kExitUnavailable},
        {"-q add 65536 allow proto tcp", xadd, kExitUnavailable},
        {"list 1x", "ipfw: invalid rule number: 1x\n", kExitUsage},
        {"set disable 32", "ipfw: invalid set number 32\n\n", kExitDataErr},
        {"", usage, kExitUsage},
        {"-x show", "ipfw: illegal option -- x\n" + usage, kExitUsage},
        {"packet tcp", "ipfw: packet: needs a protocol, a source and a destination\n", kExitUsage},
        {"packet udp 1.1.1.1 2.2.2.2 wobble 3", "ipfw: packet: unknown keyword ``wobble''\n",
         kExitUsage},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.command);
        Session s;
        EXPECT_EQ(s.run(row.command), "");
        EXPECT_EQ(s.console.errors, row.errors);
        EXPECT_EQ(s.exitCode, row.exitCode);
    }
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
