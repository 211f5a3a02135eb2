#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ipfwnft/KernelTable.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// What ipfw and ipfw-enforcer, the process that holds the kernel's packet filter open
// for it, say to each other: frames in the host's layout (QvFrame.h). A request's head is
// its kind and its payload an nftables script to run as one transaction, or a chain to
// list as "TABLE\nCHAIN". A reply's head is the outcome's exit code (0 for success) and
// its payload the failure's message, or the listed rules one a line, "HANDLE TEXT".

// The abstract socket name of the enforcer of user `uid`, "ipfw-nft-enforcer.0" for root.
// Abstract names belong to a network namespace, so each namespace has an enforcer of its
// own and a command reaches the kernel it runs in; one name per user, so that an enforcer
// another user started never stands where ipfw looks for its own.
std::string enforcerSocketName(uint32_t uid);
// The longest payload either way: a whole table of 65,535 rules is far below it.
constexpr uint32_t kMaxEnforcerPayload = 256u << 20;

// A StatePath request names, as an absolute path, the rule state file of the ipfw that sends
// it: the enforcer puts its tables back from the state of the last ipfw that spoke to it. A
// Stop request ends the enforcer once it answered, so that its tables can be deleted
// without being put back.
enum class RequestKind : uint32_t { Apply = 'A', ListChain = 'L', StatePath = 'S', Stop = 'Q' };

// The enforcer's side: runs the request of kind `kind` on `kernel`; `reply` is the
// failure's message or the listing.
ipfwsim::Status answerRequest(KernelTable& kernel, uint32_t kind, const std::string& text,
                              std::string& reply);

std::string encodeRules(const std::vector<KernelRule>& rules);
bool decodeRules(std::string_view text, std::vector<KernelRule>& rules);

// The rules of nft's listing of one chain, with "# handle N" shown.
std::vector<KernelRule> parseChainListing(std::string_view listing);

}  // namespace ipfwnft
