// The built binary, build/sim/ipfw (also run as build/sim/sysctl and build/sim/killall),
// reached through /bin/sh the way the plug-in runs it: exact command lines,
// redirections, shell escapes, real files and locks.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

#include "SimProcess.h"
#include "ipfwsim/FirewallState.h"

namespace simtest {
namespace {

class IpfwBinary : public ::testing::Test {
protected:
    TempDir dir;
    Shell shell{dir.path()};
};

TEST_F(IpfwBinary, ThePlugInsCommandLinesBehaveAsTheRealCommand) {
    ShellResult probe = shell.run("ipfw show 3100 2>/dev/stdout");
    EXPECT_EQ(probe.out, "ipfw: rule 3100 does not exist\n");
    EXPECT_EQ(probe.exitCode, 69);

    ShellResult add = shell.run(
        "ipfw -q add 3100 set 19  allow proto tcp src-ip me dst-ip 3232235777/24,localhost "
        "dst-port 80,8000-8080 out keep-state 2>/dev/stdout");
    EXPECT_EQ(add.out, "");
    EXPECT_EQ(add.exitCode, 0);
    ShellResult escaped = shell.run(
        "ipfw -q add 3110 set 19 prob 0.5 deny log logamount 0 proto tcp src-port any "
        "tcpflags syn,\\!ack 2>/dev/stdout");
    EXPECT_EQ(escaped.out, "");
    EXPECT_EQ(escaped.exitCode, 0);

    ShellResult taken = shell.run("ipfw show 3100 2>/dev/stdout");
    EXPECT_EQ(taken.out,
              "03100 0 0 allow ip from any to any proto tcp src-ip me dst-ip "
              "192.168.1.0/24,127.0.0.1 dst-port 80,8000-8080 out keep-state\n");
    EXPECT_EQ(taken.exitCode, 0);
    EXPECT_EQ(shell.run("ipfw list 3110").out,
              "03110 prob 0.500000 deny log ip from any to any proto tcp setup\n");

    EXPECT_EQ(shell.run("ipfw -q set disable 19").exitCode, 0);
    ShellResult hidden = shell.run("ipfw show 3100 2>/dev/stdout");
    EXPECT_EQ(hidden.out, "");
    EXPECT_EQ(hidden.exitCode, 0);
    EXPECT_EQ(shell.run("ipfw -q set enable 19").exitCode, 0);

    ShellResult deleted = shell.run("ipfw -q delete 3100");
    EXPECT_EQ(deleted.out + deleted.err, "");
    EXPECT_EQ(deleted.exitCode, 0);
    ShellResult again = shell.run("ipfw -q delete 3100");
    EXPECT_EQ(again.err, "ipfw: rule 3100 not found\n");
    EXPECT_EQ(again.exitCode, 69);

    EXPECT_EQ(shell.run("ipfw -q delete set 19").exitCode, 0);
    ShellResult emptySet = shell.run("ipfw -q delete set 19");
    EXPECT_EQ(emptySet.err, "ipfw: rule 0 not found\n");
    EXPECT_EQ(emptySet.exitCode, 69);

    shell.run("ipfw -q add 2100 set 18 allow proto udp");
    ShellResult flushed = shell.run("ipfw -q flush");
    EXPECT_EQ(flushed.out + flushed.err, "");
    EXPECT_EQ(flushed.exitCode, 0);
    EXPECT_EQ(shell.run("ipfw list").out, "65535 allow ip from any to any\n");
}

TEST_F(IpfwBinary, RefusalsReachThePlugInThroughTheRedirection) {
    struct Row {
        const char* body;
        int exitCode;
        const char* output;
    };
    const Row rows[] = {
        {"allow proto tcp dst-ip fileserver", 68, "ipfw: hostname ``fileserver'' unknown\n"},
        {"bogus-keyword", 65, "ipfw: invalid action bogus-keyword\n\n"},
        {"allow tcpflags \\!", 65, "ipfw: invalid flag \n"},
        {"allow src-ip 3232235777,", 68, "ipfw: hostname ``'' unknown\n"},
        {"allow", 64, "ipfw: missing protocol\n"},
    };
    for (const Row& row : rows) {
        ShellResult result =
            shell.run(std::string("ipfw -q add 3140 set 19  ") + row.body + " 2>/dev/stdout");
        EXPECT_EQ(result.out, row.output) << row.body;
        EXPECT_EQ(result.exitCode, row.exitCode) << row.body;
    }
    EXPECT_EQ(shell.run("ipfw -q add 65535 allow proto tcp 2>/dev/stdout").out,
              "ipfw: getsockopt(IP_FW_XADD): Invalid argument\n");
    EXPECT_EQ(shell.run("ipfw show 3140 2>/dev/stdout").exitCode, 69);
}

TEST_F(IpfwBinary, CreatesTheStateAndItsDirectoryOnFirstUse) {
    shell.env["IPFW_SIM_STATE"] = dir.path() + "/a/b/c/rules";
    EXPECT_EQ(shell.run("ipfw flush").out, "Flushed all rules.\n");
    std::string content = readFile(dir.path() + "/a/b/c/rules");
    ipfwsim::FirewallState state;
    EXPECT_TRUE(ipfwsim::FirewallState::load(content, state).ok());
}

TEST_F(IpfwBinary, ReportsAStateItCannotCreate) {
    writeFile(dir.path() + "/file", "");
    shell.env["IPFW_SIM_STATE"] = dir.path() + "/file/rules";
    ShellResult result = shell.run("ipfw show");
    EXPECT_EQ(result.exitCode, 73);
    EXPECT_EQ(result.err,
              "ipfw: cannot create " + dir.path() + "/file/rules.lock: Not a directory\n");
}

TEST_F(IpfwBinary, LeavesACorruptStateUntouched) {
    shell.run("ipfw -q add 100 allow proto tcp");
    const std::string path = dir.path() + "/state/rules";
    std::string damaged = readFile(path);
    damaged.replace(damaged.find("action=allow"), 12, "action=????");
    writeFile(path, damaged);
    for (const char* command : {"ipfw show", "ipfw -q add 200 allow proto udp", "ipfw -q flush"}) {
        ShellResult result = shell.run(command);
        EXPECT_EQ(result.exitCode, 65) << command;
        EXPECT_NE(result.err.find("state file is corrupt"), std::string::npos) << result.err;
    }
    EXPECT_EQ(readFile(path), damaged);
}

TEST_F(IpfwBinary, RejectsMalformedSeams) {
    shell.env["IPFW_SIM_NOW"] = "soon";
    ShellResult result = shell.run("ipfw show");
    EXPECT_EQ(result.exitCode, 64);
    EXPECT_EQ(result.err, "ipfw: IPFW_SIM_NOW: malformed value ``soon''\n");
}

TEST_F(IpfwBinary, SystemResolverAnswersAtAddTime) {
    shell.env.erase("IPFW_SIM_HOSTS");
    EXPECT_EQ(shell.run("ipfw add 100 allow dst-ip localhost").out,
              "00100 allow ip from any to any dst-ip 127.0.0.1\n");
    ShellResult unknown = shell.run("ipfw -q add 200 allow dst-ip no-such-host.invalid 2>&1");
    EXPECT_EQ(unknown.out, "ipfw: hostname ``no-such-host.invalid'' unknown\n");
    EXPECT_EQ(unknown.exitCode, 68);
}

TEST_F(IpfwBinary, LogsPacketsToTheFileOfTheIpfwBlock) {
    writeFile(dir.path() + "/syslog.conf",
              "*.err\t/dev/null-not-here\n!ipfw\n*.*\t\t" + dir.path() + "/ipfw.log\n!*\n");
    shell.run("ipfw -q add 3100 deny log logamount 1 proto tcp dst-port 22");
    EXPECT_EQ(shell.run("ipfw packet tcp 10.0.0.1:1234 10.0.0.2:22 in via en0").out, "3100 Deny\n");
    EXPECT_EQ(shell.run("ipfw packet tcp 10.0.0.1:1234 10.0.0.2:22 in via en0").out, "3100 Deny\n");
    EXPECT_EQ(
        readFile(dir.path() + "/ipfw.log"),
        "Nov 14 22:13:20 myhost kernel: ipfw: 3100 Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via en0\n"
        "Nov 14 22:13:20 myhost kernel: ipfw: limit 1 reached on entry 3100\n");
    EXPECT_EQ(shell.run("ipfw show 3100").out,
              "03100 2 80 deny log logamount 1 ip from any to any proto tcp dst-port 22\n");
}

// The rows run in order against one state: each row's value is what earlier rows left.
TEST_F(IpfwBinary, SysctlReadsAndSetsTheVerboseSwitchAsFreeBSDsCommand) {
    struct Row {
        const char* command;
        std::string out;
        std::string err;
        int exitCode;
    };
    const std::string usage =
        "usage: sysctl [-bdehNnoqx] name[=value] ...\n"
        "       sysctl [-bdehNnoqx] -a\n";
    const Row rows[] = {
        {"sysctl net.inet.ip.fw.verbose", "net.inet.ip.fw.verbose: 1\n", "", 0},
        {"sysctl -w net.inet.ip.fw.verbose=0", "net.inet.ip.fw.verbose: 1 -> 0\n", "", 0},
        {"sysctl -n net.inet.ip.fw.verbose", "0\n", "", 0},
        {"ipfw enable verbose", "", "", 0},
        {"sysctl -e net.inet.ip.fw.verbose", "net.inet.ip.fw.verbose=1\n", "", 0},
        {"sysctl net.inet.ip.fw.verbose=0x0", "net.inet.ip.fw.verbose: 1 -> 0\n", "", 0},
        {"sysctl -n net.inet.ip.fw.verbose=7", "0 -> 1\n", "", 0},
        {"sysctl -q net.inet.ip.fw.verbose=yes", "", "sysctl: invalid integer 'yes'\n", 1},
        {"sysctl net.inet.ip.fw.verbose=", "", "sysctl: empty numeric value\n", 1},
        {"sysctl net.inet.ip.fw.verbos=0", "", "sysctl: unknown oid 'net.inet.ip.fw.verbos'\n", 1},
        {"sysctl -q net.inet.ip.fw.bogus", "", "", 1},
        {"sysctl net.inet.ip.fw.verbose kern.hostname net.inet.ip.fw.verbose=0 2>&1",
         "net.inet.ip.fw.verbose: 1\nsysctl: unknown oid 'kern.hostname'\n", "", 1},
        {"sysctl -n net.inet.ip.fw.verbose", "1\n", "", 0},
        {"sysctl -z net.inet.ip.fw.verbose", "", "sysctl: illegal option -- z\n" + usage, 1},
        {"sysctl -nN net.inet.ip.fw.verbose", "", usage, 1},
        {"sysctl", "", usage, 1},
        {"sysctl -a", "", "sysctl: option -a: not supported by the simulator\n", 1},
    };
    for (const Row& row : rows) {
        ShellResult result = shell.run(row.command);
        EXPECT_EQ(result.out, row.out) << row.command;
        EXPECT_EQ(result.err, row.err) << row.command;
        EXPECT_EQ(result.exitCode, row.exitCode) << row.command;
    }
}

TEST_F(IpfwBinary, KillallOnlyAcceptsTheSyslogdReload) {
    const std::string refusal = "killall: only 'killall -HUP syslogd' is simulated\n";
    struct Row {
        const char* command;
        bool accepted;
    };
    const Row rows[] = {
        {"killall -HUP syslogd", true},   {"killall -SIGHUP syslogd", true},
        {"killall -hup syslogd", true},   {"killall -1 syslogd", true},
        {"killall syslogd", false},       {"killall -TERM syslogd", false},
        {"killall -HUP sshd", false},     {"killall -HUP syslogd sshd", false},
        {"killall -HUPX syslogd", false}, {"killall", false},
    };
    for (const Row& row : rows) {
        ShellResult result = shell.run(row.command);
        EXPECT_EQ(result.out, "") << row.command;
        EXPECT_EQ(result.err, row.accepted ? "" : refusal) << row.command;
        EXPECT_EQ(result.exitCode, row.accepted ? 0 : 1) << row.command;
    }
}

TEST_F(IpfwBinary, SysctlVerboseZeroStopsPacketLogsAndOneRestoresThem) {
    const std::string log = dir.path() + "/ipfw.log";
    writeFile(dir.path() + "/syslog.conf", "!ipfw\n*.*\t" + log + "\n");
    shell.run("ipfw -q add 3100 deny log logamount 0 proto tcp dst-port 22");
    const std::string packet = "ipfw packet tcp 10.0.0.1:1234 10.0.0.2:22 in via en0";
    const std::string line =
        "Nov 14 22:13:20 myhost kernel: ipfw: 3100 Deny TCP 10.0.0.1:1234 10.0.0.2:22 in via "
        "en0\n";

    EXPECT_EQ(shell.run("sysctl -w net.inet.ip.fw.verbose=0 && " + packet).out,
              "net.inet.ip.fw.verbose: 1 -> 0\n3100 Deny\n");
    EXPECT_EQ(readFile(log), "");
    EXPECT_EQ(shell.run("sysctl -w net.inet.ip.fw.verbose=1 && " + packet).out,
              "net.inet.ip.fw.verbose: 0 -> 1\n3100 Deny\n");
    EXPECT_EQ(readFile(log), line);
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
                ShellResult r = shell.run("ipfw -q add " + number + " allow proto tcp dst-port " +
                                          std::to_string(tag) + " 2>/dev/stdout");
                failures[static_cast<size_t>(t)] += (r.exitCode != 0 || !r.out.empty()) ? 1 : 0;
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < 20; ++i) {
            ShellResult r = shell.run("ipfw list");
            bool whole =
                r.exitCode == 0 && r.out.size() >= 31 &&
                r.out.compare(r.out.size() - 31, 31, "65535 allow ip from any to any\n") == 0;
            failures[kWriters] += whole ? 0 : 1;
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(std::count(failures.begin(), failures.end(), 0), kWriters + 1);

    ipfwsim::FirewallState state;
    ASSERT_TRUE(ipfwsim::FirewallState::load(readFile(dir.path() + "/state/rules"), state).ok());
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
}  // namespace simtest
