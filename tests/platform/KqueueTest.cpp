// The kqueue subset on real files: what the log watcher relies on. Following a rotated
// file through a reopened descriptor is tested on the watcher itself (tests/e2e).
#include "support/TempDir.h"
#include "support/TestUtil.h"

#include <gtest/gtest.h>
#include <sys/event.h>

#include <fcntl.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>

namespace qvtest {
namespace {

// One EVFILT_USER change without an event list, as the watcher makes them: 0, or -1.
int changeUser(int queue, uintptr_t ident, unsigned short flags, unsigned int fflags) {
    struct kevent change {};
    EV_SET(&change, ident, EVFILT_USER, flags, fflags, 0, nullptr);
    const timespec zero{0, 0};
    return kevent(queue, &change, 1, nullptr, 0, &zero);
}

int pollOne(int queue, struct kevent& event) {
    const timespec zero{0, 0};
    return kevent(queue, nullptr, 0, &event, 1, &zero);
}

// Whether thread `tid` of this process sleeps, i.e. is blocked in a wait.
bool threadSleeps(pid_t tid) {
    std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string line;
    std::getline(stat, line);
    const size_t nameEnd = line.rfind(')');
    return nameEnd != std::string::npos && nameEnd + 2 < line.size() && line[nameEnd + 2] == 'S';
}

size_t openDescriptorCount() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

// A followed log file: a writer, a reader at the end of the file, and a kqueue with
// the watcher's two registrations on the reader.
class FollowedFile : public ::testing::Test {
protected:
    void SetUp() override {
        path_ = dir_.file("ipfw.log");
        writer_ = open(path_.c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600);
        ASSERT_GE(writer_, 0);
        append("written before the watcher started\n");
        reader_ = open(path_.c_str(), O_RDONLY);
        ASSERT_GE(reader_, 0);
        ASSERT_GE(lseek(reader_, 0, SEEK_END), 0);
        queue_ = kqueue();
        ASSERT_GE(queue_, 0);
        ASSERT_EQ(registerWatcherEvents(reader_), 0);
    }

    void TearDown() override {
        for (int fd : {writer_, reader_, queue_}) {
            if (fd >= 0) {
                close(fd);
            }
        }
    }

    int registerWatcherEvents(int fd) {
        struct kevent changes[2];
        EV_SET(&changes[0], fd, EVFILT_VNODE, EV_ADD | EV_ENABLE | EV_CLEAR,
               NOTE_DELETE | NOTE_RENAME, 0, nullptr);
        EV_SET(&changes[1], fd, EVFILT_READ, EV_ADD | EV_ENABLE | EV_CLEAR, 0, 0, nullptr);
        const timespec zero{0, 0};
        return kevent(queue_, changes, 2, nullptr, 0, &zero);
    }

    void append(const std::string& text) {
        ASSERT_EQ(write(writer_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    // Waits up to two seconds for one event.
    int waitOne(struct kevent& event) {
        const timespec timeout{2, 0};
        return kevent(queue_, nullptr, 0, &event, 1, &timeout);
    }

    TempDir dir_;
    std::string path_;
    int writer_ = -1;
    int reader_ = -1;
    int queue_ = -1;
};

TEST_F(FollowedFile, AppendAndTruncationReportTheUnreadBytes) {
    append("ipfw: 3100 Deny TCP\n");
    struct kevent event {};
    ASSERT_EQ(waitOne(event), 1);
    EXPECT_EQ(event.ident, static_cast<uintptr_t>(reader_));
    EXPECT_EQ(event.filter, EVFILT_READ);
    EXPECT_EQ(event.data, 20);

    // Reported and cleared: nothing more until the file changes again.
    EXPECT_EQ(pollOne(queue_, event), 0);
    char buffer[64];
    ASSERT_EQ(read(reader_, buffer, sizeof buffer), 20);
    append("second\n");
    ASSERT_EQ(waitOne(event), 1);
    EXPECT_EQ(event.data, 7);

    // Truncated under the reader, which stands at byte 55: a negative remainder.
    ASSERT_EQ(ftruncate(writer_, 0), 0);
    ASSERT_EQ(waitOne(event), 1);
    EXPECT_EQ(event.filter, EVFILT_READ);
    EXPECT_EQ(event.data, -55);
}

TEST_F(FollowedFile, RenameAndDeleteOfTheFileItself) {
    ASSERT_EQ(rename(path_.c_str(), (path_ + ".0").c_str()), 0);
    struct kevent event {};
    ASSERT_EQ(waitOne(event), 1);
    EXPECT_EQ(event.filter, EVFILT_VNODE);
    EXPECT_EQ(event.fflags, static_cast<unsigned>(NOTE_RENAME));

    // Still open here, so only the link count drops; it wakes a wait without time-out.
    ASSERT_EQ(unlink((path_ + ".0").c_str()), 0);
    ASSERT_EQ(kevent(queue_, nullptr, 0, &event, 1, nullptr), 1);
    EXPECT_EQ(event.filter, EVFILT_VNODE);
    EXPECT_EQ(event.fflags, static_cast<unsigned>(NOTE_DELETE));
}

TEST_F(FollowedFile, UserTriggerFromAnotherThreadWakesALongWait) {
    constexpr uintptr_t kIdent = 4242;
    ASSERT_EQ(changeUser(queue_, kIdent, EV_ADD | EV_CLEAR, NOTE_FFNOP), 0);

    std::atomic<pid_t> waiterId{0};
    struct kevent events[4];
    auto waiter = std::async(std::launch::async, [&] {
        waiterId = gettid();
        const timespec timeout{10, 0};
        return kevent(queue_, nullptr, 0, events, 4, &timeout);
    });
    // Trigger only once the waiter is blocked, so that a wait in progress must be woken.
    ASSERT_TRUE(eventually([&] { return waiterId != 0 && threadSleeps(waiterId); }));
    ASSERT_EQ(changeUser(queue_, kIdent, 0, NOTE_TRIGGER), 0);

    ASSERT_EQ(waiter.wait_for(std::chrono::seconds(5)), std::future_status::ready)
        << "the trigger did not wake the wait before its time-out";
    ASSERT_EQ(waiter.get(), 1);
    EXPECT_EQ(events[0].ident, kIdent);
    EXPECT_EQ(events[0].filter, EVFILT_USER);
    // EV_CLEAR: reported once.
    EXPECT_EQ(pollOne(queue_, events[0]), 0);
}

TEST_F(FollowedFile, ClosedQueueIsGoneAndOthersAreUnaffected) {
    const int other = kqueue();
    ASSERT_GE(other, 0);
    struct kevent change {};
    EV_SET(&change, reader_, EVFILT_READ, EV_ADD | EV_CLEAR, 0, 0, nullptr);
    const timespec zero{0, 0};
    ASSERT_EQ(kevent(other, &change, 1, nullptr, 0, &zero), 0);

    const size_t descriptorsBeforeClose = openDescriptorCount();
    ASSERT_EQ(close(queue_), 0);
    struct kevent event {};
    EXPECT_EQ(kevent(queue_, nullptr, 0, &event, 1, &zero), -1);
    EXPECT_EQ(errno, EBADF);
    queue_ = -1;
    // Its wake-up descriptor went with it.
    EXPECT_EQ(openDescriptorCount(), descriptorsBeforeClose - 2);

    append("after close\n");
    const timespec timeout{2, 0};
    ASSERT_EQ(kevent(other, nullptr, 0, &event, 1, &timeout), 1);
    EXPECT_EQ(event.data, 12);
    close(other);
}

}  // namespace
}  // namespace qvtest
