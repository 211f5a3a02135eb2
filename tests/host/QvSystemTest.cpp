// QvSystem with real shells: capture, truncation, streams, status, time-outs, threads and
// descriptor hygiene.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "QvUtil.h"
#include "TempDir.h"
#include "TestUtil.h"

namespace {

using qvtest::readFile;
using qvtest::secondsSince;
using qvtest::splitLines;
using qvtest::TempDir;
using Clock = std::chrono::steady_clock;

std::string RunShell(const std::string& command, bool* ok = nullptr, unsigned int timeout = 10,
                     unsigned int size = 4096) {
    std::vector<char> buffer(size, '#');
    bool result = QvSystem(command.c_str(), buffer.data(), size, timeout);
    if (ok) {
        *ok = result;
    }
    return buffer.data();
}

TEST(QvSystemTest, EightThreadsCaptureOutputAndLearnWhetherTheShellRan) {
    const struct {
        const char* name;
        std::string command;
        unsigned int timeout;
        unsigned int size;
        const char* output;
        bool ok;
    } rows[] = {
        {"capture", "printf 'hello\\nworld'; echo ' and more'", 10, 4096, "hello\nworld and more\n",
         true},
        // Far more than a pipe holds, so the command finishes only if the rest is drained.
        {"truncation", "head -c 300000 /dev/zero | tr '\\0' x; echo tail", 10, 16,
         "xxxxxxxxxxxxxxx", true},
        {"exact fit", "printf abc", 10, 4, "abc", true},
        {"stdin", "cat; readlink /proc/$$/fd/0", 10, 4096, "/dev/null\n", true},
        {"exit status", "echo partial; exit 3", 10, 4096, "partial\n", true},
        {"signal", "echo before; kill -TERM $$; echo after", 10, 4096, "before\n", false},
        {"zero time-out", "sleep 1.2; echo late", 0, 4096, "late\n", true},
        {"own group", "test $$ = $(cut -d' ' -f5 /proc/$$/stat) && echo leader", 10, 4096,
         "leader\n", true},
        // Done when the shell exits, though a background child still holds the output.
        {"background child", "sleep 4 2>/dev/null & echo foreground", 0, 4096, "foreground\n",
         true},
    };
    // Eight threads run the table at once, each from another row on, and each must get
    // its own output.
    constexpr size_t kThreads = 8;
    std::vector<std::thread> threads;
    for (size_t t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &rows] {
            for (size_t i = 0; i < std::size(rows); ++i) {
                const auto& row = rows[(i + t) % std::size(rows)];
                bool ok = !row.ok;
                Clock::time_point start = Clock::now();
                EXPECT_EQ(RunShell(row.command, &ok, row.timeout, row.size), row.output)
                    << row.name;
                EXPECT_EQ(ok, row.ok) << row.name;
                EXPECT_LT(secondsSince(start), 3.0) << row.name;
            }
        });
    }
    qvtest::joinAll(threads);
    EXPECT_TRUE(QvSystem("false", nullptr, 0, 5));
    EXPECT_FALSE(QvSystem("kill -KILL $$", nullptr, 0, 5));
    // Without a buffer the output is discarded.
    EXPECT_TRUE(QvSystem("echo discarded", nullptr, 0, 5));
    char one = '#';
    EXPECT_TRUE(QvSystem("echo discarded", &one, 1, 5));
    EXPECT_EQ(one, '\0');
    EXPECT_FALSE(QvSystem(nullptr, nullptr, 0, 5));
}

bool ProcessGone(pid_t pid) {
    // A zombie awaiting its new parent counts as gone: it no longer runs.
    std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    if (stat.empty()) {
        return true;
    }
    size_t close = stat.rfind(')');
    return close != std::string::npos && stat.compare(close + 2, 1, "Z") == 0;
}

TEST(QvSystemTest, TimeOutKillsTheWholeGroupEvenWhenItIgnoresTerm) {
    TempDir dir;
    std::string pidFile = dir.file("grandchild");
    std::string command = "trap '' TERM; (trap '' TERM; sleep 60) & echo $! > " + pidFile +
                          "; echo started; sleep 60";
    Clock::time_point start = Clock::now();
    bool ok = true;
    std::string output = RunShell(command, &ok, 1);
    double elapsed = secondsSince(start);
    EXPECT_FALSE(ok);
    EXPECT_EQ(output, "started\n");
    EXPECT_GE(elapsed, 0.9);
    EXPECT_LT(elapsed, 5.0);

    pid_t grandchild = static_cast<pid_t>(std::stol(readFile(pidFile)));
    EXPECT_TRUE(qvtest::eventually([&] { return ProcessGone(grandchild); }))
        << "grandchild " << grandchild << " survived";
}

// Standard error stays the caller's; no other descriptor of the caller reaches the child,
// not even those opened the careless way, without close-on-exec, as other code in a host
// might.
TEST(QvSystemTest, ChildGetsTheStandardStreamsOnly) {
    TempDir dir;
    std::string errPath = dir.file("stderr");
    int saved = dup(STDERR_FILENO);
    int file = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    int pair[2];
    ASSERT_GE(file, 0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    dup2(file, STDERR_FILENO);
    bool ok = false;
    // ls runs as a child, so the listing shows the shell's descriptors and no helper's.
    std::string listing = RunShell("ls /proc/$$/fd; echo to-err >&2", &ok);
    dup2(saved, STDERR_FILENO);
    for (int fd : {saved, file, pair[0], pair[1]}) {
        close(fd);
    }
    EXPECT_TRUE(ok);
    EXPECT_EQ(readFile(errPath), "to-err\n");
    std::vector<std::string> lines = splitLines(listing);
    std::set<std::string> numbers(lines.begin(), lines.end());
    EXPECT_TRUE(numbers.count("0") && numbers.count("1") && numbers.count("2")) << listing;
    for (int fd : {saved, file, pair[0], pair[1]}) {
        EXPECT_EQ(numbers.count(std::to_string(fd)), 0u) << listing;
    }
}

TEST(QvSystemTest, ChildStartsWithNoSignalsBlockedOrIgnored) {
    // A host thread that blocks every signal and ignores SIGPIPE must not pass that on.
    // The probe reads its own status: the shell itself blocks signals for a moment
    // whenever it starts a command, and the command inherits the shell's normal mask.
    std::string status;
    std::thread caller([&status] {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        status = RunShell("grep -E '^Sig(Blk|Ign)' /proc/self/status");
    });
    caller.join();
    struct sigaction previous {};
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &previous);
    std::string ignoredStatus = RunShell("grep '^SigIgn' /proc/self/status");
    sigaction(SIGPIPE, &previous, nullptr);

    EXPECT_NE(status.find("SigBlk:\t0000000000000000"), std::string::npos) << status;
    ASSERT_EQ(ignoredStatus.rfind("SigIgn:\t", 0), 0u) << ignoredStatus;
    unsigned long long ignored = std::stoull(ignoredStatus.substr(8), nullptr, 16);
    EXPECT_EQ(ignored & (1ull << (SIGPIPE - 1)), 0u) << ignoredStatus;
}

}  // namespace
