// The plug-in under faults of its surroundings, end to end: the configuration's
// filesystem full or read-only, the host service absent or silent (the firewall log
// deleted under the watcher: tests/e2e/PluginTest). Each must give its code and its log line and
// keep what had been saved. (ipfw missing or hanging is the rule sets' business:
// tests/firewall/RuleMgrTest.)
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>

#include <chrono>
#include <cstring>
#include <fstream>

#include "PluginWorld.h"
#include "QvIpc.h"

using namespace qor::vela;
using qvtest::CallbackEvents;
using qvtest::eventually;
using Clock = std::chrono::steady_clock;

namespace {

// Mounts made by these tests stay in a mount namespace of the test process's own, made
// while the process has only one thread; false when the system does not allow it.
const bool g_privateMounts = [] {
    return unshare(CLONE_NEWNS) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}();

// libQvUtil opens its own log once per process, in the QV_LOG_DIR of its first message,
// while each test's world has a log directory of its own. One directory for the whole
// binary, opened by a first message before any test, keeps its lines readable in every
// test, however many run in this process.
class UtilLogDirectory : public ::testing::Environment {
public:
    static std::string path() { return dir().path() + "/QvUtil.log"; }

    void SetUp() override {
        setenv("QV_LOG_DIR", dir().path().c_str(), 1);
        setenv("QV_IPC_SOCKET", (dir().path() + "/nobody.sock").c_str(), 1);
        void* reply = nullptr;
        int length = 0;
        ipc::call(0, "", 0, &reply, &length);  // logs "cannot reach": the log is open
        ipc::free(reply, length);
        unsetenv("QV_IPC_SOCKET");
        unsetenv("QV_LOG_DIR");
    }

private:
    static qvtest::TempDir& dir() {
        static qvtest::TempDir directory;
        return directory;
    }
};

const auto* const g_utilLogDirectory = ::testing::AddGlobalTestEnvironment(new UtilLogDirectory);

class FaultTest : public qvtest::PluginWorld {
protected:
    std::string utilLog() const { return qvtest::readFile(UtilLogDirectory::path()); }
};

// Events still reach the callback when the host service is gone or never answers, and
// the watcher still stops within one call's time-out (1 s to connect, 3 s to answer).
TEST_F(FaultTest, HostServiceAbsentOrSilentNeitherLosesCallbacksNorBlocksStop) {
    const std::string socketPath = confDir() + "/../host.sock";
    struct Case {
        bool listening;
        const char* utilLogged;
    };
    const Case cases[] = {{false, "ipc::call cannot reach "},
                          {true, "ipc::call exchange for command 65567 broke off"}};
    for (const Case& c : cases) {
        service.reset();
        unlink(socketPath.c_str());
        // Listening, it accepts into its backlog and never answers.
        const int silent = c.listening ? qvtest::listenUnix(socketPath, 8) : -1;
        ASSERT_EQ(silent >= 0, c.listening);
        CallbackEvents::clear();
        ASSERT_EQ(start(), 0);
        std::ofstream(fwLog(), std::ios::app)
            << "Nov 23 10:00:00 host kernel: ipfw: 3100 Deny TCP a b in\n";
        EXPECT_TRUE(eventually([] { return CallbackEvents::all().size() == 1; }));
        EXPECT_TRUE(eventually([&] { return utilLog().find(c.utilLogged) != std::string::npos; }))
            << utilLog();
        const auto begin = Clock::now();
        stop();
        EXPECT_LT(qvtest::secondsSince(begin), 6.0);
        close(silent);
    }
}

// A small filesystem under the configuration, filled up while the plug-in runs, or made
// read-only between two runs: every change is still answered (the store's failures are
// not codes), the failed save is logged, and after a restart the store holds what the
// last successful save wrote, and ipfw agrees with it.
TEST_F(FaultTest, FullOrReadOnlyConfigurationKeepsWhatWasSaved) {
    if (!g_privateMounts) {
        GTEST_SKIP() << "no private mount namespace for a small filesystem";
    }
    const char* failedSave = "FwConfig::Save Failed to save QvFw.conf.plist, error is";
    const std::string config = qvtest::readFile(configPath());
    for (const bool full : {true, false}) {
        SCOPED_TRACE(full ? "full" : "read-only");
        truncate((confDir() + "/../logs/QvFw.log").c_str(), 0);  // each case its own lines
        ASSERT_EQ(mount("tmpfs", confDir().c_str(), "tmpfs", 0, "size=16k"), 0) << strerror(errno);
        qvtest::writeFile(configPath(), config);
        ASSERT_EQ(start(), 0);
        std::vector<uint32_t> saved;
        // Full: rules until a save fails. Read-only: two saved rules, then one more after
        // a restart on the read-only filesystem.
        for (int i = 0; i < (full ? 60 : 3) && !logged(3, failedSave); ++i) {
            if (!full && i == 2) {
                stop();
                ASSERT_EQ(
                    mount(nullptr, confDir().c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0)
                    << strerror(errno);
                ASSERT_EQ(start(), 0);
            }
            const uint32_t number = add(tcpRule(ACTION_DENY, 1000 + i));
            ASSERT_NE(number, 0u);
            if (!logged(3, failedSave)) {
                saved.push_back(number);
            }
        }
        EXPECT_TRUE(logged(3, failedSave)) << debugLog();
        ASSERT_FALSE(saved.empty());
        stop();
        ASSERT_EQ(start(), 0);
        EXPECT_EQ(stored(), saved);
        expectStoreAndIpfwAgree();
        stop();
        ASSERT_EQ(umount(confDir().c_str()), 0);
        qvtest::writeFile(configPath(), config);
    }
}

}  // namespace
