// Real packets through the table that build/nft/ipfw programs, inside a network
// namespace of the test's own: TCP connections to 127.0.0.1 from inside it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <signal.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>

#include "NetnsWorld.h"
#include "QvFrame.h"
#include "TempDir.h"
#include "ipfwnft/EnforcerProtocol.h"
#include "ipfwnft/TableLayout.h"

namespace {

using nfttest::Listener;
using nfttest::Outcome;
using nfttest::Shell;

class NftPacketTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string whyNot;
        if (!nfttest::EnterPrivateNetwork(whyNot)) {
            GTEST_SKIP() << whyNot;
        }
        setenv("IPFW_SIM_STATE", m_dir.file("rules").c_str(), 1);
    }
    // "ipfw -q ARGS", which must succeed.
    void Ipfw(const std::string& arguments) {
        nfttest::CommandResult result =
            Shell(std::string(QV_BUILD_DIR) + "/nft/ipfw -q " + arguments);
        ASSERT_EQ(result.exitCode, 0) << arguments << ": " << result.output;
    }

    qvtest::TempDir m_dir;
};

struct Case {
    std::vector<const char*> rules;  // "NUMBER set SET BODY"; PORT stands for the port
    Outcome outcome;
};

// Runs `command` killed at its first sendto(2): the enforcing ipfw hands its change to
// ipfw-enforcer with it, after the state was written (the enforcer is running already, and
// a filter only on the command). A seccomp filter, so that no tracer is needed. True when
// the command died of it.
bool RunKilledAtItsKernelChange(const std::string& command) {
    const pid_t child = fork();
    if (child == 0) {
        sock_filter filter[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_sendto, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        sock_fprog program{static_cast<unsigned short>(sizeof(filter) / sizeof(filter[0])), filter};
        if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
            prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
            _exit(127);
        }
        execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFSIGNALED(status) &&
           WTERMSIG(status) == SIGSYS;
}

std::string WithPort(std::string text, int port) {
    const size_t at = text.find("PORT");
    return at == std::string::npos ? text : text.replace(at, 4, std::to_string(port));
}

TEST_F(NftPacketTest, EachActionDecidesARealConnection) {
    const Case cases[] = {
        {{"3100 set 19 allow proto tcp dst-port PORT"}, Outcome::Connects},
        {{"3100 set 19 deny log logamount 0 proto tcp dst-port PORT"}, Outcome::TimesOut},
        {{"3100 set 19 reset log logamount 0 proto tcp dst-port PORT"}, Outcome::Refused},
        {{"3100 set 19 unreach 3 log logamount 0 proto tcp dst-port PORT"}, Outcome::Refused},
        {{"3100 set 19 deny proto tcp dst-port 1"}, Outcome::Connects},
        {{"3100 set 19 deny proto tcp src-ip 127.0.0.1 dst-ip me dst-port PORT in via lo"},
         Outcome::TimesOut},
        {{"3100 set 19 deny proto tcp dst-port PORT out"}, Outcome::TimesOut},
        {{"3100 set 19 deny proto tcp dst-port PORT via eth9"}, Outcome::Connects},
        {{"3100 set 19 deny proto udp dst-port PORT"}, Outcome::Connects},
        {{"3100 set 19 deny proto tcp tcpflags syn,!ack dst-port PORT"}, Outcome::TimesOut},
        // An exception rule (2100 range) comes before the normal ones (3100 range).
        {{"2100 set 18 allow proto tcp dst-port PORT", "3100 set 19 deny proto tcp dst-port PORT"},
         Outcome::Connects},
        // Rules 16,384 apart live in tables of their own: an allow still ends the pass.
        {{"3100 set 19 allow proto tcp dst-port PORT", "20000 set 19 deny proto tcp dst-port PORT"},
         Outcome::Connects},
        {{"3100 set 19 count proto tcp dst-port PORT", "20000 set 19 deny proto tcp dst-port PORT"},
         Outcome::TimesOut},
        // Replies of a kept flow pass a rule that denies everything else.
        {{"3000 set 19 check-state", "3100 set 19 allow proto tcp dst-port PORT keep-state",
          "3200 set 19 deny proto tcp"},
         Outcome::Connects},
        {{"3100 set 19 allow proto tcp dst-port PORT", "3200 set 19 deny proto tcp"},
         Outcome::TimesOut},
    };
    int port = 20000;
    for (const Case& row : cases) {
        ++port;
        Ipfw("flush");
        for (const char* rule : row.rules) {
            Ipfw("add " + WithPort(rule, port));
        }
        Listener listener(port);
        ASSERT_TRUE(listener.ok());
        EXPECT_STREQ(nfttest::OutcomeName(listener.Connect()), nfttest::OutcomeName(row.outcome))
            << WithPort(row.rules.back(), port);
    }
}

TEST_F(NftPacketTest, DisablingTheSetLetsEverythingThroughAndEnablingBlocksAgain) {
    Listener listener(20100);
    Ipfw("add 3100 set 19 deny proto tcp dst-port 20100");
    EXPECT_EQ(listener.Connect(), Outcome::TimesOut);
    Ipfw("set disable 19");
    EXPECT_EQ(listener.Connect(), Outcome::Connects);
    Ipfw("set enable 19");
    EXPECT_EQ(listener.Connect(), Outcome::TimesOut);
    Ipfw("delete 3100");
    EXPECT_EQ(listener.Connect(), Outcome::Connects);
}

// The enforcer has nft read the tables ahead after each change with a transaction that
// must change nothing: the ruleset lists the same after it, and the next change finds
// every table as the state left it (no rebuild, which ipfw would report).
TEST_F(NftPacketTest, AReadAheadChangesNothing) {
    Ipfw("add 3100 set 19 deny proto tcp dst-port 20150");
    const std::string before = Shell("nft list ruleset").output;
    const size_t at = before.find("elements = { 0x");
    ASSERT_NE(at, std::string::npos) << before;
    const uint32_t count = static_cast<uint32_t>(std::stoul(before.substr(at + 13), nullptr, 16));
    const std::string script =
        ipfwnft::readAheadScript("add element inet ipfw gen { " + std::to_string(count) + " }\n");
    ASSERT_FALSE(script.empty());
    EXPECT_EQ(Shell("printf '" + script + "' | nft -f -").exitCode, 0);
    EXPECT_EQ(Shell("nft list ruleset").output, before);
    nfttest::CommandResult next =
        Shell(std::string(QV_BUILD_DIR) + "/nft/ipfw -q add 3110 set 19 deny proto udp");
    EXPECT_EQ(next.exitCode, 0);
    EXPECT_EQ(next.output, "") << "the next change found a table not as the state left it";
}

TEST_F(NftPacketTest, ProbabilityHalfMatchesRoughlyHalfOfTheTries) {
    Listener listener(20200);
    // Reset rather than drop keeps each try short; only the SYN on its way in, so that
    // each try meets the rule once.
    Ipfw("add 3100 set 19 prob 0.5 reset proto tcp dst-port 20200 in tcpflags syn,!ack");
    int refused = 0;
    for (int i = 0; i < 200; ++i) {
        refused += listener.Connect(1.0) == Outcome::Refused ? 1 : 0;
    }
    // Five standard deviations either side of 100.
    EXPECT_GT(refused, 65);
    EXPECT_LT(refused, 135);
}

TEST_F(NftPacketTest, RefusedRuleLeavesTableAndStateAsTheyWere) {
    Listener listener(20300);
    Ipfw("add 3100 set 19 deny proto tcp dst-port 20300");
    nfttest::CommandResult refused =
        Shell(std::string(QV_BUILD_DIR) + "/nft/ipfw -q add 3110 set 19 allow ipoptions ts");
    EXPECT_EQ(refused.exitCode, 69);
    EXPECT_EQ(refused.output,
              "ipfw: rule cannot be enforced: ipoptions ts (nftables has no test for the IP "
              "timestamp option)\n");
    EXPECT_EQ(Shell(std::string(QV_BUILD_DIR) + "/nft/ipfw list").output,
              "03100 deny ip from any to any proto tcp dst-port 20300\n"
              "65535 allow ip from any to any\n");
    EXPECT_EQ(listener.Connect(), Outcome::TimesOut);
}

// Whether `condition` holds within `seconds`, asked every 10 ms.
template <typename Condition>
bool WaitUntil(Condition condition, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        usleep(10 * 1000);
    }
    return true;
}

