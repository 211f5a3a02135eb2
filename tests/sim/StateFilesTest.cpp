// The files ipfw keeps and writes on the machine, against another user of it: the rule
// state, its lock and the log appends, in directories such a user may be able to write;
// and the system's name databases as ipfw reads them.

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

#include "FileStateStore.h"
#include "FreeBsdTools.h"
#include "ScopedEnv.h"
#include "SystemEnvironment.h"
#include "SystemNameService.h"
#include "TempDir.h"

namespace {

using ipfwsim::FileStateStore;
using ipfwsim::Status;
using qvtest::readFile;
using qvtest::writeFile;

constexpr uid_t kNobody = 65534;

mode_t ModeOf(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

Status ReadState(const std::string& path, bool exclusive, int lockSeconds = 0) {
    FileStateStore store(path, exclusive, lockSeconds);
    std::string_view content;
    return store.read(content);
}

// Holds the state's lock as another ipfw would, through a descriptor of its own.
class LockHolder {
public:
    LockHolder(const std::string& lockPath, int operation)
        : m_fd(open(lockPath.c_str(), O_RDWR | O_CLOEXEC)) {
        EXPECT_EQ(flock(m_fd, operation | LOCK_NB), 0) << lockPath;
    }
    ~LockHolder() { close(m_fd); }

private:
    int m_fd;
};

class IpfwStateFiles : public ::testing::Test {
protected:
    std::string Rules() const { return m_dir.file("rules"); }
    std::string Lock() const { return m_dir.file("rules.lock"); }

    qvtest::TempDir m_dir;
};

TEST_F(IpfwStateFiles, CreatesDirectoriesAndFilesForItsUserAlone) {
    const mode_t umaskBefore = umask(0);  // the modes are the store's, not the umask's
    const std::string rules = m_dir.file("a/b/rules");
    const Status status = ReadState(rules, false);
    umask(umaskBefore);
    ASSERT_TRUE(status.ok()) << status.message;
    EXPECT_EQ(ModeOf(m_dir.file("a")), 0700u);
    EXPECT_EQ(ModeOf(m_dir.file("a/b")), 0700u);
    EXPECT_EQ(ModeOf(rules), 0600u);
    EXPECT_EQ(ModeOf(rules + ".lock"), 0600u);

    // Files an earlier version left open to all are closed to others on the next use.
    chmod(rules.c_str(), 0644);
    chmod((rules + ".lock").c_str(), 0666);
    ASSERT_TRUE(ReadState(rules, true).ok());
    EXPECT_EQ(ModeOf(rules), 0600u);
    EXPECT_EQ(ModeOf(rules + ".lock"), 0600u);
}

// A link planted in place of the state or its lock is refused, shared or exclusive, and
// what it points at is neither created nor changed.
TEST_F(IpfwStateFiles, RefusesSymbolicLinksInPlaceOfItsFiles) {
    const std::string target = m_dir.file("victim");
    ASSERT_EQ(symlink(target.c_str(), Lock().c_str()), 0);
    for (bool exclusive : {false, true}) {
        const Status status = ReadState(Rules(), exclusive);
        EXPECT_EQ(status.code, 77);
        EXPECT_EQ(status.message, Lock() + " is a symbolic link; refusing to use it");
    }
    EXPECT_EQ(ModeOf(target), 0u) << "a dangling link's target was created";

    unlink(Lock().c_str());
    writeFile(target, "not a rule state");
    ASSERT_EQ(symlink(target.c_str(), Rules().c_str()), 0);
    for (bool exclusive : {false, true}) {
        const Status status = ReadState(Rules(), exclusive);
        EXPECT_EQ(status.code, 77);
        EXPECT_EQ(status.message, Rules() + " is a symbolic link; refusing to use it");
    }
    EXPECT_EQ(readFile(target), "not a rule state");
    EXPECT_EQ(ModeOf(Rules()) & 0777, 0777u) << "the link itself stays";
}

// Whatever the mode, a lock file of another user is not ours to wait on: its owner can
// hold it for ever.
TEST_F(IpfwStateFiles, RefusesALockFileOfAnotherUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to give a file to another user";
    }
    writeFile(Lock(), "");
    ASSERT_EQ(chown(Lock().c_str(), kNobody, kNobody), 0);
    const Status status = ReadState(Rules(), true);
    EXPECT_EQ(status.code, 77);
    EXPECT_EQ(status.message, Lock() + " belongs to uid 65534, not to uid 0; refusing to use it");
    EXPECT_EQ(ModeOf(Rules()), 0u) << "no state was made beside a refused lock";
}

// Even where another user may reach the directory (made 0755 by someone else), the
// files are for root alone: such a user can neither hold the lock nor read the rules.
TEST_F(IpfwStateFiles, AnotherUserCannotTakeTheLock) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root to act as another user";
    }
    ASSERT_EQ(chmod(m_dir.path().c_str(), 0755), 0);
    ASSERT_TRUE(ReadState(Rules(), true).ok());
    const pid_t child = fork();
    if (child == 0) {
        if (setgid(kNobody) != 0 || setuid(kNobody) != 0) {
            _exit(10);
        }
        const bool lockOpened = open(Lock().c_str(), O_RDONLY) >= 0;
        const bool rulesOpened = open(Rules().c_str(), O_RDONLY) >= 0;
        const bool stored = ReadState(Rules(), false).ok();
        _exit(lockOpened ? 1 : rulesOpened ? 2 : stored ? 3 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0)
        << "1: opened the lock, 2: opened the rules, 3: used the store, 10: no setuid";
}

