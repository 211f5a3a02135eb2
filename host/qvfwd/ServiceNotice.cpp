#include "ServiceNotice.h"

#include <fcntl.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace qvfwd {

ServiceNotice ServiceNotice::FromEnvironment() {
    const char* path = getenv("NOTIFY_SOCKET");
    return ServiceNotice(path != nullptr ? path : "");
}

bool ServiceNotice::Send(const std::string& state) const {
    sockaddr_un address{};
    if (m_path.empty()) {
        return true;
    }
    if (m_path.size() >= sizeof address.sun_path || (m_path[0] != '/' && m_path[0] != '@')) {
        return false;
    }
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, m_path.data(), m_path.size());
    if (m_path[0] == '@') {
        address.sun_path[0] = '\0';  // an abstract name
    }
    const socklen_t length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + m_path.size());
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (fd < 0) {
        return false;
    }
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    const bool sent =
        sendto(fd, state.data(), state.size(), 0, reinterpret_cast<const sockaddr*>(&address),
               length) == static_cast<ssize_t>(state.size());
    close(fd);
    return sent;
}

}  // namespace qvfwd
