// A rule in the words of its ipfw text, read back into the message that the plug-in's
// generator turns into that text:
//
//   [prob P] ACTION [log [logamount 0]] OPTION...
//
// ACTION is allow, deny, reset, unreach CODE or check-state (alone); OPTION is one of
// [not] proto P, src-ip/dst-ip LIST, src-port/dst-port PORTS, icmptypes T,
// tcpflags/tcpoptions/ipoptions/iptos [!]K,..., mac DST SRC, in, out, via IF, keep-state,
// each at most once and in any order. Where the generator writes two messages alike, the
// reader gives the plainest: the action always set, no "false" flags, no direction for
// "both", interfaces by address as FW_IF_TYPE_2.
#pragma once

#include <stddef.h>

#include <string>
#include <vector>

#include "VelaFwMsg.pb.h"

namespace qvctl {

struct [[nodiscard]] ReadResult {
    bool ok = true;
    size_t position = 0;   // 1-based number of the word that could not be read
    std::string word;      // that word; empty when the words ran out
    std::string expected;  // what could have stood there

    // "word 3 'tcpp': expected a protocol (...)".
    std::string Describe() const;
};

// Words split at blanks: the rule as one quoted argument or as several.
std::vector<std::string> SplitWords(const std::string& text);

ReadResult ReadRuleWords(const std::vector<std::string>& words, qor::vela::FwRule* rule);
ReadResult ReadRuleText(const std::string& text, qor::vela::FwRule* rule);

// True when `word` can start a rule in words (an action or "prob"), so that qvfwctl can
// tell words from JSON and file names.
bool StartsRuleWords(const std::string& word);

// The words that may follow the action, for completion.
std::vector<std::string> OptionWords();
// The action words.
std::vector<std::string> ActionWords();

}  // namespace qvctl
