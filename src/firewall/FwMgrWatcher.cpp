// FwMgr: the event watcher, a thread that follows the firewall log like a tail and
// reports every ipfw line to the host, through the notification callback while
// notification is on, and always through the host service.
#include <errno.h>
#include <sys/event.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "FwLogParser.h"
#include "FwMgr.h"
#include "QvDebugLog.h"
#include "QvFirewall.h"
#include "QvGeneral.h"
#include "QvIpcCall.h"
#include "ShellText.h"
#include "VelaCommonMsg.pb.h"

namespace qor {
namespace vela {

namespace {

constexpr unsigned int kSysctlTimeout = 1;
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

void Report(FwConfig& config, const EventLogItemFw& event) {
    if (config.IsNotifyEnable()) {
        std::string data;
        event.SerializeToString(&data);
        g_notify.load()(QV_EVENT_FW_LOG, data.data(), static_cast<int>(data.size()));
    }
    NullObject reply;
    QvIpcCall(QV_IPC_FW_EVENT, event, reply);
}

// Reports every complete or partial line from the read position to the end of the file.
void ReadNewLines(FwConfig& config, FILE* file, const FwLogParser& parser) {
    char line[kLineSize];
    std::memset(line, 0, sizeof line);
    while (fgets(line, sizeof line, file) != nullptr) {
        EventLogItemFw event;
        if (parser.Parse(line, static_cast<int32_t>(time(nullptr)), event)) {
            Report(config, event);
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
        QV_LOG(QV_LOG_ERROR, "%s Failed to reopen file %s, errno is %d", "NotifyFunc", path.c_str(),
               errno);
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
        QV_LOG(QV_LOG_ERROR, "%s kevent error %d", "NotifyFunc", ret);
        return false;
    }
    // A file that became shorter than the read position was truncated: follow its end.
    if (ret > 0 && event.filter == EVFILT_READ && event.data < 0 &&
        lseek(static_cast<int>(event.ident), 0, SEEK_END) < 0) {
        QV_LOG(QV_LOG_ERROR, "%s lseek error", "NotifyFunc");
    }
    return true;
}

void FollowLog(FwConfig& config, const std::atomic<bool>& stop, const std::string& path,
               struct stat known, FILE* file, int queue) {
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
        ReadNewLines(config, file, parser);
        if (!WaitForChange(queue, wait)) {
            break;
        }
    }
    if (file != nullptr) {
        fclose(file);
    }
}

}  // namespace

void FwMgr::StartNotify() {
    if (!m_shell->Run("sysctl -w net.inet.ip.fw.verbose=1", kSysctlTimeout).ok()) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to set net.inet.ip.fw.verbose to be 1",
               "FwMgr::StartNotify");
        return;
    }
    m_stop = false;
    m_thread = std::make_unique<Thread>(NotifyFunc, this, false, PRIORITY_NORMAL);
}

// Finalize stops the watcher early, before the log goes, and Final stops it again:
// verbose logging is switched off once, and only when the watcher ran.
void FwMgr::StopNotify() {
    if (m_thread == nullptr) {
        return;
    }
    m_stop = true;
    (void)m_shell->Run("sysctl -w net.inet.ip.fw.verbose=0", kSysctlTimeout);
    WakeWatcher();
    m_thread->stop();
    m_thread.reset();
}

void FwMgr::SetWakeQueue(int queue) {
    Guard<Mutex> guard(m_wakeLock);
    m_wakeQueue = queue;
}

void FwMgr::WakeWatcher() {
    Guard<Mutex> guard(m_wakeLock);
    if (m_wakeQueue < 0) {
        return;
    }
    struct kevent trigger;
    EV_SET(&trigger, kWakeIdent, EVFILT_USER, 0, NOTE_TRIGGER, 0, nullptr);
    kevent(m_wakeQueue, &trigger, 1, nullptr, 0, nullptr);
}

void* FwMgr::NotifyFunc(void* argument) {
    FwMgr& manager = *static_cast<FwMgr*>(argument);
    QV_LOG(QV_LOG_DETAIL, "%s Enter", "NotifyFunc");
    const std::string path = manager.m_fwLogPath;
    struct stat known {};
    GetFileStat(*manager.m_shell, path, known);

    const int queue = kqueue();
    if (queue < 0) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to create kqueue, errno is %d", "NotifyFunc", errno);
        return nullptr;
    }
    FILE* file = fopen(path.c_str(), "r");
    if (file == nullptr) {
        QV_LOG(QV_LOG_ERROR, "%s Failed to open file %s, err is %d", "NotifyFunc", path.c_str(),
               errno);
        close(queue);
        return nullptr;
    }
    // Lines written before the watcher started are not news.
    lseek(fileno(file), 0, SEEK_END);
    struct kevent changes[2];
    setEvent(file, queue, changes);
    struct kevent wake;
    EV_SET(&wake, kWakeIdent, EVFILT_USER, EV_ADD | EV_CLEAR, NOTE_FFNOP, 0, nullptr);
    kevent(queue, &wake, 1, nullptr, 0, nullptr);
    manager.SetWakeQueue(queue);

    FollowLog(manager.m_config, manager.m_stop, path, known, file, queue);

    manager.SetWakeQueue(-1);
    close(queue);
    return nullptr;
}

}  // namespace vela
}  // namespace qor
