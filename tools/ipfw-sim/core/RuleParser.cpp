#include "ipfwsim/RuleParser.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "ipfwsim/AddressListParser.h"
#include "ipfwsim/Inet.h"
#include "ipfwsim/KeywordMatch.h"
#include "ipfwsim/KeywordTables.h"
#include "ipfwsim/MacText.h"
#include "ipfwsim/OptionValues.h"
#include "ipfwsim/PortListParser.h"

namespace ipfwsim {
namespace {

bool startsWithDigit(const std::string& word) {
    return !word.empty() && std::isdigit(static_cast<unsigned char>(word[0])) != 0;
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

// One parse: the words, where it stands in them, and the rule made so far.
class RuleGrammar {
public:
    RuleGrammar(const NameService& names, Diagnostics& diagnostics,
                const std::vector<std::string>& words)
        : names_(names),
          diagnostics_(diagnostics),
          addresses_(names, diagnostics),
          ports_(names, diagnostics),
          words_(words) {}

    Status parse(Rule& rule, uint64_t& requestedNumber);

private:
    using OptionHandler = Status (RuleGrammar::*)(const std::string&);

    Status parseHead(uint64_t& requestedNumber);
    Status parseAction();
    Status parseUnreachCode(const std::string& word);
    Status parseSkiptoTarget(const std::string& word);
    Status parseActionParameters();
    Status parseClassicPart(bool& reachedOptions);
    Status parseClassicProtocol(bool& isProtocol);
    Status parseClassicAddress(MatchKind kind, const char* missingMessage);
    Status parseClassicPorts(MatchKind kind);
    Status parseOptions();
    Status parseOption(const std::string& keyword);
    static const std::vector<std::pair<const char*, OptionHandler>>& optionHandlers();
    // One handler per option keyword; each consumes the option's arguments.
    Status parseNotOption(const std::string& keyword);
    Status parseDirectionOption(const std::string& keyword);
    Status parseIcmpTypesOption(const std::string& keyword);
    Status parseBareOption(const std::string& keyword);
    Status parseProtoOption(const std::string& keyword);
    Status parseAddressOption(const std::string& keyword);
    Status parsePortOption(const std::string& keyword);
    Status parseFlagOption(const std::string& keyword);
    Status parseInterfaceOption(const std::string& keyword);
    Status parseMacOption(const std::string& keyword);
    Status parseKeepState(const std::string& keyword);

    Status takeNot();
    bool protocolNumber(const std::string& word, uint32_t& number) const;
    void emit(Match match);
    bool atEnd() const { return pos_ >= words_.size(); }
    const std::string& current() const { return words_[pos_]; }

    const NameService& names_;
    Diagnostics& diagnostics_;
    const AddressListParser addresses_;
    const PortListParser ports_;
    const std::vector<std::string>& words_;
    size_t pos_ = 0;
    bool pendingNot_ = false;
    bool haveState_ = false;
    uint8_t proto_ = 0;
    Rule rule_;
};

}  // namespace

Status RuleParser::parse(const std::vector<std::string>& words, Rule& rule,
                         uint64_t& requestedNumber) const {
    return RuleGrammar(names_, diagnostics_, words).parse(rule, requestedNumber);
}

Status RuleGrammar::parse(Rule& rule, uint64_t& requestedNumber) {
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

Status RuleGrammar::parseHead(uint64_t& requestedNumber) {
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

Status RuleGrammar::parseAction() {
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
    } else if (isUnmodelledAction(word)) {
        return Status::notModelled(word);
    } else {
        return Status::failure(kExitDataErr, "invalid action " + word + "\n");
    }
    return Status::success();
}

Status RuleGrammar::parseUnreachCode(const std::string& word) {
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

Status RuleGrammar::parseSkiptoTarget(const std::string& word) {
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

Status RuleGrammar::parseActionParameters() {
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

Status RuleGrammar::takeNot() {
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
Status RuleGrammar::parseClassicPart(bool& reachedOptions) {
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
Status RuleGrammar::parseClassicProtocol(bool& isProtocol) {
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

Status RuleGrammar::parseClassicAddress(MatchKind kind, const char* missingMessage) {
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
    status = addresses_.parse(word, kind, pendingNot_, emitted, match);
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

Status RuleGrammar::parseClassicPorts(MatchKind kind) {
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
    status = ports_.parse(current(), proto_, match, valid);
    if (status.ok() && valid) {
        ++pos_;
        emit(match);
    }
    return status;
}

Status RuleGrammar::parseOptions() {
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
const std::vector<std::pair<const char*, RuleGrammar::OptionHandler>>&
RuleGrammar::optionHandlers() {
    static const std::vector<std::pair<const char*, OptionHandler>> handlers = {
        {"not", &RuleGrammar::parseNotOption},
        {"in", &RuleGrammar::parseDirectionOption},
        {"out", &RuleGrammar::parseDirectionOption},
        {"via", &RuleGrammar::parseInterfaceOption},
        {"recv", &RuleGrammar::parseInterfaceOption},
        {"xmit", &RuleGrammar::parseInterfaceOption},
        {"icmptypes", &RuleGrammar::parseIcmpTypesOption},
        {"icmptype", &RuleGrammar::parseIcmpTypesOption},
        {"ipoptions", &RuleGrammar::parseFlagOption},
        {"ipopts", &RuleGrammar::parseFlagOption},
        {"iptos", &RuleGrammar::parseFlagOption},
        {"tcpoptions", &RuleGrammar::parseFlagOption},
        {"tcpopts", &RuleGrammar::parseFlagOption},
        {"tcpflags", &RuleGrammar::parseFlagOption},
        {"tcpflgs", &RuleGrammar::parseFlagOption},
        {"setup", &RuleGrammar::parseBareOption},
        {"established", &RuleGrammar::parseBareOption},
        {"estab", &RuleGrammar::parseBareOption},
        {"keep-state", &RuleGrammar::parseKeepState},
        {"proto", &RuleGrammar::parseProtoOption},
        {"src-ip", &RuleGrammar::parseAddressOption},
        {"dst-ip", &RuleGrammar::parseAddressOption},
        {"src-port", &RuleGrammar::parsePortOption},
        {"dst-port", &RuleGrammar::parsePortOption},
        {"mac", &RuleGrammar::parseMacOption},
        {"MAC", &RuleGrammar::parseMacOption}};
    return handlers;
}

Status RuleGrammar::parseOption(const std::string& keyword) {
    for (const auto& handler : optionHandlers()) {
        if (keyword == handler.first) {
            return (this->*handler.second)(keyword);
        }
    }
    if (isUnmodelledOption(keyword)) {
        return Status::notModelled(keyword);
    }
    return Status::failure(kExitUsage, "unrecognised option [-1] " + keyword + "\n");
}

Status RuleGrammar::parseNotOption(const std::string&) {
    if (pendingNot_) {
        return Status::failure(kExitUsage, "double \"not\" not allowed\n");
    }
    pendingNot_ = true;
    return Status::success();
}

// "out" is a negated "in", so "not out" reads as "in".
Status RuleGrammar::parseDirectionOption(const std::string& keyword) {
    Match match;
    match.kind = MatchKind::In;
    match.negated = pendingNot_ != (keyword == "out");
    pendingNot_ = false;
    rule_.matches.push_back(match);
    return Status::success();
}

Status RuleGrammar::parseIcmpTypesOption(const std::string&) {
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
Status RuleGrammar::parseBareOption(const std::string& keyword) {
    Match match;
    match.kind = keyword == "setup" ? MatchKind::TcpFlags : MatchKind::Established;
    if (keyword == "setup") {
        match.value = kTcpSyn | (static_cast<uint32_t>(kTcpAck) << 8);
    }
    emit(match);
    return Status::success();
}

Status RuleGrammar::parseProtoOption(const std::string&) {
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

Status RuleGrammar::parseAddressOption(const std::string& keyword) {
    const bool source = keyword == "src-ip";
    const MatchKind kind = source ? MatchKind::SrcAddr : MatchKind::DstAddr;
    if (atEnd()) {
        return Status::failure(kExitUsage, source ? "missing source IP" : "missing destination IP");
    }
    Match match;
    bool emitted = false;
    Status status = addresses_.parse(words_[pos_++], kind, pendingNot_, emitted, match);
    if (status.ok() && emitted) {
        emit(match);
    }
    return status;
}

Status RuleGrammar::parsePortOption(const std::string& keyword) {
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
    Status status = ports_.parse(word, proto_, match, valid);
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
Status RuleGrammar::parseFlagOption(const std::string& keyword) {
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

Status RuleGrammar::parseInterfaceOption(const std::string& keyword) {
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

Status RuleGrammar::parseMacOption(const std::string&) {
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

Status RuleGrammar::parseKeepState(const std::string&) {
    if (haveState_) {
        return Status::failure(kExitUsage, "only one of keep-state and limit is allowed");
    }
    haveState_ = true;
    Match match;
    match.kind = MatchKind::KeepState;
    emit(match);
    return Status::success();
}

// A positive decimal number is taken as it stands (it may exceed a byte and then
// never matches); anything else must be a protocol name.
bool RuleGrammar::protocolNumber(const std::string& word, uint32_t& number) const {
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

void RuleGrammar::emit(Match match) {
    match.negated = pendingNot_;
    pendingNot_ = false;
    rule_.matches.push_back(std::move(match));
}

}  // namespace ipfwsim
