#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ipfwnft/KernelTable.h"
#include "ipfwsim/Status.h"

namespace ipfwnft {

// What ipfw and ipfw-enforcer, the process that holds the kernel's packet filter open
// for it, say to each other over a stream socket. Every message is a frame: its length
// (4 bytes, little-endian, not counting themselves) and then its bytes.
//
// A request is a kind byte and its text: an nftables script to run as one transaction,
// or a chain to list as "TABLE\nCHAIN". A reply is the outcome's exit code (4 bytes,
// little-endian; 0 for success) and its text: the failure's message, or the listed rules
// one a line, "HANDLE TEXT".

// The enforcer's abstract socket name. Abstract names belong to a network namespace, so
// each namespace has an enforcer of its own and a command reaches the kernel it runs in.
constexpr const char* kEnforcerSocketName = "ipfw-nft-enforcer";
// A frame longer than this is refused: a whole table of 65,535 rules is far below it.
constexpr uint32_t kMaxFrame = 256u << 20;

enum class RequestKind : char { Apply = 'A', ListChain = 'L' };

struct EnforcerRequest {
    RequestKind kind = RequestKind::Apply;
    std::string text;
};

std::string frameHeader(size_t length);
// The length a frame header announces; false when it is over kMaxFrame.
bool readFrameHeader(const char (&header)[4], uint32_t& length);

std::string encodeRequest(const EnforcerRequest& request);
bool decodeRequest(std::string_view body, EnforcerRequest& request);

std::string encodeReply(const ipfwsim::Status& status, const std::string& text);
// The status the reply carries; the text is the failure's message or the listing.
bool decodeReply(std::string_view body, ipfwsim::Status& status, std::string& text);

std::string encodeRules(const std::vector<KernelRule>& rules);
bool decodeRules(std::string_view text, std::vector<KernelRule>& rules);

// The enforcer's side: runs one request's body on `kernel` and gives the reply's body.
std::string answerRequest(KernelTable& kernel, std::string_view body);

// The rules of nft's listing of one chain, with "# handle N" shown.
std::vector<KernelRule> parseChainListing(std::string_view listing);

}  // namespace ipfwnft
