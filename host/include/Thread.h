// libQvUtil's thread class.
#pragma once

#include <pthread.h>

enum EPriority {
    PRIORITY_NORMAL = 0,  // inherit the creator's scheduling
    PRIORITY_LOW = 1,     // nice +10 for this thread only
};

// A thread that starts running `function(argument)` at construction.
//
// `blockSignals`: when true, the new thread blocks every asynchronous signal, so that
// the host's signal handling stays on its own threads; when false it inherits the
// creator's signal mask.
//
// stop() waits until the function has returned (it does not interrupt it: the function
// must watch its own stop condition). The destructor calls stop(), so no thread is ever
// left running. stop() may be called more than once and from any thread but the
// thread itself (which gets null back); concurrent calls all wait for the function.
// A Thread deleted by its own function detaches, as the thread cannot wait for itself.
class Thread {
public:
    Thread(void* (*function)(void*), void* argument, bool blockSignals, EPriority priority);
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Waits for the function to return. Returns its result (null if it never started).
    void* stop();

    // True when the thread was created (false if pthread_create failed).
    bool started() const { return m_started; }

private:
    pthread_t m_thread{};
    bool m_started = false;
    bool m_joined = false;
    void* m_result = nullptr;
};
