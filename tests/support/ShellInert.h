// What the plug-in hands to /bin/sh must mean nothing to it beyond words: command lines
// and rule text are letters, digits, blanks and ".,/:-_+", with a backslash only in front
// of "!" (the generator's escaped negation) or "*" (an ipfw interface wildcard, which the
// shell would otherwise expand against the files of its working directory). Shared by
// the fuzz targets and the reliability tests.
#pragma once

#include <cstddef>
#include <string>

namespace qvfuzz {

inline bool IsShellInertChar(char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
        return true;
    }
    return c != '\0' && std::string(" .,/:-_+").find(c) != std::string::npos;
}

// The position of the first character the shell would act on, or npos.
inline size_t FirstShellActiveChar(const std::string& text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == '!' || text[i + 1] == '*')) {
            ++i;
            continue;
        }
        if (!IsShellInertChar(text[i])) {
            return i;
        }
    }
    return std::string::npos;
}

// A whole ipfw command line as RuleMgr builds it: the only redirection allowed is the
// fixed " 2>/dev/stdout" at its end.
inline size_t FirstShellActiveCharInCommand(std::string command) {
    const std::string redirect = " 2>/dev/stdout";
    if (command.size() >= redirect.size() &&
        command.compare(command.size() - redirect.size(), redirect.size(), redirect) == 0) {
        command.resize(command.size() - redirect.size());
    }
    return FirstShellActiveChar(command);
}

}  // namespace qvfuzz
