// The lock wrappers: exclusion, shared reading, release at scope end, and the texts of
// the exceptions thrown when a lock cannot be taken.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "QvLock.h"
#include "TestUtil.h"

using namespace qor::vela;

namespace {

// The text thrown when `lock`, held by this thread, is taken once more (EDEADLK).
template <typename... Mode>
std::string lockFailureText(RwMutex& lock, Mode... mode) NO_THREAD_SAFETY_ANALYSIS {
    try {
        Guard<RwMutex> guard(lock, mode...);
    } catch (const std::string& text) {
        return text;
    }
    return "";
}

TEST(QvLockTest, MutexGuardSerialisesIncrements) {
    Mutex mutex;
    long counter = 0;  // deliberately not atomic
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                Guard<Mutex> guard(mutex);
                counter = counter + 1;
            }
        });
    }
    qvtest::joinAll(threads);
    EXPECT_EQ(8 * 20000, counter);
    // Released at the end of every scope.
    EXPECT_EQ(0, pthread_mutex_trylock(mutex.native()));
    pthread_mutex_unlock(mutex.native());
}

TEST(QvLockTest, ReadersShareAndWritersExclude) {
    RwMutex lock;
    std::atomic<int> readersInside{0};
    std::atomic<bool> release{false};
    std::vector<std::thread> readers;
    for (int t = 0; t < 2; ++t) {
        readers.emplace_back([&] {
            Guard<RwMutex> guard(lock, kShared);
            ++readersInside;
            qvtest::eventually([&] { return release.load(); });
        });
    }
    // Both readers hold the lock at once, and a writer cannot get in meanwhile.
    EXPECT_TRUE(qvtest::eventually([&] { return readersInside.load() == 2; }));
    EXPECT_NE(0, pthread_rwlock_trywrlock(lock.native()));
    release = true;
    qvtest::joinAll(readers);
    {
        Guard<RwMutex> writer(lock, kExclusive);
        EXPECT_NE(0, pthread_rwlock_tryrdlock(lock.native()));
    }
    EXPECT_EQ(0, pthread_rwlock_tryrdlock(lock.native()));
    pthread_rwlock_unlock(lock.native());
}

// A thread that holds the write lock is refused any further lock on it (EDEADLK).
TEST(QvLockTest, FailedLocksThrowTheirTexts) NO_THREAD_SAFETY_ANALYSIS {
    RwMutex lock;
    Guard<RwMutex> held(lock);
    EXPECT_EQ("fail to get the lock", lockFailureText(lock));
    EXPECT_EQ("fail to get the rdlock", lockFailureText(lock, kShared));
    EXPECT_EQ("fail to get the wrlock", lockFailureText(lock, kExclusive));
}

}  // namespace
