#include "StalledFrame.h"

#include "PeerCredentials.h"

namespace qvfwd {

std::string StalledFrameLine(const std::string& socketName, int fd, int frameTimeoutMs) {
    // Who it was, so that the program that sends half frames can be found.
    const PeerIdentity peer = PeerIdentityOf(fd);
    std::string who = "uid " + std::to_string(peer.uid);
    if (peer.pid > 0) {
        who += ", pid " + std::to_string(peer.pid);
    }
    if (!peer.program.empty()) {
        who += " " + peer.program;
    }
    return "closed a client of the " + socketName + " (" + who +
           "): its frame brought no byte for " + std::to_string(frameTimeoutMs / 1000) + " s";
}

}  // namespace qvfwd
