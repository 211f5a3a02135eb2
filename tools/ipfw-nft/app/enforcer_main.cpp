// ipfw-enforcer: keeps libnftables loaded and the kernel's packet filter open for
// build/nft/ipfw, which hands it each change (EnforcerProtocol.h). ipfw starts it from
// beside itself when its network namespace has none; it ends after a while without
// commands, or on SIGTERM.

#include <malloc.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "EnforcerSocket.h"
#include "LibNftTable.h"
#include "ipfwnft/EnforcerProtocol.h"

namespace {

constexpr int kIdleMs = 60 * 1000;
constexpr int kRequestSeconds = 10;
// A script this long rebuilds many rules; what nft took for it is not kept.
constexpr size_t kLargeRequest = 64 * 1024;

}  // namespace

int main() {
    // nft reads the tables afresh for every command, into four blocks of 128 KiB per
    // table; kept in the heap instead of mapped and unmapped each time, they cost no page
    // faults.
    mallopt(M_MMAP_THRESHOLD, 64 << 20);
    mallopt(M_TRIM_THRESHOLD, 32 << 20);
    std::signal(SIGPIPE, SIG_IGN);
    const ipfwnft::EnforcerSocket listener = ipfwnft::EnforcerSocket::listen();
    if (!listener.open()) {
        return errno == EADDRINUSE ? 0 : 1;  // taken: another enforcer serves this namespace
    }
    ipfwnft::LibNftTable table;
    for (;;) {
        const ipfwnft::EnforcerSocket peer = listener.accept(kIdleMs, kRequestSeconds);
        if (!peer.open()) {
            return 0;
        }
        qvctl::Frame request;
        std::string reply;
        while (
            peer.receive(request) &&
            peer.send(static_cast<uint32_t>(
                          ipfwnft::answerRequest(table, request.head, request.payload, reply).code),
                      reply)) {
            if (request.payload.size() > kLargeRequest) {
                malloc_trim(0);  // a whole table's worth of nft's memory goes back
            }
        }
    }
}
