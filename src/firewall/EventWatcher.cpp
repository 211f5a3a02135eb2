#include "EventWatcher.h"

#include <errno.h>
#include <sys/event.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "FwLogParser.h"
#include "QvDebugLog.h"
#include "ShellText.h"

namespace qor {
namespace vela {

namespace {

constexpr unsigned int kTouchTimeout = 3;
constexpr time_t kWaitSeconds = 3;
// While the log file is missing the watcher looks again this often, instead of spinning.
constexpr long kMissingFileRecheckNs = 50L * 1000 * 1000;
constexpr uintptr_t kWakeIdent = 1;
constexpr size_t kLineSize = 4096;

// The file's status in `status`, creating the file when it is missing.
void GetFileStat(CommandRunner& shell, const std::string& path, struct stat& status) {
    if (stat(path.c_str(), &status) == 0) {
        return;
    }
    QV_LOG(QV_LOG_ERROR, "%s Failed to open file %s, errno is %d", "GetFileStat", path.c_str(),
           errno);
    if (!IsPlainShellWord(path)) {
        QV_LOG(QV_LOG_ERROR, "%s Unsafe path %s, not created", "GetFileStat", path.c_str());
        return;
    }
    if (!shell.Run("touch " + path, kTouchTimeout).ok() || stat(path.c_str(), &status) != 0) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to create file %s", "GetFileStat", path.c_str());
    }
}

// Watches the open log file for deletion, renaming and new data.
void setEvent(FILE* file, int queue, struct kevent* changes) {
    const int fd = fileno(file);
    EV_SET(&changes[0], fd, EVFILT_VNODE, EV_ADD | EV_ENABLE | EV_CLEAR, NOTE_DELETE | NOTE_RENAME,
           0, nullptr);
    EV_SET(&changes[1], fd, EVFILT_READ, EV_ADD | EV_ENABLE | EV_CLEAR, 0, 0, nullptr);
    const int ret = kevent(queue, changes, 2, nullptr, 0, nullptr);
    if (ret < 0) {
        QV_LOG(QV_LOG_ERROR, "%s kevent error %d", "setEvent", ret);
    }
}

bool SameFile(const struct stat& known, const struct stat& now) {
    return now.st_ino == known.st_ino && now.st_dev == known.st_dev && known.st_nlink != 0;
}

// Reports every complete or partial line from the read position to the end of the file.
void ReadNewLines(EventSink& sink, const std::function<bool()>& notifyOn, FILE* file,
                  const FwLogParser& parser) {
    char line[kLineSize];
    std::memset(line, 0, sizeof line);
    while (fgets(line, sizeof line, file) != nullptr) {
        EventLogItemFw event;
        if (parser.Parse(line, static_cast<int32_t>(time(nullptr)), event)) {
            sink.Report(event, notifyOn());
        }
        std::memset(line, 0, sizeof line);
    }
    clearerr(file);
}

// A file that is gone or replaced is opened again by name and read from its beginning.
// False when it could not be reopened; `file` is then null.
bool FollowRotation(const std::string& path, const struct stat& now, struct stat& known,
                    FILE*& file, int queue) {
    if (file != nullptr && SameFile(known, now)) {
        return true;
    }
    file = file != nullptr ? freopen(path.c_str(), "r", file) : fopen(path.c_str(), "r");
    if (file == nullptr) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to reopen file %s, errno is %d", "EventWatcher",
               path.c_str(), errno);
        return false;
    }
    known = now;
    struct kevent changes[2];
    setEvent(file, queue, changes);
    return true;
}

// Waits for news of the file or a wake-up. False when the wait itself failed.
bool WaitForChange(int queue, const struct timespec& timeout) {
    struct kevent event {};
    const int ret = kevent(queue, nullptr, 0, &event, 1, &timeout);
    if (ret < 0) {
        QV_LOG(QV_LOG_ERROR, "%s kevent error %d", "EventWatcher", ret);
        return false;
    }
    // A file that became shorter than the read position was truncated: follow its end.
    if (ret > 0 && event.filter == EVFILT_READ && event.data < 0 &&
        lseek(static_cast<int>(event.ident), 0, SEEK_END) < 0) {
        QV_LOG(QV_LOG_ERROR, "%s lseek error", "EventWatcher");
    }
    return true;
}

void FollowLog(EventSink& sink, const std::function<bool()>& notifyOn,
               const std::atomic<bool>& stop, const std::string& path, struct stat known,
               FILE* file, int queue) {
    FwLogParser parser;
    const struct timespec wait = {kWaitSeconds, 0};
    const struct timespec recheck = {0, kMissingFileRecheckNs};
    while (!stop) {
        struct stat now {};
        if (stat(path.c_str(), &now) != 0) {
            // A wait that fails at once (seen when the log's whole tree was deleted
            // under a running daemon) must not turn the recheck into a spin.
            if (!WaitForChange(queue, recheck)) {
                nanosleep(&recheck, nullptr);
            }
            continue;
        }
        if (!FollowRotation(path, now, known, file, queue)) {
            continue;
        }
        ReadNewLines(sink, notifyOn, file, parser);
        if (!WaitForChange(queue, wait)) {
            break;
        }
    }
    if (file != nullptr) {
        fclose(file);
    }
}

}  // namespace

EventWatcher::EventWatcher(CommandRunner& shell, EventSink& sink, std::function<bool()> notifyOn,
                           std::string path)
    : m_shell(shell),
      m_sink(sink),
      m_notifyOn(std::move(notifyOn)),
      m_path(std::move(path)),
      m_thread(std::make_unique<Thread>(Run, this, false, PRIORITY_NORMAL)) {}

EventWatcher::~EventWatcher() {
    m_stop = true;
    Wake();
    m_thread->stop();
}

void EventWatcher::SetWakeQueue(int queue) {
    Guard<Mutex> guard(m_wakeLock);
    m_wakeQueue = queue;
}

void EventWatcher::Wake() {
    Guard<Mutex> guard(m_wakeLock);
    if (m_wakeQueue < 0) {
        return;
    }
    struct kevent trigger;
    EV_SET(&trigger, kWakeIdent, EVFILT_USER, 0, NOTE_TRIGGER, 0, nullptr);
    kevent(m_wakeQueue, &trigger, 1, nullptr, 0, nullptr);
}

void* EventWatcher::Run(void* watcher) {
    static_cast<EventWatcher*>(watcher)->Follow();
    return nullptr;
}

void EventWatcher::Follow() {
    QV_LOG(QV_LOG_DETAIL, "%s Enter", "EventWatcher");
    struct stat known {};
    GetFileStat(m_shell, m_path, known);

    const int queue = kqueue();
    if (queue < 0) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to create kqueue, errno is %d", "EventWatcher", errno);
        return;
    }
    FILE* file = fopen(m_path.c_str(), "r");
    if (file == nullptr) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to open file %s, err is %d", "EventWatcher", m_path.c_str(),
               errno);
        close(queue);
        return;
    }
    // Lines written before the watcher started are not news.
    lseek(fileno(file), 0, SEEK_END);
    struct kevent changes[2];
    setEvent(file, queue, changes);
    struct kevent wake;
    EV_SET(&wake, kWakeIdent, EVFILT_USER, EV_ADD | EV_CLEAR, NOTE_FFNOP, 0, nullptr);
    kevent(queue, &wake, 1, nullptr, 0, nullptr);
    SetWakeQueue(queue);

    FollowLog(m_sink, m_notifyOn, m_stop, m_path, known, file, queue);

    SetWakeQueue(-1);
    close(queue);
}

}  // namespace vela
}  // namespace qor