// The abstract address of the enforcer of user `uid`.
socklen_t EnforcerAddress(uint32_t uid, sockaddr_un& address) {
    address = sockaddr_un{};
    address.sun_family = AF_UNIX;
    const std::string name = ipfwnft::enforcerSocketName(uid);
    memcpy(address.sun_path + 1, name.data(), name.size());
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

// Ends the enforcer that ipfw started in this namespace with "ipfw-enforcer --stop", so that
// nothing but the next command can notice a change of the tables: when it returns, nothing
// listens on the enforcer's name any more.
bool StopTheEnforcer() {
    const nfttest::CommandResult stopped =
        Shell(std::string(QV_BUILD_DIR) + "/nft/ipfw-enforcer --stop");
    sockaddr_un address;
    const socklen_t length = EnforcerAddress(0, address);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool listening = connect(fd, reinterpret_cast<sockaddr*>(&address), length) == 0;
    close(fd);
    EXPECT_EQ(stopped.output, "");
    return stopped.exitCode == 0 && !listening;
}

// The table flushed behind ipfw's back while no enforcer watched, then an ipfw killed after
// it wrote the state and before the kernel took the change: each time the next command
// rebuilds the table from the state, says so, and connections are treated as the rules say.
TEST_F(NftPacketTest, ATableThatDriftedIsRebuiltByTheNextCommand) {
    const std::string ipfw = std::string(QV_BUILD_DIR) + "/nft/ipfw -q ";
    const std::string note =
        "ipfw: the nftables tables were not as this rule state last left them; rebuilt them from "
        "the rule state\n";
    Listener listener(20400);
    Ipfw("add 3100 set 19 deny proto tcp dst-port 20400");
    ASSERT_TRUE(StopTheEnforcer());
    ASSERT_EQ(Shell("nft flush ruleset").exitCode, 0);
    EXPECT_EQ(listener.Connect(), Outcome::Connects);
    EXPECT_EQ(Shell(ipfw + "add 3200 set 19 deny proto udp").output, note);
    EXPECT_EQ(listener.Connect(), Outcome::TimesOut);

    ASSERT_TRUE(
        RunKilledAtItsKernelChange(ipfw + "add 3050 set 19 allow proto tcp dst-port 20400"));
    EXPECT_NE(Shell(ipfw + "list 3050").output.find("03050 allow"), std::string::npos);
    EXPECT_EQ(listener.Connect(), Outcome::TimesOut) << "the kernel never took 3050";
    EXPECT_EQ(Shell(ipfw + "add 3300 set 19 deny proto udp").output, note);
    EXPECT_EQ(listener.Connect(), Outcome::Connects);
}

// A process of user nobody; it runs `body` and exits with what it returns.
template <typename Body>
pid_t AsNobody(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGPIPE, SIG_IGN);
        _exit(setresgid(65534, 65534, 65534) == 0 && setresuid(65534, 65534, 65534) == 0 ? body()
                                                                                         : 2);
    }
    return child;
}

