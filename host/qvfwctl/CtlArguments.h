// qvfwctl's command line: options may stand before or after the sub-command; the first
// other word is the sub-command and the rest are its arguments ("-" included).
#pragma once

#include <string>
#include <vector>

namespace qvctl {

struct CtlArguments {
    std::string controlSocket;
    bool json = false;
    bool help = false;
    bool all = false;  // watch/events: events of both origins
    long count = -1;   // watch/events: how many kept events first (-1: the default)
    std::string command;
    std::vector<std::string> positional;
};

// `controlEnv`: $QV_CONTROL_SOCKET (may be null). False with the reason in `error`.
bool ParseCtlArguments(const std::vector<std::string>& arguments, const char* controlEnv,
                       CtlArguments* parsed, std::string* error);

// A non-negative decimal number that fits `unsigned int`; false otherwise.
bool ParseUnsigned(const std::string& text, unsigned int* value);

}  // namespace qvctl
