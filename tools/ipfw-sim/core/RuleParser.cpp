#include "ipfwsim/RuleParser.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <set>

#include "ipfwsim/Inet.h"
#include "ipfwsim/KeywordMatch.h"
#include "ipfwsim/KeywordTables.h"
#include "ipfwsim/MacText.h"

namespace ipfwsim {
namespace {

constexpr size_t kMaxInstructionWords = 63;

bool startsWithDigit(const std::string& word) {
    return !word.empty() && std::isdigit(static_cast<unsigned char>(word[0])) != 0;
}

// atoi(3) without its undefined overflow: saturates at the int range.
long long atoiSaturating(const std::string& text) {
    long long value = std::strtoll(text.c_str(), nullptr, 10);
    return std::clamp<long long>(value, INT_MIN, INT_MAX);
}

uint64_t leadingRuleNumber(const std::string& word) {
    uint64_t value = 0;
    for (char c : word) {
        if (std::isdigit(static_cast<unsigned char>(c)) == 0) {
            break;
        }
        value = std::min<uint64_t>(value * 10 + static_cast<uint64_t>(c - '0'), 1ULL << 40);
    }
    return value;
}

bool isNamedIn(const std::string& word, const std::set<std::string>& names) {
    return names.count(word) != 0;
}

const std::set<std::string>& unmodelledActions() {
    static const std::set<std::string> names = {
        "pipe",   "queue",    "divert", "tee",    "netgraph",   "ngtee",    "fwd",     "forward",
        "reset6", "unreach6", "//",     "nat",    "setfib",     "setdscp",  "call",    "return",
        "reass",  "eaction",  "abort",  "abort6", "tcp-setmss", "nat64lsn", "nat64stl"};
    return names;
}

const std::set<std::string>& unmodelledOptions() {
    static const std::set<std::string> names = {"uid",
                                                "gid",
                                                "jail",
                                                "limit",
                                                "bridged",
                                                "layer2",
                                                "diverted",
                                                "diverted-loopback",
                                                "diverted-output",
                                                "fragment",
                                                "frag",
                                                "iplen",
                                                "ipid",
                                                "ipprecedence",
                                                "ipttl",
                                                "ipversion",
                                                "ipver",
                                                "tcpdatalen",
                                                "tcpseq",
                                                "tcpack",
                                                "tcpwin",
                                                "mac-type",
                                                "verrevpath",
                                                "versrcreach",
                                                "antispoof",
                                                "ipsec",
                                                "icmp6type",
                                                "icmp6types",
                                                "ext6hdr",
                                                "flow-id",
                                                "ipv6",
                                                "ip6",
                                                "ipv4",
                                                "ip4",
                                                "dst-ipv6",
                                                "dst-ip6",
                                                "src-ipv6",
                                                "src-ip6",
                                                "//",
                                                "or",
                                                "|",
                                                "{",
                                                "(",
                                                "}",
                                                ")",
                                                "tagged",
                                                "lookup",
                                                "sockarg",
                                                "fib",
                                                "dscp",
                                                "flow",
                                                "record-state",
                                                "set-limit",
                                                "defer-action",
                                                "defer-immediate-action",
                                                "tcpmss",
                                                "src-addr",
                                                "dst-addr"};
    return names;
}

// The flag list syntax: "a,!b,c"; stops quietly at the end, fails on an unknown name.
Status parseFlagList(const std::string& text, const KeywordList& table, uint32_t& bits) {
    uint32_t set = 0;
    uint32_t clear = 0;
    size_t pos = 0;
    while (pos < text.size()) {
        bool negate = text[pos] == '!';
        if (negate) {
            ++pos;
        }
        size_t comma = text.find(',', pos);
        std::string name =
            text.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
        int value = lookupKeyword(table, name);
        if (value <= 0) {
            return Status::failure(kExitDataErr, "invalid flag " + name);
        }
        (negate ? clear : set) |= static_cast<uint32_t>(value);
        if (comma == std::string::npos) {
            break;
        }
        pos = comma + 1;
    }
    bits = (set & 0xff) | ((clear & 0xff) << 8);
    return Status::success();
}

Status parseIcmpTypes(const std::string& text, uint32_t& bits) {
    bits = 0;
    const char* cursor = text.c_str();
    while (*cursor != '\0') {
        if (*cursor == ',') {
            ++cursor;
        }
        char* end = nullptr;
        // The type is stored in a byte, so 256 wraps to 0 as it does in the real command.
        auto type = static_cast<uint8_t>(std::strtoul(cursor, &end, 0));
        cursor = end;
        if (*cursor != ',' && *cursor != '\0') {
            return Status::failure(kExitDataErr, "invalid ICMP type");
        }
        if (type > 31) {
            return Status::failure(kExitDataErr, "ICMP type out of range");
        }
        bits |= 1u << type;
    }
    return Status::success();
}

Status parseInterface(const std::string& text, InterfaceRef& iface) {
    constexpr size_t kInterfaceNameMax = 15;
    if (!startsWithDigit(text)) {
        iface.name = text.substr(0, kInterfaceNameMax);
        return Status::success();
    }
    if (!parseInetAton(text, iface.address)) {
        return Status::failure(kExitDataErr, "bad ip address ``" + text + "''");
    }
    return Status::success();
}

}  // namespace

RuleParser::RuleParser(const NameService& names, Diagnostics& diagnostics)
    : names_(names), diagnostics_(diagnostics) {}

Status RuleParser::parse(const std::vector<std::string>& words, Rule& rule,
                         uint64_t& requestedNumber) {
    words_ = words;
    pos_ = 0;
    pendingNot_ = false;
    haveState_ = false;
    proto_ = 0;
    rule_ = Rule{};
    requestedNumber = 0;

    Status status = parseHead(requestedNumber);
    if (status.ok()) {
        status = parseAction();
    }
    if (status.ok()) {
        status = parseActionParameters();
    }
    if (status.ok() && rule_.action.kind != ActionKind::CheckState) {
        // A check-state rule ignores whatever follows its action parameters.
        bool reachedOptions = false;
        status = parseClassicPart(reachedOptions);
        if (status.ok()) {
            rule_.optionsOnly = !atEnd() && rule_.matches.empty();
            status = parseOptions();
        }
    }
    if (!status.ok()) {
        return status;
    }
    // The state keeper is evaluated after every other condition of the rule.
    std::stable_partition(rule_.matches.begin(), rule_.matches.end(),
                          [](const Match& m) { return m.kind != MatchKind::KeepState; });
    rule = rule_;
    return Status::success();
}

Status RuleParser::parseHead(uint64_t& requestedNumber) {
    if (!atEnd() && startsWithDigit(current())) {
        requestedNumber = leadingRuleNumber(current());
        ++pos_;
    }
    if (words_.size() - pos_ > 1 && matchesAbbreviated(current(), "set", diagnostics_)) {
        const std::string& text = words_[pos_ + 1];
        auto set = static_cast<int>(std::strtoul(text.c_str(), nullptr, 10));
        if (set < 0 || set > static_cast<int>(kReservedSet)) {
            return Status::failure(kExitDataErr, "illegal set " + text);
        }
        rule_.set = static_cast<uint32_t>(set);
        pos_ += 2;
    }
    if (words_.size() - pos_ > 1 && matchesAbbreviated(current(), "prob", diagnostics_)) {
        const std::string& text = words_[pos_ + 1];
        double probability = std::strtod(text.c_str(), nullptr);
        if (!(probability > 0) || probability > 1) {
            return Status::failure(kExitDataErr, "illegal match prob. " + text);
        }
        if (probability != 1) {
            rule_.hasProbability = true;
            rule_.probability = static_cast<int32_t>(probability * kProbabilityScale);
        }
        pos_ += 2;
    }
    return Status::success();
}

Status RuleParser::parseAction() {
    if (atEnd()) {
        return Status::failure(kExitUsage, "missing action");
    }
    const std::string word = current();
    ++pos_;
    Action& action = rule_.action;
    if (word == "allow" || word == "accept" || word == "pass" || word == "permit") {
        action.kind = ActionKind::Allow;
    } else if (word == "deny" || word == "drop") {
        action.kind = ActionKind::Deny;
    } else if (word == "reject") {
        action = Action{ActionKind::Reject, kUnreachHost};
    } else if (word == "reset") {
        action = Action{ActionKind::Reject, kRejectWithReset};
    } else if (word == "count") {
        action.kind = ActionKind::Count;
    } else if (word == "check-state") {
        action.kind = ActionKind::CheckState;
    } else if (word == "unreach") {
        if (atEnd()) {
            return Status::failure(kExitUsage, "missing reject code");
        }
        return parseUnreachCode(words_[pos_++]);
    } else if (word == "skipto") {
        if (atEnd()) {
            return Status::failure(kExitUsage, "missing argument for skipto");
        }
        return parseSkiptoTarget(words_[pos_++]);
    } else if (isNamedIn(word, unmodelledActions())) {
        return Status::notModelled(word);
    } else {
        return Status::failure(kExitDataErr, "invalid action " + word + "\n");
    }
    return Status::success();
}

Status RuleParser::parseUnreachCode(const std::string& word) {
    char* end = nullptr;
    unsigned long code = std::strtoul(word.c_str(), &end, 0);
    long value = static_cast<long>(code);
    if (end == word.c_str() || *end != '\0' || code >= 0x100) {
        value = lookupKeyword(unreachCodeKeywords(), word);
    }
    if (value < 0) {
        return Status::failure(kExitDataErr, "unknown ICMP unreachable code ``" + word + "''");
    }
    rule_.action = Action{ActionKind::Reject, static_cast<uint32_t>(value)};
    return Status::success();
}

Status RuleParser::parseSkiptoTarget(const std::string& word) {
    if (word == "tablearg") {
        return Status::notModelled("skipto tablearg");
    }
    unsigned long target = startsWithDigit(word) ? std::strtoul(word.c_str(), nullptr, 10) : 0;
    if (target == 0 || target >= kDefaultRuleNumber) {
        return Status::failure(kExitDataErr, "illegal argument for skipto");
    }
    rule_.action = Action{ActionKind::Skipto, static_cast<uint32_t>(target)};
    return Status::success();
}

Status RuleParser::parseActionParameters() {
    while (!atEnd()) {
        const std::string& word = current();
        if (word == "altq" || word == "tag" || word == "untag") {
            return Status::notModelled(word);
        }
        if (word != "log") {
            break;
        }
        ++pos_;
        if (rule_.log) {
            return Status::failure(kExitDataErr, "log cannot be specified more than once");
        }
        rule_.log = true;
        rule_.logAmount = 0;  // the kernel's default verbose_limit
        if (!atEnd() && matchesAbbreviated(current(), "logamount", diagnostics_)) {
            ++pos_;
            if (atEnd()) {
                return Status::failure(kExitUsage, "logamount requires argument");
            }
            long long amount = atoiSaturating(current());
            if (amount < 0) {
                return Status::failure(kExitDataErr, "logamount must be positive");
            }
            rule_.logAmount = static_cast<uint32_t>(amount);
            ++pos_;
        }
    }
    return Status::success();
}

Status RuleParser::takeNot() {
    if (!atEnd() && matchesAbbreviated(current(), "not", diagnostics_)) {
        if (pendingNot_) {
            return Status::failure(kExitUsage, "double \"not\" not allowed\n");
        }
        pendingNot_ = true;
        ++pos_;
    }
    return Status::success();
}

// "PROTO from SRC [PORTS] to DST [PORTS]"; a body that starts with an option skips it.
Status RuleParser::parseClassicPart(bool& reachedOptions) {
    bool isProtocol = false;
    Status status = parseClassicProtocol(isProtocol);
    if (!status.ok() || !isProtocol) {
        reachedOptions = true;
        return status;
    }
    if (atEnd() || !matchesAbbreviated(current(), "from", diagnostics_)) {
        return Status::failure(kExitUsage, "missing ``from''");
    }
    ++pos_;
    status = parseClassicAddress(MatchKind::SrcAddr, "missing source address");
    if (status.ok()) {
        status = parseClassicPorts(MatchKind::SrcPort);
    }
    if (!status.ok()) {
        return status;
    }
    if (atEnd() || !matchesAbbreviated(current(), "to", diagnostics_)) {
        return Status::failure(kExitUsage, "missing ``to''");
    }
    ++pos_;
    status = parseClassicAddress(MatchKind::DstAddr, "missing dst address");
    if (status.ok()) {
        status = parseClassicPorts(MatchKind::DstPort);
    }
    reachedOptions = true;
    return status;
}

// The protocol of the classic form; a word that names no protocol starts the options.
// "ip" and "all" match every protocol and so compile to nothing.
Status RuleParser::parseClassicProtocol(bool& isProtocol) {
    isProtocol = false;
    if (!atEnd() && (current()[0] == '(' || current()[0] == '{')) {
        return Status::notModelled("or-block");
    }
    Status status = takeNot();
    if (!status.ok()) {
        return status;
    }
    if (atEnd()) {
        return Status::failure(kExitUsage, "missing protocol");
    }
    const std::string word = current();
    if (word == "ipv4" || word == "ip4" || word == "ipv6" || word == "ip6") {
        return Status::notModelled(word);
    }
    uint32_t number = 0;
    bool anyProto = matchesAbbreviated(word, "all", diagnostics_) || word == "ip";
    if (!anyProto && !protocolNumber(word, number)) {
        return Status::success();
    }
    isProtocol = true;
    ++pos_;
    if (!anyProto) {
        Match match;
        match.kind = MatchKind::Proto;
        match.value = number;
        proto_ = static_cast<uint8_t>(number);
        emit(match);
    }
    if (!atEnd() && matchesAbbreviated(current(), "or", diagnostics_)) {
        return Status::notModelled("or-block");
    }
    return Status::success();
}

Status RuleParser::parseClassicAddress(MatchKind kind, const char* missingMessage) {
    if (!atEnd() && (current()[0] == '(' || current()[0] == '{')) {
        return Status::notModelled("or-block");
    }
    Status status = takeNot();
    if (!status.ok()) {
        return status;
    }
    if (atEnd()) {
        return Status::failure(kExitUsage, missingMessage);
    }
    const std::string& word = current();
    std::string host = word.substr(0, word.rfind('/'));
    in6_addr ignored{};
    if (word == "me6" || inet_pton(AF_INET6, host.c_str(), &ignored) == 1) {
        return Status::notModelled("IPv6 address " + word);
    }
    Match match;
    bool emitted = false;
    status = addressMatch(word, kind, emitted, match);
    if (!status.ok()) {
        return status;
    }
    ++pos_;
    if (emitted) {
        emit(match);
    }
    if (!atEnd() && matchesAbbreviated(current(), "or", diagnostics_)) {
        return Status::notModelled("or-block");
    }
    return Status::success();
}

Status RuleParser::parseClassicPorts(MatchKind kind) {
    Status status = takeNot();
    if (!status.ok() || atEnd()) {
        return status;
    }
    if (matchesAbbreviated(current(), "any", diagnostics_)) {
        ++pos_;
        return Status::success();
    }
    Match match;
    match.kind = kind;
    bool valid = false;
    status = portMatch(current(), match, valid);
    if (status.ok() && valid) {
        ++pos_;
        emit(match);
    }
    return status;
}

Status RuleParser::parseOptions() {
    while (!atEnd()) {
        std::string keyword = current();
        if (!keyword.empty() && keyword[0] == '!') {
            if (pendingNot_) {
                return Status::failure(kExitUsage, "double \"not\" not allowed\n");
            }
            pendingNot_ = true;
            keyword.erase(0, 1);
        }
        ++pos_;
        Status status = parseOption(keyword);
        if (!status.ok()) {
            return status;
        }
    }
    return Status::success();
}

// Option keywords and their handlers; aliases share a handler.
const std::vector<std::pair<const char*, Status (RuleParser::*)(const std::string&)>>&
RuleParser::optionHandlers() {
    static const std::vector<std::pair<const char*, Status (RuleParser::*)(const std::string&)>>
        handlers = {{"not", &RuleParser::parseNotOption},
                    {"in", &RuleParser::parseDirectionOption},
                    {"out", &RuleParser::parseDirectionOption},
                    {"via", &RuleParser::parseInterfaceOption},
                    {"recv", &RuleParser::parseInterfaceOption},
                    {"xmit", &RuleParser::parseInterfaceOption},
                    {"icmptypes", &RuleParser::parseIcmpTypesOption},
                    {"icmptype", &RuleParser::parseIcmpTypesOption},
                    {"ipoptions", &RuleParser::parseFlagOption},
                    {"ipopts", &RuleParser::parseFlagOption},
                    {"iptos", &RuleParser::parseFlagOption},
                    {"tcpoptions", &RuleParser::parseFlagOption},
                    {"tcpopts", &RuleParser::parseFlagOption},
                    {"tcpflags", &RuleParser::parseFlagOption},
                    {"tcpflgs", &RuleParser::parseFlagOption},
                    {"setup", &RuleParser::parseBareOption},
                    {"established", &RuleParser::parseBareOption},
                    {"estab", &RuleParser::parseBareOption},
                    {"keep-state", &RuleParser::parseKeepState},
                    {"proto", &RuleParser::parseProtoOption},
                    {"src-ip", &RuleParser::parseAddressOption},
                    {"dst-ip", &RuleParser::parseAddressOption},
                    {"src-port", &RuleParser::parsePortOption},
                    {"dst-port", &RuleParser::parsePortOption},
                    {"mac", &RuleParser::parseMacOption},
                    {"MAC", &RuleParser::parseMacOption}};
    return handlers;
}

Status RuleParser::parseOption(const std::string& keyword) {
    for (const auto& handler : optionHandlers()) {
        if (keyword == handler.first) {
            return (this->*handler.second)(keyword);
        }
    }
    if (isNamedIn(keyword, unmodelledOptions())) {
        return Status::notModelled(keyword);
    }
    return Status::failure(kExitUsage, "unrecognised option [-1] " + keyword + "\n");
}

Status RuleParser::parseNotOption(const std::string&) {
    if (pendingNot_) {
        return Status::failure(kExitUsage, "double \"not\" not allowed\n");
    }
    pendingNot_ = true;
    return Status::success();
}

// "out" is a negated "in", so "not out" reads as "in".
Status RuleParser::parseDirectionOption(const std::string& keyword) {
    Match match;
    match.kind = MatchKind::In;
    match.negated = pendingNot_ != (keyword == "out");
    pendingNot_ = false;
    rule_.matches.push_back(match);
    return Status::success();
}

Status RuleParser::parseIcmpTypesOption(const std::string&) {
    if (atEnd()) {
        return Status::failure(kExitUsage, "icmptypes requires list of types");
    }
    Match match;
    match.kind = MatchKind::IcmpTypes;
    Status status = parseIcmpTypes(words_[pos_++], match.value);
    if (status.ok()) {
        emit(match);
    }
    return status;
}

// "setup" is the flag test syn,!ack; "established" needs no argument.
Status RuleParser::parseBareOption(const std::string& keyword) {
    Match match;
    match.kind = keyword == "setup" ? MatchKind::TcpFlags : MatchKind::Established;
    if (keyword == "setup") {
        match.value = kTcpSyn | (static_cast<uint32_t>(kTcpAck) << 8);
    }
    emit(match);
    return Status::success();
}

Status RuleParser::parseProtoOption(const std::string&) {
    if (atEnd()) {
        return Status::failure(kExitUsage, "missing protocol");
    }
    const std::string word = words_[pos_++];
    if (matchesAbbreviated(word, "all", diagnostics_) || word == "ip") {
        proto_ = 0;
        return Status::success();
    }
    if (word == "ipv4" || word == "ip4" || word == "ipv6" || word == "ip6") {
        return Status::notModelled(word);
    }
    uint32_t number = 0;
    if (!protocolNumber(word, number)) {
        return Status::failure(kExitDataErr, "invalid protocol ``" + word + "''");
    }
    Match match;
    match.kind = MatchKind::Proto;
    match.value = number;
    proto_ = static_cast<uint8_t>(number);
    emit(match);
    return Status::success();
}

Status RuleParser::parseAddressOption(const std::string& keyword) {
    const bool source = keyword == "src-ip";
    const MatchKind kind = source ? MatchKind::SrcAddr : MatchKind::DstAddr;
    if (atEnd()) {
        return Status::failure(kExitUsage, source ? "missing source IP" : "missing destination IP");
    }
    Match match;
    bool emitted = false;
    Status status = addressMatch(words_[pos_++], kind, emitted, match);
    if (status.ok() && emitted) {
        emit(match);
    }
    return status;
}

Status RuleParser::parsePortOption(const std::string& keyword) {
    const bool source = keyword == "src-port";
    const MatchKind kind = source ? MatchKind::SrcPort : MatchKind::DstPort;
    if (atEnd()) {
        return Status::failure(kExitUsage,
                               source ? "missing source port" : "missing destination port");
    }
    const std::string word = words_[pos_++];
    if (matchesAbbreviated(word, "any", diagnostics_)) {
        return Status::success();
    }
    Match match;
    match.kind = kind;
    bool valid = false;
    Status status = portMatch(word, match, valid);
    if (!status.ok()) {
        return status;
    }
    if (!valid) {
        return Status::failure(
            kExitDataErr, (source ? "invalid source port " : "invalid destination port ") + word);
    }
    emit(match);
    return Status::success();
}

// tcpflags, tcpoptions, ipoptions and iptos: a list of names from their table.
Status RuleParser::parseFlagOption(const std::string& keyword) {
    struct FlagOption {
        const char* prefix;
        const char* name;
        MatchKind kind;
        const KeywordList& table;
    };
    static const FlagOption options[] = {
        {"tcpf", "tcpflags", MatchKind::TcpFlags, tcpFlagKeywords()},
        {"tcpo", "tcpoptions", MatchKind::TcpOptions, tcpOptionKeywords()},
        {"ipo", "ipoptions", MatchKind::IpOptions, ipOptionKeywords()},
        {"ipt", "iptos", MatchKind::IpTos, ipTosKeywords()}};
    const FlagOption* option = &options[0];
    for (const FlagOption& candidate : options) {
        if (keyword.rfind(candidate.prefix, 0) == 0) {
            option = &candidate;
        }
    }
    if (atEnd()) {
        return Status::failure(kExitUsage, std::string("missing argument for ") + option->name);
    }
    const KeywordList& table = option->table;
    Match match;
    match.kind = option->kind;
    Status status = parseFlagList(words_[pos_++], table, match.value);
    if (status.ok()) {
        emit(match);
    }
    return status;
}

Status RuleParser::parseInterfaceOption(const std::string& keyword) {
    const MatchKind kind = keyword == "via"    ? MatchKind::Via
                           : keyword == "recv" ? MatchKind::Recv
                                               : MatchKind::Xmit;
    if (atEnd()) {
        return Status::failure(kExitUsage, "recv, xmit, via require interface name or address");
    }
    const std::string word = words_[pos_++];
    if (word == "any") {
        pendingNot_ = false;  // the real command drops the whole instruction, negation included
        return Status::success();
    }
    Match match;
    match.kind = kind;
    Status status = parseInterface(word, match.iface);
    if (status.ok()) {
        emit(match);
    }
    return status;
}

Status RuleParser::parseMacOption(const std::string&) {
    if (words_.size() - pos_ < 2) {
        return Status::failure(kExitDataErr, "MAC dst src");
    }
    Match match;
    match.kind = MatchKind::Mac;
    Status status = parseMacAddressMask(words_[pos_], match.mac.dstAddress, match.mac.dstMask);
    if (status.ok()) {
        status = parseMacAddressMask(words_[pos_ + 1], match.mac.srcAddress, match.mac.srcMask);
    }
    if (!status.ok()) {
        return status;
    }
    pos_ += 2;
    emit(match);
    return Status::success();
}

Status RuleParser::parseKeepState(const std::string&) {
    if (haveState_) {
        return Status::failure(kExitUsage, "only one of keep-state and limit is allowed");
    }
    haveState_ = true;
    Match match;
    match.kind = MatchKind::KeepState;
    emit(match);
    return Status::success();
}

// One address option: "any", "me", or a list of address[/len|:mask] elements, each
// a number or a host name. An element masked to nothing makes the whole list match
// anything, so the option then compiles to nothing.
Status RuleParser::addressMatch(const std::string& text, MatchKind kind, bool& emitted,
                                Match& match) {
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
        Status status = parseAddressElement(text, start, element, next);
        if (!status.ok()) {
            return status;
        }
        if (element.mask == 0) {
            if (pendingNot_ && next == std::string::npos && match.addresses.empty()) {
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
Status RuleParser::parseAddressElement(const std::string& text, size_t start, AddressMask& element,
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

// A port number (any base strtol accepts) or a service name, whose letters and
// digits may be escaped with a backslash. `end` is where the value stopped.
bool RuleParser::portValue(const std::string& text, size_t start, size_t& end,
                           uint16_t& port) const {
    end = start;
    if (start >= text.size()) {
        return false;
    }
    if (std::isdigit(static_cast<unsigned char>(text[start])) != 0) {
        const char* begin = text.c_str() + start;
        char* stop = nullptr;
        port = static_cast<uint16_t>(std::strtol(begin, &stop, 0));
        end = start + static_cast<size_t>(stop - begin);
        return true;
    }
    size_t scan = start;
    std::string name;
    while (scan < text.size() &&
           (std::isalnum(static_cast<unsigned char>(text[scan])) != 0 || text[scan] == '\\')) {
        if (text[scan] == '\\' && scan + 1 < text.size()) {
            ++scan;
        }
        if (text[scan] != '\\') {
            name += text[scan];
        }
        ++scan;
    }
    std::string protocol = proto_ == 0 ? std::string() : names_.protocolName(proto_);
    if (!names_.serviceByName(name, protocol, port)) {
        return false;
    }
    end = scan;
    return true;
}

Status RuleParser::portMatch(const std::string& text, Match& match, bool& valid) {
    valid = false;
    size_t element = 0;
    size_t stop = 0;
    while (stop < text.size()) {
        PortRange range;
        if (!portValue(text, element, stop, range.low)) {
            return Status::success();
        }
        range.high = range.low;
        char sep = stop < text.size() ? text[stop] : '\0';
        if (sep == '-') {
            size_t second = stop + 1;
            if (!portValue(text, second, stop, range.high)) {
                return Status::success();
            }
            if (stop < text.size() && text[stop] != ',') {
                return Status::success();
            }
        } else if (sep != ',' && sep != '\0') {
            diagnostics_.warn(std::string("port list: invalid separator <") + sep + "> in <" +
                              text.substr(element) + ">");
            return Status::success();
        }
        match.ports.push_back(range);
        element = stop + 1;
        if (stop >= text.size()) {
            break;
        }
    }
    if (match.ports.empty()) {
        return Status::success();
    }
    if (match.ports.size() + 1 > kMaxInstructionWords) {
        return Status::failure(kExitDataErr, "too many ports/ranges\n");
    }
    valid = true;
    return Status::success();
}

// A positive decimal number is taken as it stands (it may exceed a byte and then
// never matches); anything else must be a protocol name.
bool RuleParser::protocolNumber(const std::string& word, uint32_t& number) const {
    char* end = nullptr;
    long parsed = std::strtol(word.c_str(), &end, 10);
    if (*end == '\0' && parsed > 0) {
        number = static_cast<uint32_t>(std::min<long>(parsed, INT_MAX));
        return true;
    }
    uint8_t named = 0;
    if (!names_.protocolByName(word, named)) {
        return false;
    }
    number = named;
    return true;
}

void RuleParser::emit(Match match) {
    match.negated = pendingNot_;
    pendingNot_ = false;
    rule_.matches.push_back(std::move(match));
}

}  // namespace ipfwsim
