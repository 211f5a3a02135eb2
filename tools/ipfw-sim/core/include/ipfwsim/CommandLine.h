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
struct CommandLine {
    Options options;
    std::vector<std::string> words;

    static Status parse(const std::vector<std::string>& arguments, CommandLine& line);
};

}  // namespace ipfwsim
