#include "ipfwsim/KeywordMatch.h"

#include <cstring>

namespace ipfwsim {

bool matchesAbbreviated(const std::string& word, const char* keyword, Diagnostics& diagnostics) {
    if (std::strncmp(word.c_str(), keyword, word.size()) != 0) {
        return false;
    }
    if (word.size() != std::strlen(keyword)) {
        diagnostics.warn("DEPRECATED: '" + word + "' matched '" + keyword + "' as a sub-string");
    }
    return true;
}

}  // namespace ipfwsim
