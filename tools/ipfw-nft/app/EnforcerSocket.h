#pragma once

#include <cstdint>
#include <string>

#include "FrameChannel.h"

namespace ipfwnft {

// Who is at the other end of a connection; pid -1 where the system does not say.
struct PeerCredentials {
    uint32_t uid = 0;
    int64_t pid = -1;
};

// One end of a connection between ipfw and ipfw-enforcer on the enforcer's abstract
// socket: whole frames out and in (EnforcerProtocol.h), each way within a time-out.
class EnforcerSocket {
public:
    EnforcerSocket() = default;
    ~EnforcerSocket();
    EnforcerSocket(EnforcerSocket&& other) noexcept;
    EnforcerSocket& operator=(EnforcerSocket&& other) noexcept;
    EnforcerSocket(const EnforcerSocket&) = delete;
    EnforcerSocket& operator=(const EnforcerSocket&) = delete;

    // Whatever listens on the name of this user's enforcer in this network namespace;
    // not open when nothing does. Who it is must be asked (peer()) before it is trusted.
    static EnforcerSocket connect(int timeoutSeconds);
    // The listening end; not open when the name is taken (errno says why).
    static EnforcerSocket listen();
    // The name both use, as "@NAME" for messages.
    static std::string name();

    bool open() const { return fd_ >= 0; }
    // The next connection, waiting up to `idleMs`; not open when none came. Only peers
    // running as this process's user are taken: what they send runs as root.
    EnforcerSocket accept(int idleMs, int timeoutSeconds) const;
    // The credentials the kernel recorded for the other end when it connected or listened.
    bool peer(PeerCredentials& credentials) const;
    bool send(uint32_t head, const std::string& payload) const;
    bool receive(qvctl::Frame& frame) const;

private:
    EnforcerSocket(int fd, int timeoutSeconds);

    int fd_ = -1;
    int timeoutSeconds_ = 0;
};

}  // namespace ipfwnft
