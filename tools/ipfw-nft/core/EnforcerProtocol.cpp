#include "ipfwnft/EnforcerProtocol.h"

#include <cstdlib>

namespace ipfwnft {
namespace {

std::string littleEndian(uint32_t value) {
    std::string bytes(4, '\0');
    for (int i = 0; i < 4; ++i) {
        bytes[i] = static_cast<char>((value >> (8 * i)) & 0xff);
    }
    return bytes;
}

uint32_t fromLittleEndian(const char* bytes) {
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i) {
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return value;
}

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

std::string frameHeader(size_t length) {
    return littleEndian(static_cast<uint32_t>(length));
}

bool readFrameHeader(const char (&header)[4], uint32_t& length) {
    length = fromLittleEndian(header);
    return length <= kMaxFrame;
}

std::string encodeRequest(const EnforcerRequest& request) {
    return static_cast<char>(request.kind) + request.text;
}

bool decodeRequest(std::string_view body, EnforcerRequest& request) {
    if (body.empty() || (body[0] != static_cast<char>(RequestKind::Apply) &&
                         body[0] != static_cast<char>(RequestKind::ListChain))) {
        return false;
    }
    request.kind = static_cast<RequestKind>(body[0]);
    request.text = std::string(body.substr(1));
    return true;
}

std::string encodeReply(const ipfwsim::Status& status, const std::string& text) {
    return littleEndian(static_cast<uint32_t>(status.code)) + text;
}

bool decodeReply(std::string_view body, ipfwsim::Status& status, std::string& text) {
    if (body.size() < 4) {
        return false;
    }
    const int code = static_cast<int>(fromLittleEndian(body.data()));
    text = std::string(body.substr(4));
    status = code == ipfwsim::kExitOk ? ipfwsim::Status::success()
                                      : ipfwsim::Status::failure(code, text);
    return true;
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

std::string answerRequest(KernelTable& kernel, std::string_view body) {
    EnforcerRequest request;
    if (!decodeRequest(body, request)) {
        const ipfwsim::Status refused = ipfwsim::Status::failure(
            ipfwsim::kExitSoftware, "ipfw-enforcer: request not understood");
        return encodeReply(refused, refused.message);
    }
    if (request.kind == RequestKind::Apply) {
        const ipfwsim::Status status = kernel.apply(request.text);
        return encodeReply(status, status.message);
    }
    const size_t split = request.text.find('\n');
    std::vector<KernelRule> rules;
    const ipfwsim::Status status =
        split == std::string::npos
            ? ipfwsim::Status::failure(ipfwsim::kExitSoftware, "ipfw-enforcer: no chain named")
            : kernel.listChain(request.text.substr(0, split), request.text.substr(split + 1),
                               rules);
    return encodeReply(status, status.ok() ? encodeRules(rules) : status.message);
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
