// The user of the process at the other end of a connected Unix socket: for a server the
// client, for a client the listener (its credentials at listen()).
#pragma once

#include <sys/types.h>

namespace qvctl {

// False when the system would not tell.
bool PeerUid(int fd, uid_t* uid);

}  // namespace qvctl