TEST_F(IpfwStateFiles, GivesUpWaitingForTheLockAfterItsTimeOut) {
    ASSERT_TRUE(ReadState(Rules(), true).ok());
    {
        LockHolder other(Lock(), LOCK_EX);
        FileStateStore store(Rules(), false, 1);
        std::string_view content;
        Status status = store.read(content);
        EXPECT_EQ(status.code, 75);
        EXPECT_EQ(status.message,
                  "waited 1 s for the lock on " + Lock() + " (held by another ipfw); giving up");
        EXPECT_EQ(store.append("x").code, 75) << "a failed wait must not count as the lock";
    }
    EXPECT_TRUE(ReadState(Rules(), true).ok()) << "free again";

    LockHolder lister(Lock(), LOCK_SH);
    EXPECT_TRUE(ReadState(Rules(), false).ok()) << "listings share the lock";
    EXPECT_EQ(ReadState(Rules(), true).code, 75) << "a change waits for the listing";
}

TEST_F(IpfwStateFiles, LogAppendsDoNotFollowASymbolicLink) {
    std::unique_ptr<ipfwsim::SystemEnvironment> env;
    ASSERT_TRUE(ipfwsim::SystemEnvironment::create(env).ok());
    const std::string target = m_dir.file("victim");
    const std::string link = m_dir.file("ipfw.log");
    writeFile(target, "untouched\n");
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    const Status refused = env->appendToFile(link, "line\n");
    EXPECT_EQ(refused.code, 74);
    EXPECT_EQ(refused.message,
              "cannot append to " + link + ": it is a symbolic link; refusing to follow it");
    EXPECT_EQ(readFile(target), "untouched\n");

    unlink(link.c_str());
    EXPECT_TRUE(env->appendToFile(link, "one\n").ok());
    EXPECT_TRUE(env->appendToFile(link, "two\n").ok());
    EXPECT_EQ(readFile(link), "one\ntwo\n");
}

// The package builds ipfw with its own default (QV_IPFW_STATE_DEFAULT); the variable
// still wins.
TEST_F(IpfwStateFiles, TheStateIsWhereTheVariableSaysElseWhereTheBuildSays) {
    {
        qvtest::ScopedEnv unset("IPFW_SIM_STATE", nullptr);
        EXPECT_EQ(ipfwsim::StatePath(), QV_IPFW_STATE_DEFAULT);
    }
    qvtest::ScopedEnv set("IPFW_SIM_STATE", Rules());
    EXPECT_EQ(ipfwsim::StatePath(), Rules());
}

// Names are looked up once per process: a second answer is the first one, and a name the
// databases lack stays unknown (kept as a miss, never as port or protocol 0). The system's
// own database is the oracle, so that a machine without /etc/services passes too.
TEST(SystemNameServiceTest, RepeatedLookupsAnswerAsTheFirstMissesIncluded) {
    const ipfwsim::SystemNameService names(true, "");
    const servent* entry = getservbyname("domain", "udp");
    const bool known = entry != nullptr;
    const uint16_t domain = known ? ntohs(static_cast<uint16_t>(entry->s_port)) : 7;
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE("lookup " + std::to_string(round + 1));
        uint8_t protocol = 99;
        EXPECT_TRUE(names.protocolByName("udp", protocol));
        EXPECT_EQ(protocol, 17);
        EXPECT_FALSE(names.protocolByName("nosuchprotocol", protocol));
        EXPECT_EQ(protocol, 17);
        uint16_t port = 7;
        EXPECT_FALSE(names.serviceByName("nosuchservice", "tcp", port));
        EXPECT_EQ(port, 7);
        EXPECT_EQ(names.serviceByName("domain", "udp", port), known);
        EXPECT_EQ(port, domain);
    }
}

}  // namespace
