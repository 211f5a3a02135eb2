// The log line of a connection closed because its frame stalled half-way.
#pragma once

#include <string>

namespace qvfwd {

// "closed a client of the control socket (uid 0, pid 42 qvfwctl): its frame brought no
// byte for 10 s"
std::string StalledFrameLine(const std::string& socketName, int fd, int frameTimeoutMs);

}  // namespace qvfwd
