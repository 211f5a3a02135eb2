// The built binary, build/sim/ipfw (also run as build/sim/sysctl and build/sim/killall),
// reached through /bin/sh the way the plug-in runs it: exact command lines,
// redirections, shell escapes, real files and locks.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <set>
#include <thread>

#include "CommandOutput.h"
#include "TempDir.h"
#include "TestUtil.h"
#include "ipfwsim/FirewallState.h"

namespace {

using qvtest::readFile;
using qvtest::writeFile;

struct ShellResult {
    std::string out;
    std::string err;
    int exitCode = -1;
};

// A command line and what it must leave on standard output and error and as exit code.
struct Step {
    std::string command;
    ShellResult expected;
};

class IpfwBinary : public ::testing::Test {
protected:
    void SetUp() override { writeFile(dir.file("hosts"), "127.0.0.1 localhost\n"); }

    // Runs `script` with /bin/sh, the simulator first in PATH, every seam of its own set
    // (the state and files in this test's directory), and no terminal on standard input.
    ShellResult run(const std::string& script) {
        static std::atomic<int> runs{0};
        const std::string tag = dir.file("run" + std::to_string(runs++));
        const std::string at = dir.path();
        ShellResult result;
        result.out = qvtest::commandOutput(
            "export PATH=" QV_SIM_DIR ":/usr/bin:/bin TZ=UTC IPFW_SIM_STATE=" + at +
            "/state/rules IPFW_SIM_SYSLOG_CONF=" + at + "/syslog.conf IPFW_SIM_HOSTS=" + at +
            "/hosts IPFW_SIM_NOW=1700000000 IPFW_SIM_HOSTNAME=myhost IPFW_SIM_ME=10.0.0.2\n"
            "unset IPFW_SIM_SEED\n{ " +
            script + "\n} </dev/null 2>" + tag + ".err; echo $? >" + tag + ".rc");
        result.err = readFile(tag + ".err");
        const std::string rc = readFile(tag + ".rc");
        result.exitCode = rc.empty() ? -1 : std::atoi(rc.c_str());
        return result;
    }

    // Runs the steps in order, each against the state the earlier ones left.
    void runSteps(const std::vector<Step>& steps) {
        for (const Step& step : steps) {
            SCOPED_TRACE(step.command);
            ShellResult result = run(step.command);
            EXPECT_EQ(result.out, step.expected.out);
            EXPECT_EQ(result.err, step.expected.err);
            EXPECT_EQ(result.exitCode, step.expected.exitCode);
        }
    }

