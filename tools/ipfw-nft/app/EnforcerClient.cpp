#include "EnforcerClient.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <thread>

namespace ipfwnft {
namespace {

using ipfwsim::Status;

// A whole table of many thousand rules takes the kernel seconds.
constexpr int kReplySeconds = 120;
constexpr auto kStartLimit = std::chrono::seconds(5);

std::string enforcerPath() {
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    std::string path(self, length > 0 ? static_cast<size_t>(length) : 0);
    return path.substr(0, path.rfind('/') + 1) + "ipfw-enforcer";
}

// Detached from this command: its own session, no descriptor of ours, so that nobody
// waiting for this command's output or process group waits for the enforcer.
void startEnforcer(const std::string& path) {
    const pid_t child = fork();
    if (child != 0) {
        return;
    }
    setsid();
    const int null = open("/dev/null", O_RDWR);
    for (int fd = 0; fd < 3; ++fd) {
        dup2(null, fd);
    }
    closefrom(3);
    execl(path.c_str(), "ipfw-enforcer", static_cast<char*>(nullptr));
    _exit(127);
}

Status unreachable(const std::string& why) {
    return Status::failure(ipfwsim::kExitUnavailable, "nftables: ipfw-enforcer " + why);
}

// What ipfw hands over runs as its user: only a listener of that user may have it.
Status trusted(const EnforcerSocket& socket) {
    PeerCredentials listener;
    if (!socket.peer(listener)) {
        return unreachable("could not be identified on " + EnforcerSocket::name() +
                           "; the change was not handed over");
    }
    if (listener.uid == geteuid()) {
        return Status::success();
    }
    return unreachable("is not what listens on " + EnforcerSocket::name() + ": uid " +
                       std::to_string(listener.uid) + " (pid " + std::to_string(listener.pid) +
                       ") does, not uid " + std::to_string(geteuid()) +
                       "; the change was not handed over");
}

}  // namespace

Status EnforcerClient::apply(const std::string& script) {
    std::string ignored;
    return exchange(RequestKind::Apply, script, ignored);
}

Status EnforcerClient::listChain(const std::string& table, const std::string& chain,
                                 std::vector<KernelRule>& rules) {
    std::string listing;
    Status status = exchange(RequestKind::ListChain, table + "\n" + chain, listing);
    if (status.ok() && !decodeRules(listing, rules)) {
        status = unreachable("sent a listing that does not read");
    }
    return status;
}

Status EnforcerClient::exchange(RequestKind kind, const std::string& request, std::string& text) {
    Status status = connect();
    qvctl::Frame reply;
    if (status.ok() && (!socket_.send(static_cast<uint32_t>(kind), request) ||
                        !receiveStatePathReply() || !socket_.receive(reply))) {
        // Sent but unanswered: whether the kernel took it is not known.
        return Status::failure(ipfwsim::kExitIoErr, "nftables: ipfw-enforcer did not answer");
    }
    text = std::move(reply.payload);
    const int code = static_cast<int>(reply.head);
    return !status.ok() || code == ipfwsim::kExitOk ? status : Status::failure(code, text);
}

Status EnforcerClient::connect() {
    if (socket_.open()) {
        return Status::success();
    }
    EnforcerSocket socket = EnforcerSocket::connect(kReplySeconds);
    if (!socket.open()) {
        const std::string path = enforcerPath();
        if (access(path.c_str(), X_OK) != 0) {
            return unreachable("is not installed beside ipfw (" + path + ")");
        }
        startEnforcer(path);
        const auto deadline = std::chrono::steady_clock::now() + kStartLimit;
        while (!socket.open() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            socket = EnforcerSocket::connect(kReplySeconds);
        }
        if (!socket.open()) {
            return unreachable("did not start (" + path + ")");
        }
    }
    const Status status = trusted(socket);
    if (!status.ok()) {
        return status;
    }
    // Its answer is read after the first request went out: the two cost one wait.
    if (!socket.send(static_cast<uint32_t>(RequestKind::StatePath), statePath_)) {
        return unreachable("did not take the rule state's name");
    }
    socket_ = std::move(socket);
    statePathReplyPending_ = true;
    return status;
}

bool EnforcerClient::receiveStatePathReply() {
    qvctl::Frame reply;
    const bool received = !statePathReplyPending_ || socket_.receive(reply);
    statePathReplyPending_ = false;
    return received;
}

}  // namespace ipfwnft
