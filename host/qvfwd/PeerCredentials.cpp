#include "PeerCredentials.h"

#include <sys/socket.h>
#include <unistd.h>

#include <fstream>

#include "PeerUid.h"

#if defined(__APPLE__)
#include <libproc.h>
#include <sys/un.h>
#endif

namespace qvfwd {

bool PeerMayConnect(int fd) {
    uid_t uid;
    return qvctl::PeerUid(fd, &uid) && (uid == 0 || uid == geteuid());
}

std::string ProgramNameOf(long long pid, const std::string& procRoot) {
    if (pid <= 0) {
        return "";
    }
    std::ifstream comm(procRoot + "/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

PeerIdentity PeerIdentityOf(int fd, const std::string& procRoot) {
    PeerIdentity identity;
#if defined(SO_PEERCRED)
    struct ucred credentials {};
    socklen_t length = sizeof credentials;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0) {
        identity.uid = credentials.uid;
        identity.pid = credentials.pid;
        identity.program = ProgramNameOf(identity.pid, procRoot);
    }
#else
    (void)procRoot;
    uid_t uid;
    gid_t gid;
    if (getpeereid(fd, &uid, &gid) == 0) {
        identity.uid = uid;
    }
#if defined(LOCAL_PEERPID)
    pid_t pid = 0;
    socklen_t length = sizeof pid;
    if (getsockopt(fd, SOL_LOCAL, LOCAL_PEERPID, &pid, &length) == 0) {
        identity.pid = pid;
        char name[2 * MAXCOMLEN + 1] = "";
        if (proc_name(pid, name, sizeof name) > 0) {
            identity.program = name;
        }
    }
#endif
#endif
    return identity;
}

}  // namespace qvfwd
