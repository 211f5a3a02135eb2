// ipfw-enforcer: keeps libnftables loaded and the kernel's packet filter open for
// build/nft/ipfw, which hands it each change (EnforcerProtocol.h), and keeps the tables as
// the rule state says while it runs: a change of them by any other process is undone from
// the rule state (that of the last ipfw that spoke to it; until then $IPFW_SIM_STATE,
// else ipfw's default) and said on standard error. ipfw
// starts it from beside itself when its network namespace has none; it then ends after a
// while without commands, or on SIGTERM. With --resident (as a service, or by hand in the
// foreground) it does not end by itself. `ipfw-enforcer --stop` ends the one that runs, so
// that its tables can be deleted for good.

#include <malloc.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>

#include "EnforcerSocket.h"
#include "FreeBsdTools.h"
#include "LibNftTable.h"
#include "RulesetWatch.h"
#include "StateRestorer.h"
#include "StdConsole.h"
#include "WatchedTable.h"
#include "ipfwnft/EnforcerProtocol.h"

namespace {

constexpr int kIdleMs = 60 * 1000;
constexpr int kRequestSeconds = 10;
// A script this long rebuilds many rules; what nft took for it is not kept.
constexpr size_t kLargeRequest = 64 * 1024;

void say(const std::string& line) {
    ipfwsim::StdConsole().err("ipfw-enforcer: " + line + "\n");
}

// A resident enforcer waits for the one that holds the name to end; one started by ipfw
// leaves the namespace to it.
ipfwnft::EnforcerSocket listen(bool resident) {
    ipfwnft::EnforcerSocket listener = ipfwnft::EnforcerSocket::listen();
    for (bool told = false; resident && !listener.open() && errno == EADDRINUSE; told = true) {
        if (!told) {
            say("another process listens on " + ipfwnft::EnforcerSocket::name() +
                "; waiting for it to end");
        }
        sleep(1);
        listener = ipfwnft::EnforcerSocket::listen();
    }
    return listener;
}

// A request about the tables, or the rule state they are kept as.
ipfwsim::Status answer(const qvctl::Frame& request, ipfwnft::KernelTable& table,
                       ipfwnft::StateRestorer& restorer, std::string& reply) {
    if (request.head != static_cast<uint32_t>(ipfwnft::RequestKind::StatePath)) {
        return ipfwnft::answerRequest(table, request.head, request.payload, reply);
    }
    restorer.follow(request.payload);
    reply.clear();
    return ipfwsim::Status::success();
}

void serve(const ipfwnft::EnforcerSocket& listener, ipfwnft::KernelTable& table,
           ipfwnft::LibNftTable& nft, ipfwnft::StateRestorer& restorer, bool resident) {
    for (;;) {
        const ipfwnft::EnforcerSocket peer =
            listener.accept(resident ? -1 : kIdleMs, kRequestSeconds);
        if (!peer.open()) {
            return;
        }
        qvctl::Frame request;
        std::string reply;
        while (peer.receive(request)) {
            const bool stop = request.head == static_cast<uint32_t>(ipfwnft::RequestKind::Stop);
            const int code = stop ? ipfwsim::kExitOk : answer(request, table, restorer, reply).code;
            if (!peer.send(static_cast<uint32_t>(code), stop ? std::string() : reply)) {
                break;
            }
            if (stop) {
                return;
            }
            // Answered first: ipfw goes on while nft reads the tables for the next change.
            if (request.head == static_cast<uint32_t>(ipfwnft::RequestKind::Apply) &&
                code == ipfwsim::kExitOk) {
                nft.readAhead();
            }
            if (request.payload.size() > kLargeRequest) {
                malloc_trim(0);  // a whole table's worth of nft's memory goes back
            }
        }
    }
}

// ipfw-enforcer --stop: ends the enforcer of this user in this network namespace, if one
// runs, and waits until its name is free.
int stopRunning() {
    const ipfwnft::EnforcerSocket socket = ipfwnft::EnforcerSocket::connect(kRequestSeconds);
    ipfwnft::PeerCredentials running;
    if (!socket.open()) {
        return ipfwsim::kExitOk;
    }
    const std::string who = "pid " + (socket.peer(running) ? std::to_string(running.pid) : "?");
    if (running.uid != geteuid()) {
        say("the listener on " + ipfwnft::EnforcerSocket::name() + " is uid " +
            std::to_string(running.uid) + " (" + who + "), not this user; left it alone");
        return ipfwsim::kExitUnavailable;
    }
    qvctl::Frame reply;
    if (!socket.send(static_cast<uint32_t>(ipfwnft::RequestKind::Stop), "") ||
        !socket.receive(reply)) {
        say("the enforcer (" + who + ") did not answer");
        return ipfwsim::kExitIoErr;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kRequestSeconds);
    while (ipfwnft::EnforcerSocket::connect(1).open()) {
        if (std::chrono::steady_clock::now() > deadline) {
            say("the enforcer (" + who + ") did not end");
            return ipfwsim::kExitIoErr;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return ipfwsim::kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    const bool resident = argc == 2 && std::strcmp(argv[1], "--resident") == 0;
    if (argc == 2 && std::strcmp(argv[1], "--stop") == 0) {
        return stopRunning();
    }
    if (argc > 1 && !resident) {
        say("usage: ipfw-enforcer [--resident | --stop]");
        return ipfwsim::kExitUsage;
    }
    // nft reads the tables afresh for every command, into four blocks of 128 KiB per
    // table; kept in the heap instead of mapped and unmapped each time, they cost no page
    // faults.
    mallopt(M_MMAP_THRESHOLD, 64 << 20);
    mallopt(M_TRIM_THRESHOLD, 32 << 20);
    std::signal(SIGPIPE, SIG_IGN);
    const ipfwnft::EnforcerSocket listener = listen(resident);
    if (!listener.open()) {
        if (errno == EADDRINUSE) {
            return 0;  // taken: another enforcer serves this namespace
        }
        say("cannot listen on " + ipfwnft::EnforcerSocket::name() + ": " + std::strerror(errno));
        return 1;
    }
    ipfwnft::LibNftTable nft;
    const std::string statePath = ipfwsim::StatePath();
    ipfwnft::StateRestorer restorer(nft, statePath);
    ipfwnft::RulesetWatch watch(restorer);
    if (!watch.watching()) {
        say(std::string("cannot watch the nftables tables: ") + std::strerror(errno));
    }
    ipfwnft::WatchedTable table(nft, watch);
    say("serving " + ipfwnft::EnforcerSocket::name() + (resident ? " until stopped" : "") +
        "; the rule state is " + statePath);
    serve(listener, table, nft, restorer, resident);
    return 0;
}
