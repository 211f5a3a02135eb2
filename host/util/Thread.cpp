// The class is part of the library's interface; everything else here stays hidden.
#pragma GCC visibility push(default)
#include "Thread.h"
#pragma GCC visibility pop

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <new>

#include "QvLog.h"
#include "UtilLog.h"

namespace {

constexpr int kLowPriorityNice = 10;

// What the new thread needs before it calls the user's function.
struct ThreadStart {
    void* (*function)(void*);
    void* argument;
    EPriority priority;
};

void LowerOwnPriority() {
#ifdef __linux__
    // On Linux the nice value belongs to the thread, so only this thread is lowered.
    pid_t tid = static_cast<pid_t>(syscall(SYS_gettid));
    errno = 0;
    int current = getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
    if (errno == 0 &&
        setpriority(PRIO_PROCESS, static_cast<id_t>(tid), current + kLowPriorityNice) != 0) {
        QV_UTIL_LOG(4, "%s could not lower the thread's priority, errno is %d", "Thread", errno);
    }
#else
    struct sched_param param {};
    int policy = 0;
    if (pthread_getschedparam(pthread_self(), &policy, &param) == 0) {
        param.sched_priority = sched_get_priority_min(policy);
        pthread_setschedparam(pthread_self(), policy, &param);
    }
#endif
}

void* RunThread(void* raw) {
    ThreadStart start = *static_cast<ThreadStart*>(raw);
    delete static_cast<ThreadStart*>(raw);
    if (start.priority == PRIORITY_LOW) {
        LowerOwnPriority();
    }
    return start.function(start.argument);
}

// The signals a thread cannot usefully block: they report its own faults.
void AllowSynchronousSignals(sigset_t* set) {
    for (int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
        sigdelset(set, signal);
    }
}

// The joins under way, so that a second stop() of the same thread waits for the first
// instead of joining twice. Nodes live on the stack of the joining stop() call.
struct JoinInProgress {
    const Thread* thread;
    JoinInProgress* next;
};
std::mutex g_joinMutex;
std::condition_variable g_joinDone;
JoinInProgress* g_joins = nullptr;

bool IsBeingJoined(const Thread* thread) {
    for (JoinInProgress* join = g_joins; join != nullptr; join = join->next) {
        if (join->thread == thread) {
            return true;
        }
    }
    return false;
}

void ForgetJoin(const JoinInProgress* done) {
    for (JoinInProgress** link = &g_joins; *link != nullptr; link = &(*link)->next) {
        if (*link == done) {
            *link = done->next;
            return;
        }
    }
}

}  // namespace

Thread::Thread(void* (*function)(void*), void* argument, bool blockSignals, EPriority priority) {
    ThreadStart* start =
        function ? new (std::nothrow) ThreadStart{function, argument, priority} : nullptr;
    if (start == nullptr) {
        QV_UTIL_LOG(3, "%s no function or out of memory", "Thread::Thread");
        return;
    }
    // The new thread inherits the creator's mask; block around creation, then restore.
    sigset_t previous;
    if (blockSignals) {
        sigset_t blocked;
        sigfillset(&blocked);
        AllowSynchronousSignals(&blocked);
        pthread_sigmask(SIG_SETMASK, &blocked, &previous);
    }
    int error = pthread_create(&m_thread, nullptr, RunThread, start);
    if (blockSignals) {
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    }
    if (error != 0) {
        QV_UTIL_LOG(3, "%s pthread_create failed, error is %d", "Thread::Thread", error);
        delete start;
        return;
    }
    m_started = true;
}

Thread::~Thread() {
    if (m_started && pthread_equal(m_thread, pthread_self())) {
        // Destroyed by its own function: it cannot wait for itself, and it is ending.
        std::lock_guard<std::mutex> lock(g_joinMutex);
        if (!m_joined) {
            m_joined = true;
            pthread_detach(m_thread);
        }
        return;
    }
    stop();
}

void* Thread::stop() {
    if (!m_started) {
        return nullptr;
    }
    if (pthread_equal(m_thread, pthread_self())) {
        QV_UTIL_LOG(3, "%s a thread cannot stop itself", "Thread::stop");
        return nullptr;
    }
    std::unique_lock<std::mutex> lock(g_joinMutex);
    g_joinDone.wait(lock, [this] { return !IsBeingJoined(this); });
    if (m_joined) {
        return m_result;
    }
    JoinInProgress join{this, g_joins};
    g_joins = &join;
    lock.unlock();

    void* result = nullptr;
    int error = pthread_join(m_thread, &result);

    lock.lock();
    if (error != 0) {
        QV_UTIL_LOG(3, "%s pthread_join failed, error is %d", "Thread::stop", error);
    }
    m_result = result;
    m_joined = true;
    ForgetJoin(&join);
    g_joinDone.notify_all();
    return m_result;
}
