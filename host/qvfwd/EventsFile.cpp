#include "EventsFile.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

namespace qvfwd {

EventsFile::EventsFile(std::string path, size_t capacity)
    : m_path(std::move(path)), m_capacity(capacity) {}

EventsFile::~EventsFile() {
    Stop();
    if (m_fd >= 0) {
        close(m_fd);
    }
}

bool EventsFile::Open() {
    if (m_fd >= 0) {
        close(m_fd);
    }
    m_fd = open(m_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0640);
    return m_fd >= 0;
}

bool EventsFile::Start(std::string* error) {
    if (!Open()) {
        *error = "cannot open the events file " + m_path + ": " + strerror(errno);
        return false;
    }
    m_thread = std::thread([this] { Loop(); });
    return true;
}

bool EventsFile::PathStillNamesFile() const {
    struct stat named {};
    struct stat open {};
    return m_fd >= 0 && stat(m_path.c_str(), &named) == 0 && fstat(m_fd, &open) == 0 &&
           named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

void EventsFile::Append(std::string record) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_queue.size() >= m_capacity || m_stopping) {
            ++m_counts.queueFull;
            return;
        }
        m_queue.push_back(std::move(record));
        // A wake-up per record would cost the event path a system call each; the writer
        // is woken when it sleeps with nothing to do, or when a batch is full.
        if (!m_writerIdle && m_queue.size() < kBatch) {
            return;
        }
    }
    m_wake.notify_one();
}

void EventsFile::Reopen() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_reopen = true;
    }
    m_wake.notify_one();
}

void EventsFile::WriteBatch(const std::deque<std::string>& batch) {
    std::string bytes;
    for (const std::string& record : batch) {
        bytes += record;
        bytes += '\n';
    }
    size_t done = 0;
    while (m_fd >= 0 && done < bytes.size()) {
        ssize_t wrote = write(m_fd, bytes.data() + done, bytes.size() - done);
        if (wrote < 0 && errno == EINTR) {
            continue;
        }
        if (wrote <= 0) {
            break;
        }
        done += static_cast<size_t>(wrote);
    }
    // A record counts as written only when its newline reached the file.
    int64_t written = 0;
    size_t end = 0;
    for (const std::string& record : batch) {
        end += record.size() + 1;
        written += end <= done ? 1 : 0;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_counts.written += written;
    m_counts.writeFailed += static_cast<int64_t>(batch.size()) - written;
}

void EventsFile::Loop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_writerIdle = true;
        m_wake.wait(lock, [this] { return m_stopping || m_reopen || !m_queue.empty(); });
        m_writerIdle = false;
        // Gathers a batch for one write, for a moment at most.
        m_wake.wait_for(lock, kGatherTime,
                        [this] { return m_stopping || m_reopen || m_queue.size() >= kBatch; });
        std::deque<std::string> batch;
        batch.swap(m_queue);
        const bool reopen = m_reopen;
        const bool stopping = m_stopping;
        m_reopen = false;
        m_busy = true;
        lock.unlock();
        if (reopen || (!batch.empty() && !PathStillNamesFile())) {
            bool opened = Open();
            lock.lock();
            m_counts.reopened += opened ? 1 : 0;
            lock.unlock();
        }
        if (!batch.empty()) {
            WriteBatch(batch);
        }
        lock.lock();
        m_busy = false;
        if (m_queue.empty()) {
            m_idle.notify_all();
        }
        if (stopping && m_queue.empty()) {
            return;
        }
    }
}

bool EventsFile::WaitIdle(int timeoutMs) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_idle.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                           [this] { return m_queue.empty() && !m_busy && !m_reopen; });
}

void EventsFile::Stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_one();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

EventsFileCounts EventsFile::Counts() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_counts;
}

}  // namespace qvfwd
