#include "ListeningSocket.h"
#include "QvCloseOnExec.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

namespace qvfwd {

namespace {

constexpr int kBacklog = 64;

bool FillAddress(const std::string& path, sockaddr_un* address) {
    memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof address->sun_path) {
        return false;
    }
    memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

// True when something accepts connections on `path` right now.
bool SomeoneListens(const sockaddr_un& address) {
    int probe = socket(AF_UNIX, SOCK_STREAM, 0);
    if (probe < 0) {
        return false;
    }
    bool live = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return live;
}

std::string ReadOwnerPid(int lockFd) {
    char text[32] = {0};
    ssize_t got = pread(lockFd, text, sizeof text - 1, 0);
    std::string pid = got > 0 ? std::string(text, static_cast<size_t>(got)) : std::string();
    pid.erase(pid.find_last_not_of(" \n") + 1);
    return pid.empty() ? std::string("unknown") : pid;
}

}  // namespace

ListeningSocket::~ListeningSocket() {
    if (m_fd >= 0) {
        close(m_fd);
        unlink(m_path.c_str());
    }
    if (m_lockFd >= 0) {
        close(m_lockFd);
    }
}

int ListeningSocket::Claim(const std::string& path, std::string* error) {
    m_path = path;
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    int code = Lock(error);
    return code != 0 ? code : Bind(error);
}

int ListeningSocket::Lock(std::string* error) {
    const std::string lockPath = m_path + ".lock";
    m_lockFd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_lockFd < 0) {
        int code = errno;
        *error = "cannot open " + lockPath + ": " + strerror(code);
        return code;
    }
    if (flock(m_lockFd, LOCK_EX | LOCK_NB) != 0) {
        int code = errno;
        *error = "another qvfwd (pid " + ReadOwnerPid(m_lockFd) + ") is already serving " + m_path +
                 "; stop it first";
        close(m_lockFd);
        m_lockFd = -1;
        return code == EWOULDBLOCK ? EADDRINUSE : code;
    }
    std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(m_lockFd, 0) != 0 || pwrite(m_lockFd, pid.data(), pid.size(), 0) < 0) {
        // The pid only improves the message of a second daemon; the lock is what counts.
    }
    return 0;
}

int ListeningSocket::Bind(std::string* error) {
    sockaddr_un address;
    if (!FillAddress(m_path, &address)) {
        *error = "socket path too long: " + m_path;
        return ENAMETOOLONG;
    }
    if (SomeoneListens(address)) {
        *error = "another program is already listening on " + m_path;
        return EADDRINUSE;
    }
    unlink(m_path.c_str());  // a dead daemon's socket file
    m_fd = QvUnixStreamSocket();
    // The file is born 0600 so that no other user can connect even for a moment.
    mode_t previous = umask(0177);
    int bound = m_fd < 0 ? -1 : bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    umask(previous);
    if (bound != 0 || listen(m_fd, kBacklog) != 0) {
        int code = errno;
        *error = "cannot listen on " + m_path + ": " + strerror(code);
        return code;
    }
    return 0;
}

}  // namespace qvfwd
