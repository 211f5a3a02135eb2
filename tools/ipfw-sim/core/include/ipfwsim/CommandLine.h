#pragma once

#include <string>
#include <vector>

#include "ipfwsim/Status.h"

namespace ipfwsim {

struct Options {
    bool counters = false;  // -a
    bool dynamic = false;   // -d
    bool expired = false;   // -e
    bool force = false;     // -f
    bool help = false;      // -h
    bool testOnly = false;  // -n
    bool quiet = false;     // -q
    bool sets = false;      // -S
};

// The arguments as the command reads them: one argument holding the whole command is
// split at blanks (after "," blanks are dropped, "#" starts a comment); otherwise a
// word ending in "," is joined with the next. Then the leading options.
// Applies the leading option words ("-abc": one letter at a time) with `apply`, up to the
// first operand or "--". `firstOperand` receives where the operands start.
template <typename Apply>
Status parseLeadingOptions(const std::vector<std::string>& words, size_t& firstOperand,
                           Apply apply) {
    size_t pos = 0;
    for (; pos < words.size(); ++pos) {
        const std::string& word = words[pos];
        if (word == "--") {
            ++pos;
            break;
        }
        if (word.size() < 2 || word[0] != '-') {
            break;
        }
        for (size_t i = 1; i < word.size(); ++i) {
            Status status = apply(word[i]);
            if (!status.ok()) {
                return status;
            }
        }
    }
    firstOperand = pos;
    return Status::success();
}

struct CommandLine {
    Options options;
    std::vector<std::string> words;

    static Status parse(const std::vector<std::string>& arguments, CommandLine& line);
};

}  // namespace ipfwsim
