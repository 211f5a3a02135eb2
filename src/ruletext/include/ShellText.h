// Checks on text from the configuration before it is put into a command line that
// /bin/sh runs as root.
#pragma once

#include <string>

namespace qor {
namespace vela {

// True when `text` means itself between double quotes: no quote, dollar, backquote,
// backslash or newline, and no NUL that would cut the command short.
inline bool IsSafeInDoubleQuotes(const std::string& text) {
    return text.find_first_of(std::string("\"$`\\\n\0", 6)) == std::string::npos;
}

// True when `text` is one shell word as it stands: a non-empty path of letters, digits
// and "/._+,:@%-", so nothing is split, expanded or globbed.
inline bool IsPlainShellWord(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    for (unsigned char c : text) {
        const bool alphanumeric =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!alphanumeric &&
            std::string("/._+,:@%-").find(static_cast<char>(c)) == std::string::npos) {
            return false;
        }
    }
    return true;
}

}  // namespace vela
}  // namespace qor
