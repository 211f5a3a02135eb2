// A private network namespace for the test process, with loopback up, so that real
// packets and the nftables table of build/nft/ipfw never reach the machine's own
// firewall; plus TCP probes against 127.0.0.1 inside it.
#pragma once

#include <netinet/in.h>

#include <string>

namespace nfttest {

// Moves this process (and every child it starts later) into a new network namespace.
// False, with the reason, when that needs privileges we lack or nftables is missing.
bool EnterPrivateNetwork(std::string& whyNot);

struct CommandResult {
    int exitCode = -1;
    std::string output;  // standard output and error together
};

// Runs a shell command line, capturing its output.
CommandResult Shell(const std::string& commandLine);

// 127.0.0.1:port.
sockaddr_in Loopback(int port);

enum class Outcome { Connects, Refused, TimesOut };
const char* OutcomeName(Outcome outcome);

// A TCP listener on 127.0.0.1:port that takes every connection it is offered.
class Listener {
public:
    explicit Listener(int port);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    bool ok() const { return m_fd >= 0; }

    // One connection attempt from inside the namespace; "times out" after `seconds`.
    Outcome Connect(double seconds = 0.4) const;

private:
    int m_fd = -1;
    int m_port;
};

}  // namespace nfttest
