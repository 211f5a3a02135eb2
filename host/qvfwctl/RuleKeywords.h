// The rule words that name enumerated values (actions, protocols, TCP flags and options,
// IP options, TOS), read backwards out of the plug-in's own keyword table so that the
// words qvfwctl reads can never drift from the words the plug-in writes.
#pragma once

#include <string>
#include <vector>

#include "StringMap.h"

namespace qvctl {

// The values an enum's keyword is looked for among; every enum of the rule keeps its
// values well below this.
constexpr int kHighestKeywordValue = 32;

template <typename Enum>
struct Keyword {
    std::string word;
    Enum value;
};

template <typename Enum>
std::vector<Keyword<Enum>> KeywordsOf() {
    const qor::vela::StringMap* map = qor::vela::StringMap::getObj();
    std::vector<Keyword<Enum>> keywords;
    for (int value = 0; value <= kHighestKeywordValue; ++value) {
        std::string word;
        if (map->getString(static_cast<Enum>(value), word) == 0) {
            keywords.push_back(Keyword<Enum>{word, static_cast<Enum>(value)});
        }
    }
    return keywords;
}

// False when `word` is no keyword of Enum.
template <typename Enum>
bool FindKeyword(const std::string& word, Enum* value) {
    for (const Keyword<Enum>& keyword : KeywordsOf<Enum>()) {
        if (keyword.word == word) {
            *value = keyword.value;
            return true;
        }
    }
    return false;
}

// "syn, fin, ack" for a refusal or a completion list.
template <typename Enum>
std::string KeywordList(const char* separator = ", ") {
    std::string list;
    for (const Keyword<Enum>& keyword : KeywordsOf<Enum>()) {
        list += (list.empty() ? "" : separator) + keyword.word;
    }
    return list;
}

}  // namespace qvctl
