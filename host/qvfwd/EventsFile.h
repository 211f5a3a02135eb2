// The events file (--events-file): JSON records appended one per line by a writer thread
// of its own, so that the event path never waits for a disk. The queue is bounded; a
// record that finds it full, or whose write fails, is counted, never dropped unsaid.
// The file is opened again on Reopen() (SIGHUP) and whenever its path no longer names the
// open file (moved or removed by logrotate); a file truncated in place (copytruncate) is
// simply written on at its new end, since every write appends.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

namespace qvfwd {

struct EventsFileCounts {
    int64_t written = 0;
    int64_t queueFull = 0;    // found the queue full
    int64_t writeFailed = 0;  // the file could not be opened or written
    int64_t reopened = 0;
};

class EventsFile {
public:
    static constexpr size_t kDefaultCapacity = 65536;
    // Records are written in batches of up to this many, gathered for at most kGatherTime.
    static constexpr size_t kBatch = 512;
    static constexpr std::chrono::milliseconds kGatherTime{5};

    explicit EventsFile(std::string path, size_t capacity = kDefaultCapacity);
    ~EventsFile();
    EventsFile(const EventsFile&) = delete;
    EventsFile& operator=(const EventsFile&) = delete;

    // Opens the file and starts the writer. False with the reason in `error`.
    bool Start(std::string* error);
    // Queues one record (without its newline). Never blocks on the file.
    void Append(std::string record);
    // Opens the file again before the next write (or at once when idle).
    void Reopen();
    // True once everything queued so far has been written or counted, within `timeoutMs`.
    bool WaitIdle(int timeoutMs);
    // Writes what is queued, then ends the writer.
    void Stop();

    EventsFileCounts Counts() const;
    const std::string& path() const { return m_path; }

private:
    void Loop();
    bool Open();
    bool PathStillNamesFile() const;
    void WriteBatch(const std::deque<std::string>& batch);

    const std::string m_path;
    const size_t m_capacity;
    int m_fd = -1;  // the writer's alone once started
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_idle;
    std::deque<std::string> m_queue;
    bool m_reopen = false;
    bool m_writerIdle = false;
    bool m_busy = false;
    bool m_stopping = false;
    EventsFileCounts m_counts;
    std::thread m_thread;
};

}  // namespace qvfwd
