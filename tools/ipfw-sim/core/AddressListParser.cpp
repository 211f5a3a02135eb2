#include "ipfwsim/AddressListParser.h"

#include "ipfwsim/Inet.h"
#include "ipfwsim/KeywordMatch.h"
#include "ipfwsim/OptionValues.h"

namespace ipfwsim {
namespace {

constexpr size_t kMaxInstructionWords = 63;

}  // namespace

Status AddressListParser::parse(const std::string& text, MatchKind kind, bool negated,
                                bool& emitted, Match& match) const {
    bool source = kind == MatchKind::SrcAddr;
    emitted = false;
    if (matchesAbbreviated(text, "any", diagnostics_)) {
        return Status::success();
    }
    if (matchesAbbreviated(text, "me", diagnostics_)) {
        match.kind = source ? MatchKind::SrcMe : MatchKind::DstMe;
        emitted = true;
        return Status::success();
    }
    if (text.compare(0, 6, "table(") == 0) {
        return Status::notModelled("table lookup");
    }
    match.kind = kind;
    size_t start = 0;
    while (true) {
        AddressMask element;
        size_t next = std::string::npos;
        Status status = parseElement(text, start, element, next);
        if (!status.ok()) {
            return status;
        }
        if (element.mask == 0) {
            if (negated && next == std::string::npos && match.addresses.empty()) {
                return Status::failure(kExitDataErr, "not any never matches");
            }
            match.addresses.clear();
            return Status::success();
        }
        match.addresses.push_back(element);
        if (next == std::string::npos) {
            break;
        }
        start = next + 1;
    }
    if (2 * match.addresses.size() + 1 > kMaxInstructionWords) {
        return Status::failure(kExitDataErr, "address list too long");
    }
    emitted = true;
    return Status::success();
}

// One "host[/len|:mask]" element starting at `start`; `next` is the comma after it.
// The host is resolved before the mask is looked at, as in the real command.
Status AddressListParser::parseElement(const std::string& text, size_t start, AddressMask& element,
                                       size_t& next) const {
    size_t sep = text.find_first_of("/:,{", start);
    char mode = sep == std::string::npos ? '\0' : text[sep];
    next = mode == ',' ? sep : std::string::npos;
    std::string maskText;
    if (mode == '/' || mode == ':') {
        next = text.find_first_of(",{", sep + 1);
        maskText = text.substr(sep + 1, next == std::string::npos ? next : next - sep - 1);
    }
    if (mode == '{' || (next != std::string::npos && text[next] == '{')) {
        return Status::notModelled("address set " + text);
    }
    std::string host = text.substr(start, sep == std::string::npos ? sep : sep - start);
    if (!lookupHost(names_, host, element.address)) {
        return Status::failure(kExitNoHost, "hostname ``" + host + "'' unknown");
    }
    element.mask = 0xffffffffu;
    if (mode == ':' && !parseInetAton(maskText, element.mask)) {
        return Status::failure(kExitDataErr, "bad netmask ``" + maskText + "''");
    }
    if (mode == '/') {
        long long bits = atoiSaturating(maskText);
        if (bits > 32) {
            return Status::failure(kExitDataErr, "bad width ``" + maskText + "''");
        }
        // A negative width shifts the way the real command's C expression does on x86.
        element.mask = bits == 0 ? 0 : ~0u << ((32 - bits) & 31);
    }
    element.address &= element.mask;
    return Status::success();
}

}  // namespace ipfwsim
