// Who is on the other end of an accepted Unix socket, and whether that user may talk to
// the daemon: only root and the daemon's own user may.
#pragma once

#include <sys/types.h>

namespace qvfwd {

// False when the kernel cannot tell.
bool PeerUid(int fd, uid_t* uid);

bool PeerMayConnect(int fd);

}  // namespace qvfwd
