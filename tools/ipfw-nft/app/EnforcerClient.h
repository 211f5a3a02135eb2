#pragma once

#include "EnforcerSocket.h"
#include "ipfwnft/EnforcerProtocol.h"
#include "ipfwnft/KernelTable.h"

namespace ipfwnft {

// The kernel's tables as ipfw-enforcer reaches them for this command. The enforcer
// stays running between commands with libnftables loaded and its view of the tables
// kept, so that a command pays for its change and not for nft's start; the first
// command of a network namespace starts it from beside this program.
class EnforcerClient : public KernelTable {
public:
    // `statePath`: the rule state this command works on, which the enforcer keeps the
    // tables as.
    explicit EnforcerClient(std::string statePath) : statePath_(std::move(statePath)) {}

    ipfwsim::Status apply(const std::string& script) override;
    ipfwsim::Status listChain(const std::string& table, const std::string& chain,
                              std::vector<KernelRule>& rules) override;

private:
    // The reply's text: the listing, or the failure's message.
    ipfwsim::Status exchange(RequestKind kind, const std::string& request, std::string& text);
    ipfwsim::Status connect();
    bool receiveStatePathReply();

    const std::string statePath_;
    EnforcerSocket socket_;
    bool statePathReplyPending_ = false;
};

}  // namespace ipfwnft
