#include "ipfwnft/EnforcerProtocol.h"

#include <algorithm>

namespace ipfwnft {
namespace {

bool readHandle(std::string_view digits, uint64_t& handle) {
    if (digits.empty() || digits.size() > 19) {
        return false;
    }
    handle = 0;
    for (char digit : digits) {
        if (digit < '0' || digit > '9') {
            return false;
        }
        handle = handle * 10 + static_cast<uint64_t>(digit - '0');
    }
    return true;
}

}  // namespace

std::string enforcerSocketName(uint32_t uid) {
    return "ipfw-nft-enforcer." + std::to_string(uid);
}

std::string encodeRules(const std::vector<KernelRule>& rules) {
    std::string text;
    for (const KernelRule& rule : rules) {
        text += std::to_string(rule.handle) + " " + rule.text + "\n";
    }
    return text;
}

bool decodeRules(std::string_view text, std::vector<KernelRule>& rules) {
    rules.clear();
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const size_t space = text.find(' ');
        if (end == std::string_view::npos || space > end) {
            return false;
        }
        KernelRule rule;
        if (!readHandle(text.substr(0, space), rule.handle)) {
            return false;
        }
        rule.text = std::string(text.substr(space + 1, end - space - 1));
        rules.push_back(std::move(rule));
        text.remove_prefix(end + 1);
    }
    return true;
}

ipfwsim::Status answerRequest(KernelTable& kernel, uint32_t kind, const std::string& text,
                              std::string& reply) {
    ipfwsim::Status status;
    if (kind == static_cast<uint32_t>(RequestKind::Apply)) {
        status = kernel.apply(text);
        reply = status.message;
        return status;
    }
    const size_t split = text.find('\n');
    if (kind != static_cast<uint32_t>(RequestKind::ListChain) || split == std::string::npos) {
        status = ipfwsim::Status::failure(ipfwsim::kExitSoftware,
                                          "ipfw-enforcer: request not understood");
        reply = status.message;
        return status;
    }
    std::vector<KernelRule> rules;
    status = kernel.listChain(text.substr(0, split), text.substr(split + 1), rules);
    reply = status.ok() ? encodeRules(rules) : status.message;
    return status;
}

std::vector<KernelRule> parseChainListing(std::string_view listing) {
    std::vector<KernelRule> rules;
    constexpr std::string_view kMark = " # handle ";
    while (!listing.empty()) {
        const size_t end = std::min(listing.find('\n'), listing.size());
        const std::string_view line = listing.substr(0, end);
        const size_t mark = line.rfind(kMark);
        KernelRule rule;
        // Rules sit two tabs in; the chain's own line carries a handle too.
        if (line.substr(0, 2) == "\t\t" && mark != std::string_view::npos &&
            readHandle(line.substr(mark + kMark.size()), rule.handle)) {
            rule.text = std::string(line.substr(2, mark - 2));
            rules.push_back(std::move(rule));
        }
        listing.remove_prefix(std::min(end + 1, listing.size()));
    }
    return rules;
}

}  // namespace ipfwnft