// A network namespace of its own for the rest of this test, whatever ran before it in this
// process: no enforcer listens there yet.
bool EnterFreshNetwork() {
    return unshare(CLONE_NEWNET) == 0 && Shell("ip link set lo up").exitCode == 0;
}

// ipfw-enforcer runs what it is sent as root: a peer of another user is not heard.
TEST_F(NftPacketTest, TheEnforcerHearsItsOwnUserOnly) {
    Listener listener(20500);
    Ipfw("add 3100 set 19 deny proto tcp dst-port 20500");  // the enforcer is running now
    const std::string body = "flush ruleset\n";
    std::string frame(ipc::kHeaderBytes, '\0');
    ASSERT_TRUE(ipc::EncodeHeader(
        {static_cast<uint32_t>(ipfwnft::RequestKind::Apply), static_cast<uint32_t>(body.size())},
        reinterpret_cast<uint8_t*>(&frame[0])));
    frame += body;
    sockaddr_un address;
    const socklen_t length = EnforcerAddress(0, address);
    const pid_t child = AsNobody([&] {
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        char reply[8];
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), length) != 0) {
            return 2;
        }
        // The enforcer may hang up before the request is all written.
        (void)!write(fd, frame.data(), frame.size());
        return read(fd, reply, sizeof(reply)) <= 0 ? 0 : 3;  // no answer, only the hang-up
    });
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(listener.Connect(), Outcome::TimesOut) << "the rules still hold";
}

