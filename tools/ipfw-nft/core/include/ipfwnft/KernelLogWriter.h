#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ipfwnft/LoggedPacket.h"
#include "ipfwsim/Environment.h"
#include "ipfwsim/StateStore.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// "ipfw: lost 16320 logged packets": what the log says of packets that NFLOG numbered
// but never delivered (qvfwctl counts them by this text).
std::string lostLogText(uint64_t count);

// Does for packets from NFLOG what the kernel's ipfw does when a rule logs: unless
// verbose logging is off, writes "ipfw: 3100 Deny TCP ..." through syslog's routing of
// the program "ipfw", and counts the rule's logamount in the rule state, announcing when
// the limit is reached.
// Packets come in batches, as NFLOG hands them over under load, and a batch costs what
// one packet did: one read of the state and of the syslog configuration, one append per
// log file, one rewrite of the state when a logamount moved. The packets the kernel could
// not deliver (its socket buffer was full) show as gaps in NFLOG's numbering; each batch
// that follows such gaps carries one line that counts them.
class KernelLogWriter {
public:
    explicit KernelLogWriter(ipfwsim::Environment& env) : env_(env) {}

    // `store` is taken for this batch only, so that ipfw waits for one batch at most.
    ipfwsim::Status write(const std::vector<LoggedPacket>& batch, ipfwsim::StateStore& store);

private:
    struct Losses {
        uint64_t count = 0;
        size_t firstGapAt = 0;  // the packet the loss line goes before
    };

    Losses countLosses(const std::vector<LoggedPacket>& batch);

    ipfwsim::Environment& env_;
    uint32_t nextSequence_ = 0;
};

}  // namespace ipfwnft
