// Who is on the other end of an accepted Unix socket, and whether that user may talk to
// the daemon: only root and the daemon's own user may.
#pragma once

#include <sys/types.h>

#include <string>

namespace qvfwd {

bool PeerMayConnect(int fd);

// The client of a change, for its record: -1 and "" for what the system does not tell.
struct PeerIdentity {
    long long uid = -1;
    long long pid = -1;
    std::string program;
};

// Linux: SO_PEERCRED and `procRoot`/PID/comm; macOS: getpeereid, LOCAL_PEERPID and
// proc_name. `procRoot` is a seam for tests.
PeerIdentity PeerIdentityOf(int fd, const std::string& procRoot = "/proc");

// The first line of `procRoot`/PID/comm, "" when there is none.
std::string ProgramNameOf(long long pid, const std::string& procRoot);

}  // namespace qvfwd