// Another user listening where root's ipfw looks for its enforcer, answering every
// request with an all-zero frame (success, had it been believed), is named and refused:
// the change fails and the state goes back. Another user's own ipfw, which starts an
// enforcer of that user, leaves root's commands alone.
TEST_F(NftPacketTest, NoOtherUserStandsInForTheEnforcer) {
    const std::string ipfw = std::string(QV_BUILD_DIR) + "/nft/ipfw ";
    ASSERT_TRUE(EnterFreshNetwork());
    Listener listener(20600);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    sockaddr_un address;
    const socklen_t length = EnforcerAddress(0, address);
    const pid_t impostor = AsNobody([&] {
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(fd, 8) != 0) {
            return 2;
        }
        (void)!write(ready[1], "r", 1);
        for (int peer; (peer = accept(fd, nullptr, nullptr)) >= 0; close(peer)) {
            char request[256];
            const std::string zeros(ipc::kHeaderBytes, '\0');
            (void)!read(peer, request, sizeof(request));
            (void)!write(peer, zeros.data(), zeros.size());
        }
        return 0;
    });
    close(ready[1]);
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1) << "the impostor could not listen";
    close(ready[0]);

    const nfttest::CommandResult refused =
        Shell(ipfw + "-q add 3100 set 19 deny proto tcp dst-port 20600");
    kill(impostor, SIGKILL);
    waitpid(impostor, nullptr, 0);
    EXPECT_NE(refused.exitCode, 0);
    EXPECT_NE(refused.output.find("uid 65534 (pid " + std::to_string(impostor) + ")"),
              std::string::npos)
        << refused.output;
    EXPECT_EQ(Shell(ipfw + "show").output, "65535 0 0 allow ip from any to any\n")
        << "the refused change is not in the state";
    EXPECT_EQ(listener.Connect(), Outcome::Connects);

    // nobody's ipfw, on a state of its own, starts nobody's enforcer first.
    const std::string theirs = m_dir.file("nobody");
    ASSERT_EQ(Shell("mkdir -m 777 " + theirs).exitCode, 0);
    Shell("IPFW_SIM_STATE=" + theirs +
          "/rules setpriv --reuid=65534 --regid=65534 "
          "--clear-groups " +
          ipfw + "-q add 3100 set 19 deny proto tcp dst-port 20600");
    Ipfw("add 3100 set 19 deny proto tcp dst-port 20600");
    EXPECT_EQ(listener.Connect(), Outcome::TimesOut);
}

