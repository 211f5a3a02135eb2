// Thread: starts at once, stop() waits and reports the result, the destructor joins,
// signal mask and priority options.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "TestUtil.h"
#include "Thread.h"

namespace {

// A thread body that announces it runs, waits for release, then finishes.
struct Gate {
    std::atomic<bool> running{false};
    std::atomic<bool> release{false};
    std::atomic<bool> finished{false};
    int result = 42;

    static void* Body(void* raw) {
        Gate* gate = static_cast<Gate*>(raw);
        gate->running = true;
        while (!gate->release) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        gate->finished = true;
        return &gate->result;
    }
};

// Releases the gate after a short delay from another thread.
std::thread ReleaseLater(Gate& gate) {
    return std::thread([&gate] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        gate.release = true;
    });
}

TEST(ThreadTest, RunsAtConstructionAndStopOrDestructorWaitsForTheResult) {
    Gate gate;
    Thread thread(Gate::Body, &gate, false, PRIORITY_NORMAL);
    ASSERT_TRUE(thread.started());
    EXPECT_TRUE(qvtest::eventually([&] { return gate.running.load(); }));
    EXPECT_FALSE(gate.finished);

    // Two threads stop it at once: both wait for the function and get its result.
    std::atomic<int> finishedSeen{0};
    void* results[2] = {nullptr, nullptr};
    std::thread stoppers[2];
    for (int i = 0; i < 2; ++i) {
        stoppers[i] = std::thread([&, i] {
            results[i] = thread.stop();
            finishedSeen += gate.finished ? 1 : 0;
        });
    }
    std::thread releaser = ReleaseLater(gate);
    qvtest::joinAll(stoppers);
    releaser.join();
    EXPECT_EQ(finishedSeen, 2) << "stop returned before the function did";
    EXPECT_EQ(results[0], &gate.result);
    EXPECT_EQ(results[1], &gate.result);
    EXPECT_EQ(thread.stop(), &gate.result) << "a later stop gives the same result";

    Thread none(nullptr, nullptr, false, PRIORITY_NORMAL);
    EXPECT_FALSE(none.started());
    EXPECT_EQ(none.stop(), nullptr);

    // The destructor waits for the function too.
    Gate second;
    std::thread secondReleaser = ReleaseLater(second);
    { Thread unstopped(Gate::Body, &second, false, PRIORITY_NORMAL); }
    EXPECT_TRUE(second.finished);
    secondReleaser.join();
}

// A thread body that gets hold of its own Thread object, tries to stop it and deletes it.
struct SelfOwner {
    std::atomic<Thread*> self{nullptr};
    std::atomic<bool> stopReturnedNull{false};
    std::atomic<bool> deleted{false};
    static void* Body(void* raw) {
        SelfOwner* owner = static_cast<SelfOwner*>(raw);
        while (owner->self.load() == nullptr) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        owner->stopReturnedNull = owner->self.load()->stop() == nullptr;
        delete owner->self.load();
        owner->deleted = true;
        return nullptr;
    }
};

TEST(ThreadTest, AThreadCanNeitherWaitForItselfNorHangWhenDeletingItself) {
    SelfOwner owner;
    owner.self = new Thread(SelfOwner::Body, &owner, false, PRIORITY_NORMAL);
    EXPECT_TRUE(qvtest::eventually([&] { return owner.deleted.load(); }));
    EXPECT_TRUE(owner.stopReturnedNull);
}

// Records, from inside the thread, its signal mask and nice value.
struct Probe {
    sigset_t mask;
    int nice = 0;
    static void* Body(void* raw) {
        Probe* probe = static_cast<Probe*>(raw);
        pthread_sigmask(SIG_SETMASK, nullptr, &probe->mask);
        probe->nice = getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)));
        return nullptr;
    }
};

// Blocking signals blocks the asynchronous ones only, and low priority lowers the nice
// value by 10; both in the new thread alone. Otherwise the creator's mask is inherited.
TEST(ThreadTest, OptionsApplyToTheNewThreadOnly) {
    const id_t creator = static_cast<id_t>(syscall(SYS_gettid));
    const int creatorNice = getpriority(PRIO_PROCESS, creator);
    sigset_t usr1;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
    Probe blocking;
    Probe plain;
    Probe low;
    Thread(Probe::Body, &blocking, true, PRIORITY_NORMAL).stop();
    Thread(Probe::Body, &plain, false, PRIORITY_NORMAL).stop();
    Thread(Probe::Body, &low, false, PRIORITY_LOW).stop();
    pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr);

    for (int signal : {SIGTERM, SIGINT, SIGCHLD}) {
        EXPECT_TRUE(sigismember(&blocking.mask, signal)) << signal;
        EXPECT_FALSE(sigismember(&plain.mask, signal)) << signal;
    }
    EXPECT_FALSE(sigismember(&blocking.mask, SIGSEGV));
    EXPECT_TRUE(sigismember(&plain.mask, SIGUSR1));
    sigset_t creatorMask;
    pthread_sigmask(SIG_SETMASK, nullptr, &creatorMask);
    EXPECT_FALSE(sigismember(&creatorMask, SIGTERM)) << "the creator's mask was left changed";

    EXPECT_EQ(low.nice, creatorNice + 10 > 19 ? 19 : creatorNice + 10);
    EXPECT_EQ(plain.nice, creatorNice);
    EXPECT_EQ(getpriority(PRIO_PROCESS, creator), creatorNice);
}

}  // namespace
