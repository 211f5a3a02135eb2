// Lock wrappers over pthread mutexes and read-write locks, with scope guards.
//
// These are the only classes of the plug-in that throw: construction and locking
// failures are thrown as std::string, because a lock that cannot be taken leaves no
// sensible code path to continue on.
#pragma once

#include <errno.h>
#include <pthread.h>
#include <unistd.h>

#include <string>

namespace qor {
namespace vela {

class Mutex {
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

class RwMutex {
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

template <typename Lock>
class Guard;

template <>
class Guard<Mutex> {
public:
    explicit Guard(Mutex& mutex) : m_mutex(mutex) {
        if (pthread_mutex_lock(m_mutex.native()) != 0) {
            throw std::string("fail to get the lock");
        }
    }
    ~Guard() { pthread_mutex_unlock(m_mutex.native()); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    Mutex& m_mutex;
};

template <>
class Guard<RwMutex> {
public:
    // Exclusive (write) lock.
    explicit Guard(RwMutex& lock) : m_lock(lock) {
        if (pthread_rwlock_wrlock(m_lock.native()) != 0) {
            throw std::string("fail to get the lock");
        }
    }
    // Shared lock when `read` is true, exclusive otherwise.
    Guard(RwMutex& lock, bool read) : m_lock(lock) {
        if (read) {
            if (pthread_rwlock_rdlock(m_lock.native()) != 0) {
                throw std::string("fail to get the rdlock");
            }
        } else if (pthread_rwlock_wrlock(m_lock.native()) != 0) {
            throw std::string("fail to get the wrlock");
        }
    }
    ~Guard() { pthread_rwlock_unlock(m_lock.native()); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    RwMutex& m_lock;
};

}  // namespace vela
}  // namespace qor
