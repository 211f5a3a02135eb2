#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ipfwsim {

struct Keyword {
    const char* name;
    uint32_t value;
};

using KeywordList = std::vector<Keyword>;

// Listing order is table order, and the first name of a value is the one listed.
const KeywordList& tcpFlagKeywords();
const KeywordList& tcpOptionKeywords();
const KeywordList& ipOptionKeywords();
const KeywordList& ipTosKeywords();
const KeywordList& unreachCodeKeywords();

// Exact lookup; -1 when absent (an empty word is always absent).
int lookupKeyword(const KeywordList& list, const std::string& word);
// First name with that value; nullptr when there is none.
const char* keywordName(const KeywordList& list, uint32_t value);

// Words of the real command that the simulator knows but does not model: an action or an
// option named by one is refused as not modelled rather than as unknown.
bool isUnmodelledAction(const std::string& word);
bool isUnmodelledOption(const std::string& word);

constexpr uint8_t kTcpFin = 0x01;
constexpr uint8_t kTcpSyn = 0x02;
constexpr uint8_t kTcpRst = 0x04;
constexpr uint8_t kTcpPsh = 0x08;
constexpr uint8_t kTcpAck = 0x10;
constexpr uint8_t kTcpUrg = 0x20;

}  // namespace ipfwsim
