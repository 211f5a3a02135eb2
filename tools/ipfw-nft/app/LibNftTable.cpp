#include "LibNftTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <nftables/libnftables.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>

namespace ipfwnft {
namespace {

// nft's message without the echo of the script lines it points into.
std::string firstLine(const char* text) {
    const std::string message = text != nullptr ? text : "";
    return message.substr(0, message.find('\n'));
}

bool isNetlinkSocket(int fd) {
    sockaddr_storage address{};
    socklen_t size = sizeof(address);
    return getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
           address.ss_family == AF_NETLINK;
}

// In the child: everything but the netlink sockets and `keep` goes, so that nobody
// waiting for this process's output or its descriptors waits for the child.
void closeAllBut(int keep) {
    DIR* fds = opendir("/proc/self/fd");
    if (fds == nullptr) {
        return;
    }
    const int own = dirfd(fds);
    while (const dirent* entry = readdir(fds)) {
        const int fd = std::atoi(entry->d_name);
        if (entry->d_name[0] != '.' && fd != own && fd != keep && !isNetlinkSocket(fd)) {
            close(fd);
        }
    }
    closedir(fds);
}

// A transaction that replaced or removed anything leaves the kernel objects to release
// once its netlink socket closes, and that close waits a grace period (10 to 20 ms here),
// however small the change. The change is in force already; a child keeps the socket
// until this process ends and takes the wait, so that a command costs what its change
// costs. Without a child the close simply waits here. Adding alone needs none.
void lingerSocketClose() {
    int ended[2];
    if (pipe2(ended, O_CLOEXEC) != 0) {
        return;
    }
    const pid_t child = fork();
    if (child == 0) {
        closeAllBut(ended[0]);
        char byte;
        while (read(ended[0], &byte, 1) > 0) {
        }
        _exit(0);
    }
    close(ended[0]);
    if (child < 0) {
        close(ended[1]);
    }
    // ended[1] stays open until this process ends; then the child wakes and closes.
}

}  // namespace

void LibNftTable::ContextDeleter::operator()(nft_ctx* context) const {
    nft_ctx_free(context);
}

LibNftTable::LibNftTable() : context_(nft_ctx_new(NFT_CTX_DEFAULT)) {
    if (context_) {
        nft_ctx_buffer_error(context_.get());
        nft_ctx_buffer_output(context_.get());
    }
}

LibNftTable::~LibNftTable() = default;

ipfwsim::Status LibNftTable::run(const std::string& script, unsigned int outputFlags,
                                 std::string& output) {
    if (!context_) {
        return ipfwsim::Status::failure(ipfwsim::kExitSoftware, "nftables: no context");
    }
    nft_ctx_output_set_flags(context_.get(), outputFlags);
    const bool failed = nft_run_cmd_from_buffer(context_.get(), script.c_str()) != 0;
    // Reading a buffer empties it for the next command.
    const char* text = nft_ctx_get_output_buffer(context_.get());
    output = text != nullptr ? text : "";
    const std::string error = firstLine(nft_ctx_get_error_buffer(context_.get()));
    if (failed) {
        return ipfwsim::Status::failure(ipfwsim::kExitUnavailable, "nftables: " + error);
    }
    return ipfwsim::Status::success();
}

// Listing one chain reads that chain's rules only.
ipfwsim::Status LibNftTable::listChain(const std::string& table, const std::string& chain,
                                       std::vector<KernelRule>& rules) {
    std::string listing;
    const ipfwsim::Status status =
        run("list chain " + table + " " + chain + "\n", NFT_CTX_OUTPUT_HANDLE, listing);
    rules.clear();
    std::istringstream lines(listing);
    for (std::string line; status.ok() && std::getline(lines, line);) {
        const size_t mark = line.rfind(" # handle ");
        if (line.rfind("\t\t", 0) == 0 && mark != std::string::npos) {
            rules.push_back(KernelRule{std::strtoull(line.c_str() + mark + 10, nullptr, 10),
                                       line.substr(2, mark - 2)});
        }
    }
    return status;
}

ipfwsim::Status LibNftTable::apply(const std::string& script) {
    std::string ignored;
    const ipfwsim::Status status = run(script, 0, ignored);
    if (status.ok() && (script.find("delete ") != std::string::npos ||
                        script.find("flush ") != std::string::npos)) {
        lingerSocketClose();
    }
    return status;
}

}  // namespace ipfwnft
