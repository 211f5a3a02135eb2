#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ipfwsim/Diagnostics.h"
#include "ipfwsim/NameService.h"
#include "ipfwsim/Rule.h"
#include "ipfwsim/Status.h"

namespace ipfwsim {

// Compiles the words of an "add" command into a rule the way the real command does:
// same grammar, same order of checks, same messages and exit codes. Host names are
// resolved here, at add time.
class RuleParser {
public:
    RuleParser(const NameService& names, Diagnostics& diagnostics);

    // `requestedNumber` is 0 for automatic numbering; it is not range-checked here
    // because the real command only learns that from the kernel after parsing.
    Status parse(const std::vector<std::string>& words, Rule& rule, uint64_t& requestedNumber);

private:
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
    static const std::vector<std::pair<const char*, Status (RuleParser::*)(const std::string&)>>&
    optionHandlers();
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
    Status addressMatch(const std::string& text, MatchKind kind, bool& emitted, Match& match);
    Status parseAddressElement(const std::string& text, size_t start, AddressMask& element,
                               size_t& next) const;
    Status portMatch(const std::string& text, Match& match, bool& valid);
    bool portValue(const std::string& text, size_t start, size_t& end, uint16_t& port) const;
    bool protocolNumber(const std::string& word, uint32_t& number) const;
    void emit(Match match);
    bool atEnd() const { return pos_ >= words_.size(); }
    const std::string& current() const { return words_[pos_]; }

    const NameService& names_;
    Diagnostics& diagnostics_;
    std::vector<std::string> words_;
    size_t pos_ = 0;
    bool pendingNot_ = false;
    bool haveState_ = false;
    uint8_t proto_ = 0;
    Rule rule_;
};

}  // namespace ipfwsim
