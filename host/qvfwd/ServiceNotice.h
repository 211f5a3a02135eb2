// Tells the service manager how the daemon stands ("READY=1" once the stored rules are
// installed and both sockets are served, "STOPPING=1" when it takes them down), on the
// datagram socket that $NOTIFY_SOCKET names, as systemd's Type=notify expects. Without
// the variable (started by hand, or by launchd) there is nobody to tell and nothing
// is sent.
#pragma once

#include <string>

namespace qvfwd {

class ServiceNotice {
public:
    // `socketPath`: the value of $NOTIFY_SOCKET, or empty; "@name" is an abstract name.
    explicit ServiceNotice(std::string socketPath) : m_path(std::move(socketPath)) {}
    static ServiceNotice FromEnvironment();

    // False when there was somebody to tell and the message did not go out.
    bool Send(const std::string& state) const;

private:
    std::string m_path;
};

}  // namespace qvfwd
