#include "PeerUid.h"

#include <sys/socket.h>
#include <unistd.h>

namespace qvctl {

// Linux tells it through SO_PEERCRED, macOS and the BSDs through getpeereid.
bool PeerUid(int fd, uid_t* uid) {
#if defined(SO_PEERCRED)
    struct ucred credentials {};
    socklen_t length = sizeof credentials;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
        return false;
    }
    *uid = credentials.uid;
    return true;
#else
    gid_t gid;
    return getpeereid(fd, uid, &gid) == 0;
#endif
}

}  // namespace qvctl
