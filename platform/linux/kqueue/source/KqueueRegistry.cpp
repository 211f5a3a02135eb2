#include "KqueueRegistry.h"

#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <cerrno>
#include <string>

namespace qvkq {
namespace {

// Whether `fd` is open and is an inotify instance (a kqueue of ours or a successor
// that happens to share the number, which close() followed by kqueue() replaces).
bool isInotifyDescriptor(int fd) {
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    char target[64];
    const ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
    if (length < 0) {
        return false;
    }
    return std::string(target, static_cast<size_t>(length)) == "anon_inode:inotify";
}

}  // namespace

KqueueRegistry& KqueueRegistry::instance() {
    // Never destroyed: a watcher thread may still call kevent() during exit.
    static auto* registry = new KqueueRegistry;
    return *registry;
}

int KqueueRegistry::create() {
    const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    const int wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wakeFd < 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    sweepClosed();
    // Any entry still under this number belonged to a descriptor closed since.
    queues_[fd] = std::make_shared<Kqueue>(fd, wakeFd);
    return fd;
}

std::shared_ptr<Kqueue> KqueueRegistry::find(int fd) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = queues_.find(fd);
    if (entry == queues_.end()) {
        return nullptr;
    }
    if (!isInotifyDescriptor(fd)) {
        queues_.erase(entry);
        return nullptr;
    }
    return entry->second;
}

void KqueueRegistry::sweepClosed() {
    for (auto it = queues_.begin(); it != queues_.end();) {
        if (isInotifyDescriptor(it->first)) {
            ++it;
        } else {
            it = queues_.erase(it);
        }
    }
}

}  // namespace qvkq
