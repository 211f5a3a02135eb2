// Lock wrappers over pthread mutexes and read-write locks, with scope guards. They carry
// Clang's capability attributes, so what a lock guards is checked by the compiler.
//
// These are the only classes of the plug-in that throw: construction and locking
// failures are thrown as std::string, because a lock that cannot be taken leaves no
// sensible code path to continue on.
#pragma once

#include <errno.h>
#include <pthread.h>
#include <unistd.h>

#include <string>

#include "QvThreadSafety.h"

namespace qor {
namespace vela {

class CAPABILITY("mutex") Mutex {
public:
    Mutex() {
        int rc;
        while ((rc = pthread_mutex_init(&m_mutex, nullptr)) == EAGAIN) {
            usleep(100);
        }
        if (rc != 0) {
            throw std::string("fail to pthread_mutex_init");
        }
    }
    ~Mutex() { pthread_mutex_destroy(&m_mutex); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    pthread_mutex_t* native() { return &m_mutex; }

private:
    pthread_mutex_t m_mutex;
};

class CAPABILITY("mutex") RwMutex {
public:
    RwMutex() {
        int rc;
        while ((rc = pthread_rwlock_init(&m_lock, nullptr)) == EAGAIN) {
            usleep(100);
        }
        if (rc != 0) {
            // The same text as Mutex on purpose: callers match on it.
            throw std::string("fail to pthread_mutex_init");
        }
    }
    ~RwMutex() { pthread_rwlock_destroy(&m_lock); }
    RwMutex(const RwMutex&) = delete;
    RwMutex& operator=(const RwMutex&) = delete;

    pthread_rwlock_t* native() { return &m_lock; }

private:
    pthread_rwlock_t m_lock;
};

// How a guard holds a read-write lock: shared among readers, or exclusively.
struct SharedAccess {};
struct ExclusiveAccess {};
constexpr SharedAccess kShared{};
constexpr ExclusiveAccess kExclusive{};

template <typename Lock>
class Guard;

template <>
class SCOPED_CAPABILITY Guard<Mutex> {
public:
    explicit Guard(Mutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) {
        if (pthread_mutex_lock(m_mutex.native()) != 0) {
            throw std::string("fail to get the lock");
        }
    }
    ~Guard() RELEASE() { pthread_mutex_unlock(m_mutex.native()); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    Mutex& m_mutex;
};

template <>
class SCOPED_CAPABILITY Guard<RwMutex> {
public:
    // The write lock.
    explicit Guard(RwMutex& lock) ACQUIRE(lock) : m_lock(lock) {
        if (pthread_rwlock_wrlock(m_lock.native()) != 0) {
            throw std::string("fail to get the lock");
        }
    }
    Guard(RwMutex& lock, ExclusiveAccess) ACQUIRE(lock) : m_lock(lock) {
        if (pthread_rwlock_wrlock(m_lock.native()) != 0) {
            throw std::string("fail to get the wrlock");
        }
    }
    Guard(RwMutex& lock, SharedAccess) ACQUIRE_SHARED(lock) : m_lock(lock) {
        if (pthread_rwlock_rdlock(m_lock.native()) != 0) {
            throw std::string("fail to get the rdlock");
        }
    }
    ~Guard() RELEASE_GENERIC() { pthread_rwlock_unlock(m_lock.native()); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    RwMutex& m_lock;
};

}  // namespace vela
}  // namespace qor
