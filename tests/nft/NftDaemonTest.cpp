// The plug-in, unchanged, as a real firewall: qvfwd with build/nft first in PATH and
// ipfw-logd beside it, in a network namespace of the test's own; qvfwctl changes the
// rules and real TCP connections to 127.0.0.1 show what the kernel enforces.

#include <gtest/gtest.h>
#include <signal.h>

#include "DaemonSandbox.h"
#include "NetnsWorld.h"

namespace {

using nfttest::Listener;
using nfttest::Outcome;
using qvdaemontest::DaemonSandbox;
using qvdaemontest::WaitFor;
using qvtest::readFile;

std::string TcpRule(const char* action, int port) {
    return std::string("'{\"action\":\"") + action +
           "\",\"protocol\":{\"type\":\"PROTO_SPECIFIED\",\"protocol\":\"PROTO_VALUE_TCP\"},"
           "\"dst_port\":{\"port_type\":\"PORT_LIST\",\"ports\":[{\"use_range\":false,\"port\":" +
           std::to_string(port) + "}]}}'";
}

class NftDaemonTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string whyNot;
        if (!nfttest::EnterPrivateNetwork(whyNot)) {
            GTEST_SKIP() << whyNot;
        }
        m_logd = Start("ipfw-logd", "logd.txt");
        ASSERT_TRUE(
            WaitFor([&] { return Log("logd.txt").find("reading NFLOG") != std::string::npos; }, 20))
            << Log("logd.txt");
        m_daemon = Start("qvfwd --control " + m_sandbox.controlSocket(), "qvfwd.txt");
        ASSERT_TRUE(WaitFor([&] { return Ctl("status").exitCode == 0; }, 30)) << Log("qvfwd.txt");
    }
    void TearDown() override {
        for (pid_t pid : {m_daemon, m_logd}) {
            if (pid > 0) {
                kill(pid, SIGTERM);
                DaemonSandbox::WaitExit(pid, 20);
            }
        }
    }
    pid_t Start(const std::string& command, const std::string& output) const {
        return m_sandbox.Spawn("env PATH=" + Path() + " " + command, m_sandbox.file(output));
    }
    std::string Path() const {
        return std::string(QV_BUILD_DIR) + "/nft:" + m_sandbox.env().at("PATH");
    }
    std::string Log(const std::string& output) const {
        return readFile(m_sandbox.file(output)) + readFile(m_sandbox.file(output + ".err"));
    }
    qvdaemontest::RunResult Ctl(const std::string& arguments) const {
        return m_sandbox.Run("env PATH=" + Path() + " qvfwctl " + arguments);
    }

    DaemonSandbox m_sandbox;
    pid_t m_logd = -1;
    pid_t m_daemon = -1;
};

TEST_F(NftDaemonTest, RulesFromQvfwctlStopRealConnectionsAndReportThem) {
    Listener guarded(21000);
    Listener other(21001);
    ASSERT_EQ(Ctl("add " + TcpRule("ACTION_DENY", 21000)).exitCode, 0);
    pid_t watch = Start("qvfwctl watch", "watch.txt");
    ASSERT_TRUE(WaitFor(
        [&] { return Ctl("status --json").out.find("\"stream_clients\":1") != std::string::npos; },
        20))
        << Ctl("status --json").out;

    EXPECT_EQ(guarded.Connect(), Outcome::TimesOut);
    EXPECT_EQ(other.Connect(), Outcome::Connects);
    // The kernel's log line, through NFLOG, ipfw-logd, the plug-in's watcher and qvfwd.
    const std::string expected = "  3100  Deny TCP 127.0.0.1:";
    EXPECT_TRUE(WaitFor([&] { return Log("watch.txt").find(expected) != std::string::npos; }, 20))
        << Log("watch.txt");
    EXPECT_NE(Log("watch.txt").find(" 127.0.0.1:21000 out via lo\n"), std::string::npos);
    kill(watch, SIGTERM);
    DaemonSandbox::WaitExit(watch, 10);

    // An exception (2100 range) wins over the normal rule (3100 range).
    ASSERT_EQ(Ctl("add-exception " + TcpRule("ACTION_ALLOW", 21000)).exitCode, 0);
    EXPECT_EQ(guarded.Connect(), Outcome::Connects);
    ASSERT_EQ(Ctl("flush-exceptions").exitCode, 0);
    EXPECT_EQ(guarded.Connect(), Outcome::TimesOut);

    ASSERT_EQ(Ctl("disable").exitCode, 0);
    EXPECT_EQ(guarded.Connect(), Outcome::Connects);
    ASSERT_EQ(Ctl("enable").exitCode, 0);
    EXPECT_EQ(guarded.Connect(), Outcome::TimesOut);

    // Finalize takes the rules out of the kernel; they stay stored.
    kill(m_daemon, SIGTERM);
    EXPECT_EQ(DaemonSandbox::WaitExit(m_daemon, 20), 0);
    m_daemon = -1;
    EXPECT_EQ(guarded.Connect(), Outcome::Connects);
}

TEST_F(NftDaemonTest, ARuleNftablesCannotEnforceIsRefusedAndNotStored) {
    const std::string viaAddress =
        R"('{"action":"ACTION_DENY","via_interface":{"type":"FW_IF_TYPE_2","ip":167772161}}')";
    qvdaemontest::RunResult refused = Ctl("add " + viaAddress);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("error 20704: ipfw refused the rule"), std::string::npos)
        << refused.err;
    EXPECT_EQ(Ctl("list --json").out.find("ACTION_DENY"), std::string::npos);
}

}  // namespace
