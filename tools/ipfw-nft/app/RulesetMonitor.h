#pragma once

#include <vector>

#include "ipfwnft/RulesetEvent.h"

namespace ipfwnft {

// The kernel's announcements of every nftables change in this network namespace: a
// netlink socket joined to the nf_tables group, read without waiting.
class RulesetMonitor {
public:
    RulesetMonitor();
    ~RulesetMonitor();
    RulesetMonitor(const RulesetMonitor&) = delete;
    RulesetMonitor& operator=(const RulesetMonitor&) = delete;

    // Not open when the kernel refused (errno says why).
    bool open() const { return fd_ >= 0; }
    int fd() const { return fd_; }
    // Appends what was announced since the last call. `overflowed` when the kernel had to
    // drop announcements because they were not read in time.
    void drain(std::vector<RulesetEvent>& events, bool& overflowed);
    // Whether `port` is that of another nf_tables socket of this process: the one its
    // libnftables commits through.
    bool isOwnPort(uint32_t port);

private:
    int fd_ = -1;
    std::vector<char> buffer_;
    std::vector<uint32_t> ownPorts_;
};

}  // namespace ipfwnft