// ipfw-enforcer --resident started by the test, its standard error in `errors`, its own
// rule state `statePath` until an ipfw names its own; stopped with SIGTERM at the end.
class ResidentEnforcer {
public:
    ResidentEnforcer(const std::string& errors, const std::string& statePath) : m_errors(errors) {
        m_pid = fork();
        if (m_pid == 0) {
            setenv("IPFW_SIM_STATE", statePath.c_str(), 1);
            const int fd = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            dup2(fd, 2);
            const std::string path = std::string(QV_BUILD_DIR) + "/nft/ipfw-enforcer";
            execl(path.c_str(), "ipfw-enforcer", "--resident", static_cast<char*>(nullptr));
            _exit(127);
        }
    }
    ~ResidentEnforcer() {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    std::string Errors() const { return qvtest::readFile(m_errors); }
    // Whether `text` shows up on its standard error within `seconds`.
    bool Says(const std::string& text, double seconds) const {
        return WaitUntil([&] { return Errors().find(text) != std::string::npos; }, seconds);
    }

private:
    std::string m_errors;
    pid_t m_pid = -1;
};

// Someone else flushing the ruleset or deleting one of the rules' elements does not disarm the
// firewall: the enforcer puts the tables back from the rule state by itself, at once, and
// says what it found and what it did.
TEST_F(NftPacketTest, TheEnforcerPutsBackWhatOthersTookWithoutAnyCommand) {
    ASSERT_TRUE(EnterFreshNetwork());
    // Started with a rule state other than ipfw's: it follows the one ipfw names.
    ResidentEnforcer enforcer(m_dir.file("enforcer.err"), m_dir.file("elsewhere"));
    ASSERT_TRUE(enforcer.Says("ipfw-enforcer: serving @ipfw-nft-enforcer.0 until stopped", 5))
        << enforcer.Errors();
    Listener listener(20700);
    Ipfw("add 3100 set 19 deny proto tcp dst-port 20700");
    Ipfw("add 3200 set 19 deny proto udp");
    ASSERT_EQ(listener.Connect(), Outcome::TimesOut);

    auto restored = [] { return Shell("nft list table inet ipfw_s0").exitCode == 0; };
    const std::string ruleState = "restored 2 rules from the rule state (" + m_dir.file("rules");
    ASSERT_EQ(Shell("nft flush ruleset").exitCode, 0);
    // Well within a second as a rule; the slack is for a loaded machine.
    EXPECT_TRUE(WaitUntil(restored, 3.0)) << enforcer.Errors();
    EXPECT_EQ(listener.Connect(), Outcome::TimesOut);
    EXPECT_TRUE(enforcer.Says(
        "(nft) deleted table inet ipfw, deleted table inet ipfw_s0; " + ruleState, 3.0))
        << enforcer.Errors();

    // 3100 is an element of a verdict map; someone deleting it is put right the same way.
    const std::string map = "inet ipfw_s0 rules_in_k0_p0_s17";
    auto held = [&map] {
        return Shell("nft list map " + map).output.find("20700") != std::string::npos;
    };
    ASSERT_TRUE(held());
    ASSERT_EQ(Shell("nft delete element " + map + " '{ 6 . 20700 }'").exitCode, 0);
    EXPECT_TRUE(WaitUntil(held, 3.0));
    EXPECT_EQ(listener.Connect(), Outcome::TimesOut);
    EXPECT_TRUE(enforcer.Says("(nft) changed table inet ipfw_s0; " + ruleState, 3.0))
        << enforcer.Errors();

    // The tables the enforcer put back are the ones the state describes: a delete is one
    // change, no rebuild.
    const nfttest::CommandResult deleted =
        Shell(std::string(QV_BUILD_DIR) + "/nft/ipfw -q delete 3100");
    EXPECT_EQ(deleted.exitCode, 0);
    EXPECT_EQ(deleted.output, "") << "no rebuild";
    EXPECT_EQ(listener.Connect(), Outcome::Connects);
    EXPECT_EQ(enforcer.Errors().find("ipfw-enforcer: process " + std::to_string(getpid())),
              std::string::npos)
        << "its own changes are not taken for someone else's";
}

}  // namespace
