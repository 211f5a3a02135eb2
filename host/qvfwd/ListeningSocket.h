// A Unix stream socket that this daemon alone serves. Claiming it takes an exclusive
// lock on "<path>.lock" first, so that of two daemons started on one path the second
// refuses instead of stealing the socket; with the lock held, a socket file left by a
// daemon that died is replaced. A live listener that does not hold the lock (another
// program on the path) is refused too. The socket file is made with mode 0600.
// Where clients must be sure whom they talk to, the directory is checked as well
// (kPrivateDirectory): whoever may write it could replace the socket with their own.
#pragma once

#include <string>

namespace qvfwd {

class ListeningSocket {
public:
    ListeningSocket() = default;
    ~ListeningSocket();
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    enum DirectoryRule {
        kAnyDirectory,
        // The socket's directory must belong to root or this process's user and be
        // writable by no one else, or the socket is not claimed.
        kPrivateDirectory,
    };

    // 0 on success; otherwise an errno value and a sentence for the log in `error`.
    int Claim(const std::string& path, std::string* error, DirectoryRule rule = kAnyDirectory);

    int fd() const { return m_fd; }
    const std::string& path() const { return m_path; }

private:
    int CheckDirectory(std::string* error) const;
    int Lock(std::string* error);
    int Bind(std::string* error);

    std::string m_path;
    int m_lockFd = -1;
    int m_fd = -1;
};

}  // namespace qvfwd
