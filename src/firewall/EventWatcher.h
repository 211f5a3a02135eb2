// A thread that follows the firewall log like a tail and hands every ipfw line, parsed,
// to its sink: lines already in the file when it starts are not news, a file that is
// rotated, deleted or truncated is followed by name, and a missing one is created.
//
// Threads: made and destroyed by one thread; the sink and `notifyOn` are called on the
// watcher's own thread. The destructor stops the thread within one wait: a wake-up
// ends the wait at once.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "CommandRunner.h"
#include "EventSink.h"
#include "QvLock.h"
#include "Thread.h"

namespace qor {
namespace vela {

class EventWatcher {
public:
    // Starts following `path`. `shell` creates the file when it is missing; `notifyOn`
    // is asked for each event whether the notification callback hears of it.
    EventWatcher(CommandRunner& shell, EventSink& sink, std::function<bool()> notifyOn,
                 std::string path);
    ~EventWatcher();
    EventWatcher(const EventWatcher&) = delete;
    EventWatcher& operator=(const EventWatcher&) = delete;

private:
    static void* Run(void* watcher);
    void Follow();
    // The kqueue the thread waits on, published so that the destructor can wake it; -1
    // when there is none.
    void SetWakeQueue(int queue) EXCLUDES(m_wakeLock);
    void Wake() EXCLUDES(m_wakeLock);

    CommandRunner& m_shell;
    EventSink& m_sink;
    const std::function<bool()> m_notifyOn;
    const std::string m_path;
    // Read by the thread after every wait.
    std::atomic<bool> m_stop{false};
    Mutex m_wakeLock;
    int m_wakeQueue GUARDED_BY(m_wakeLock) = -1;
    // Last: the thread starts once everything it reads is in place.
    std::unique_ptr<Thread> m_thread;
};

}  // namespace vela
}  // namespace qor
