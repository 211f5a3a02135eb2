// qvfwctl's command line: options may stand before or after the sub-command; the first
// other word is the sub-command and the rest are its arguments ("-" included).
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

namespace qvctl {

struct CtlArguments {
    std::string controlSocket;
    bool json = false;
    bool help = false;
    bool all = false;            // watch/events: events of both origins
    long count = -1;             // watch/events: how many kept events first (-1: the default)
    int64_t forSeconds = 0;      // add, add-exception, add-rules: the rules' lifetime (0: for good)
    int64_t confirmSeconds = 0;  // apply: the time to confirm (0: no confirmation)
    bool exceptions = false;     // apply: the exception list
    bool dryRun = false;         // apply: show the difference, change nothing
    std::string command;
    std::vector<std::string> positional;
};

// `controlEnv`: $QV_CONTROL_SOCKET (may be null). False with the reason in `error`.
bool ParseCtlArguments(const std::vector<std::string>& arguments, const char* controlEnv,
                       CtlArguments* parsed, std::string* error);

// False with the reason when an option is given to a command it does not apply to
// (--for outside add, add-exception and add-rules; --confirm, --exceptions and --dry-run
// outside apply).
bool CheckOptionScope(const CtlArguments& parsed, std::string* error);

// A non-negative decimal number that fits `unsigned int`; false otherwise.
bool ParseUnsigned(const std::string& text, unsigned int* value);

}  // namespace qvctl