    qvtest::TempDir dir;
};

// The command lines of the plug-in, in order against one state: probes, quiet adds with
// two blanks after the set and an escaped "!", set deletes, and the refusals that reach
// it through the redirection. What each command does is SimulatorTest's.
TEST_F(IpfwBinary, ThePlugInsCommandLinesBehaveAsTheRealCommand) {
    const std::string add = "ipfw -q add 3140 set 19  ";
    const std::string toOut = " 2>/dev/stdout";
    runSteps({
        {"ipfw show 3100", "", "ipfw: rule 3100 does not exist\n", 69},
        {"ipfw show 3100" + toOut, "ipfw: rule 3100 does not exist\n", "", 69},
        {"ipfw -q add 3100 set 19  allow proto tcp src-ip me dst-ip 3232235777/24,localhost "
         "dst-port 80,8000-8080 out keep-state 2>/dev/stdout",
         "", "", 0},
        {"ipfw -q add 3110 set 19 prob 0.5 deny log logamount 0 proto tcp src-port any "
         "tcpflags syn,\\!ack 2>/dev/stdout",
         "", "", 0},
        {"ipfw show 3100" + toOut,
         "03100 0 0 allow ip from any to any proto tcp src-ip me dst-ip 192.168.1.0/24,127.0.0.1 "
         "dst-port 80,8000-8080 out keep-state\n",
         "", 0},
        {"ipfw -q delete set 19", "", "", 0},
        {"ipfw -q delete set 19", "", "ipfw: rule 0 not found\n", 69},
        {add + "bogus-keyword" + toOut, "ipfw: invalid action bogus-keyword\n\n", "", 65},
        {"ipfw show 3140", "", "ipfw: rule 3140 does not exist\n", 69},
    });
}

TEST_F(IpfwBinary, CreatesItsStateWhereToldAndResolvesHostsAtAddTime) {
    EXPECT_EQ(run("IPFW_SIM_STATE=" + dir.file("a/b/c/rules") + " ipfw flush").out,
              "Flushed all rules.\n");
    ipfwsim::FirewallState state;
    EXPECT_TRUE(ipfwsim::FirewallState::load(readFile(dir.file("a/b/c/rules")), state).ok());

    EXPECT_EQ(run("unset IPFW_SIM_HOSTS; ipfw add 100 allow dst-ip localhost").out,
              "00100 allow ip from any to any dst-ip 127.0.0.1\n");
}

// sysctl's rows run in order against one state: each row's value is what earlier rows
// left; the plug-in sets the verbose switch with -w. killall accepts only the syslogd
// reload.
TEST_F(IpfwBinary, SysctlAndKillallAnswerAsFreeBSDsCommands) {
    const std::string usage =
        "usage: sysctl [-bdehNnoqx] name[=value] ...\n"
        "       sysctl [-bdehNnoqx] -a\n";
    runSteps({
        {"sysctl net.inet.ip.fw.verbose", "net.inet.ip.fw.verbose: 1\n", "", 0},
        {"sysctl -w net.inet.ip.fw.verbose=0", "net.inet.ip.fw.verbose: 1 -> 0\n", "", 0},
        {"sysctl -n net.inet.ip.fw.verbose", "0\n", "", 0},
        {"ipfw enable verbose", "", "", 0},
        {"sysctl -q net.inet.ip.fw.verbose=yes", "", "sysctl: invalid integer 'yes'\n", 1},
        {"sysctl net.inet.ip.fw.verbos=0", "", "sysctl: unknown oid 'net.inet.ip.fw.verbos'\n", 1},
        {"sysctl", "", usage, 1},
    });

    const std::string refusal = "killall: only 'killall -HUP syslogd' is simulated\n";
    struct Row {
        const char* command;
        bool accepted;
    };
    const Row rows[] = {
        {"killall -HUP syslogd", true},   {"killall -1 syslogd", true},
        {"killall syslogd", false},       {"killall -HUP sshd", false},
        {"killall -HUPX syslogd", false}, {"killall", false},
    };
    for (const Row& row : rows) {
        ShellResult result = run(row.command);
        EXPECT_EQ(result.out, "") << row.command;
        EXPECT_EQ(result.err, row.accepted ? "" : refusal) << row.command;
        EXPECT_EQ(result.exitCode, row.accepted ? 0 : 1) << row.command;
    }
}

// Another process holding the state's lock (a hung ipfw, or anyone who could open the
// lock) keeps a command waiting for $IPFW_SIM_LOCK_SECONDS at most; it then gives up
// saying what it waited for, and changes nothing.
TEST_F(IpfwBinary, AWaitForTheLockEndsWithAMessageAndAFailure) {
    ASSERT_EQ(run("ipfw -q add 100 allow proto tcp").exitCode, 0);
    const std::string lock = dir.file("state/rules.lock");
    const int holder = open(lock.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(holder, LOCK_EX | LOCK_NB), 0);
    const std::string waited =
        "waited 1 s for the lock on " + lock + " (held by another ipfw); giving up\n";
    runSteps({
        {"IPFW_SIM_LOCK_SECONDS=1 ipfw -q add 200 deny proto udp", "", "ipfw: " + waited, 75},
        {"IPFW_SIM_LOCK_SECONDS=1 ipfw list", "", "ipfw: " + waited, 75},
        {"IPFW_SIM_LOCK_SECONDS=1 sysctl -w net.inet.ip.fw.verbose=0", "", "sysctl: " + waited, 1},
        {"IPFW_SIM_LOCK_SECONDS=soon ipfw list", "",
         "ipfw: IPFW_SIM_LOCK_SECONDS: malformed value ``soon''\n", 64},
    });
    close(holder);
    runSteps(
        {{"ipfw list", "00100 allow ip from any to any proto tcp\n65535 allow ip from any to any\n",
          "", 0}});
}

// Eight writers add 50 rules each, half numbered and half automatic, while a reader
// lists: nothing may be lost or doubled, and every listing must be whole.
TEST_F(IpfwBinary, ConcurrentWritersNeverLoseOrDuplicateARule) {
    constexpr int kWriters = 8;
    constexpr int kRulesEach = 50;
    std::vector<std::thread> threads;
    std::vector<int> failures(kWriters + 1, 0);
    for (int t = 0; t < kWriters; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRulesEach; ++i) {
                const int tag = t * 1000 + i;
                const std::string number =
                    i % 2 == 0 ? std::to_string(100 + t * kRulesEach + i) : "";
                ShellResult r = run("ipfw -q add " + number + " allow proto tcp dst-port " +
                                    std::to_string(tag) + " 2>/dev/stdout");
                failures[static_cast<size_t>(t)] += (r.exitCode != 0 || !r.out.empty()) ? 1 : 0;
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < 20; ++i) {
            ShellResult r = run("ipfw list");
            bool whole =
                r.exitCode == 0 && r.out.size() >= 31 &&
                r.out.compare(r.out.size() - 31, 31, "65535 allow ip from any to any\n") == 0;
            failures[kWriters] += whole ? 0 : 1;
        }
    });
    qvtest::joinAll(threads);
    EXPECT_EQ(std::count(failures.begin(), failures.end(), 0), kWriters + 1);

    ipfwsim::FirewallState state;
    ASSERT_TRUE(ipfwsim::FirewallState::load(readFile(dir.file("state/rules")), state).ok());
    ASSERT_EQ(state.rules().size(), static_cast<size_t>(kWriters * kRulesEach));
    std::set<int> tags;
    std::set<uint32_t> automaticNumbers;
    for (const ipfwsim::RuleEntry& entry : state.rules()) {
        const ipfwsim::Rule& rule = entry.stored.rule;
        int tag = rule.matches.back().ports[0].low;
        tags.insert(tag);
        if ((tag % 1000) % 2 == 1) {
            automaticNumbers.insert(rule.number);
        }
    }
    EXPECT_EQ(tags.size(), static_cast<size_t>(kWriters * kRulesEach));
    EXPECT_EQ(automaticNumbers.size(), static_cast<size_t>(kWriters * kRulesEach / 2));
}

}  // namespace
