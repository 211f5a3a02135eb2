// SIGKILL at random moments of a process that saves the configuration in a loop: after
// every kill a new store must load the last document whose save had returned, or the one
// being saved, restored from the backup when the file itself was left torn; never nothing.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <thread>

#include "QvConfig.h"
#include "TempDir.h"
#include "VelaFwMsgConvert.h"

extern char** environ;

namespace {

using namespace qor::vela;

constexpr int kKills = 200;

// A saver child with its report pipe.
class Saver {
public:
    Saver(const std::string& path, uint32_t firstGeneration) {
        int fds[2];
        if (pipe(fds) != 0) {
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        const std::string first = std::to_string(firstGeneration);
        char* argv[] = {const_cast<char*>(QV_SAVER), const_cast<char*>(path.c_str()),
                        const_cast<char*>(first.c_str()), nullptr};
        if (posix_spawn(&m_pid, QV_SAVER, &actions, nullptr, argv, environ) != 0) {
            m_pid = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        m_reports = fds[0];
    }
    ~Saver() {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
        close(m_reports);
    }

    // Waits for the first report; false when none came in time.
    bool WaitUntilSaving() {
        pollfd entry = {m_reports, POLLIN, 0};
        return poll(&entry, 1, 10000) == 1;
    }
    // Kills the child and answers the last generation it reported, or -1 for none.
    int64_t KillAndLastReported() {
        kill(m_pid, SIGKILL);
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        int64_t last = -1;
        uint32_t generation = 0;
        while (read(m_reports, &generation, sizeof generation) == sizeof generation) {
            last = generation;
        }
        return last;
    }

private:
    pid_t m_pid = -1;
    int m_reports = -1;
};

// The generation the stored list holds, or -1 when the list is not one generation's.
int64_t StoredGeneration(QvConfig<Mutex>& store) {
    FwRuleList list;
    if (!store.get(list, "FwRuleCfg").ok() || list.rules_size() == 0) {
        return -1;
    }
    const std::string description = list.rules(0).description();
    const int64_t generation = std::stoll(description.substr(description.find(' ') + 1));
    for (const FwRule& rule : list.rules()) {
        if (rule.description() != description) {
            return -1;
        }
    }
    return list.rules_size() == generation % 5 + 1 ? generation : -1;
}

TEST(CrashSafetyTest, EveryKillDuringSavesLeavesTheLastOrTheSavingDocument) {
    qvtest::TempDir dir;
    const std::string path = dir.file("QvFw.conf.plist");
    qvtest::writeFile(path,
                      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n"
                      "<dict><key>FwRuleCfg</key><dict/></dict>\n</plist>\n");
    std::mt19937 random(20261123);
    int64_t loaded = 0;
    for (int kill = 0; kill < kKills; ++kill) {
        Saver saver(path, static_cast<uint32_t>(loaded + 1));
        ASSERT_TRUE(saver.WaitUntilSaving()) << "kill " << kill;
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        const int64_t reported = saver.KillAndLastReported();
        ASSERT_GE(reported, loaded + 1) << "kill " << kill;

        QvConfig<Mutex> store(path.c_str());
        ASSERT_TRUE(store.isLoaded()) << "nothing loads after kill " << kill;
        loaded = StoredGeneration(store);
        ASSERT_TRUE(loaded == reported || loaded == reported + 1)
            << "kill " << kill << ": loaded generation " << loaded << ", last reported "
            << reported;
    }
}

}  // namespace
