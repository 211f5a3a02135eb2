// A Unix stream socket that this daemon alone serves. Claiming it takes an exclusive
// lock on "<path>.lock" first, so that of two daemons started on one path the second
// refuses instead of stealing the socket; with the lock held, a socket file left by a
// daemon that died is replaced. A live listener that does not hold the lock (another
// program on the path) is refused too. The socket file is made with mode 0600.
#pragma once

#include <string>

namespace qvfwd {

class ListeningSocket {
public:
    ListeningSocket() = default;
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    // 0 on success; otherwise an errno value and a sentence for the log in `error`.
    int Claim(const std::string& path, std::string* error);

    int fd() const { return m_fd; }
    const std::string& path() const { return m_path; }

private:
    int Lock(std::string* error);
    int Bind(std::string* error);

    std::string m_path;
    int m_lockFd = -1;
    int m_fd = -1;
};

}  // namespace qvfwd
