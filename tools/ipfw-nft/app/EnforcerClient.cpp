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
    if (status.ok() &&
        (!socket_.send(static_cast<uint32_t>(kind), request) || !socket_.receive(reply))) {
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
    socket_ = EnforcerSocket::connect(kReplySeconds);
    if (socket_.open()) {
        return Status::success();
    }
    const std::string path = enforcerPath();
    if (access(path.c_str(), X_OK) != 0) {
        return unreachable("is not installed beside ipfw (" + path + ")");
    }
    startEnforcer(path);
    const auto deadline = std::chrono::steady_clock::now() + kStartLimit;
    while (!socket_.open() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        socket_ = EnforcerSocket::connect(kReplySeconds);
    }
    return socket_.open() ? Status::success() : unreachable("did not start (" + path + ")");
}

}  // namespace ipfwnft
