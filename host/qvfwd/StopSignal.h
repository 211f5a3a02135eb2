// A one-way "stop now" that threads blocked in poll() can wait on beside their sockets:
// a pipe whose read end becomes readable, for every waiter at once, when Raise() is
// called. Raising twice is harmless.
#pragma once

#include <atomic>

namespace qvfwd {

class StopSignal {
public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    bool valid() const { return m_readFd >= 0; }
    void Raise();
    bool raised() const { return m_raised.load(); }
    // Readable once raised; never drained, so it stays readable.
    int fd() const { return m_readFd; }

private:
    int m_readFd = -1;
    int m_writeFd = -1;
    std::atomic<bool> m_raised{false};
};

}  // namespace qvfwd
