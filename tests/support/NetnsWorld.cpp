#include "NetnsWorld.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "CommandOutput.h"

namespace nfttest {
namespace {

bool BringLoopbackUp() {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    bool up = fd >= 0 && ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    request.ifr_flags |= IFF_UP;
    up = up && ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    if (fd >= 0) {
        close(fd);
    }
    return up;
}

}  // namespace

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

bool EnterPrivateNetwork(std::string& whyNot) {
    static int entered = -1;
    static std::string reason;
    if (entered < 0) {
        entered = 0;
        if (geteuid() != 0) {
            reason = "needs root for a network namespace and nftables";
        } else if (unshare(CLONE_NEWNET) != 0) {
            reason = std::string("cannot create a network namespace: ") + std::strerror(errno);
        } else if (!BringLoopbackUp()) {
            reason = "cannot bring up loopback in the namespace";
        } else {
            CommandResult probe =
                Shell("nft add table inet qv_probe && nft delete table inet qv_probe");
            entered = probe.exitCode == 0 ? 1 : 0;
            reason = "kernel nftables unavailable: " + probe.output;
        }
    }
    whyNot = reason;
    return entered == 1;
}

CommandResult Shell(const std::string& commandLine) {
    CommandResult result;
    result.output = qvtest::commandOutput(commandLine + " 2>&1", &result.exitCode);
    return result;
}

const char* OutcomeName(Outcome outcome) {
    switch (outcome) {
        case Outcome::Connects:
            return "connects";
        case Outcome::Refused:
            return "refused";
        case Outcome::TimesOut:
            break;
    }
    return "times out";
}

Listener::Listener(int port) : m_port(port) {
    m_fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    const int yes = 1;
    setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    sockaddr_in address = Loopback(port);
    if (m_fd >= 0 && (bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
                      listen(m_fd, 64) != 0)) {
        close(m_fd);
        m_fd = -1;
    }
}

Listener::~Listener() {
    if (m_fd >= 0) {
        close(m_fd);
    }
}

Outcome Listener::Connect(double seconds) const {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
    sockaddr_in address = Loopback(m_port);
    int result = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    int error = result == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        pollfd waiting{fd, POLLOUT, 0};
        if (poll(&waiting, 1, static_cast<int>(seconds * 1000)) == 1) {
            socklen_t length = sizeof(error);
            getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
        } else {
            error = ETIMEDOUT;
        }
    }
    close(fd);
    // Take the accepted side off the backlog, so that many attempts never fill it.
    int accepted = accept(m_fd, nullptr, nullptr);
    if (accepted >= 0) {
        close(accepted);
    }
    return error == 0           ? Outcome::Connects
           : error == ETIMEDOUT ? Outcome::TimesOut
                                : Outcome::Refused;
}

}  // namespace nfttest
