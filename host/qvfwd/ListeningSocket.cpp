#include "ListeningSocket.h"
#include "QvCloseOnExec.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
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

int ListeningSocket::Claim(const std::string& path, std::string* error, DirectoryRule rule) {
    m_path = path;
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    int code = rule == kPrivateDirectory ? CheckDirectory(error) : 0;
    code = code != 0 ? code : Lock(error);
    return code != 0 ? code : Bind(error);
}

int ListeningSocket::CheckDirectory(std::string* error) const {
    std::string directory = std::filesystem::path(m_path).parent_path().string();
    directory = directory.empty() ? "." : directory;
    struct stat info {};
    if (stat(directory.c_str(), &info) != 0) {
        int code = errno;
        *error =
            "cannot look at the directory " + directory + " of " + m_path + ": " + strerror(code);
        return code;
    }
    const bool ownerTrusted = info.st_uid == 0 || info.st_uid == geteuid();
    if (ownerTrusted && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0) {
        return 0;
    }
    char mode[8];
    snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(info.st_mode & 07777));
    *error = "the directory " + directory + " of " + m_path + " belongs to uid " +
             std::to_string(info.st_uid) + " with mode " + mode +
             "; it must belong to root or uid " + std::to_string(geteuid()) +
             " and be writable by no one else (chown and chmod go-w it, or choose another "
             "--control)";
    return EPERM;
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
