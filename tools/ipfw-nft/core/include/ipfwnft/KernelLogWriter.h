#pragma once

#include "ipfwnft/LoggedPacket.h"
#include "ipfwsim/Environment.h"
#include "ipfwsim/StateStore.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// Does for a packet from NFLOG what the kernel's ipfw does when a rule logs: unless
// verbose logging is off, writes "ipfw: 3100 Deny TCP ..." through syslog's routing of
// the program "ipfw" (the syslog configuration is read anew for every packet), and
// counts the rule's logamount in the rule state, announcing when the limit is reached.
class KernelLogWriter {
public:
    KernelLogWriter(ipfwsim::Environment& env, ipfwsim::StateStore& store)
        : env_(env), store_(store) {}

    ipfwsim::Status write(const LoggedPacket& logged);

private:
    ipfwsim::Status append(const std::string& text, int priority);

    ipfwsim::Environment& env_;
    ipfwsim::StateStore& store_;
};

}  // namespace ipfwnft
