// The characters a host or interface name in a rule may hold. The rule text goes through
// /bin/sh, so the generator writes nothing else, and qvfwctl refuses anything else before
// it is ever sent.
#pragma once

#include <cstddef>
#include <string>

namespace qor {
namespace vela {

constexpr size_t kMaxHostNameLength = 253;
constexpr size_t kMaxInterfaceNameLength = 15;

inline bool IsNameCharacter(char c, const char* extra) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
        return true;
    }
    for (const char* p = extra; *p != '\0'; ++p) {
        if (c == *p) {
            return true;
        }
    }
    return false;
}

inline bool ConsistsOfNameCharacters(const std::string& text, size_t maxLength, const char* extra) {
    if (text.size() > maxLength) {
        return false;
    }
    for (char c : text) {
        if (!IsNameCharacter(c, extra)) {
            return false;
        }
    }
    return true;
}

inline bool IsSafeHostName(const std::string& host) {
    return ConsistsOfNameCharacters(host, kMaxHostNameLength, ".-_");
}

// "*" is ipfw's wildcard (en*); the generator escapes it from the shell.
inline bool IsSafeInterfaceName(const std::string& device) {
    return ConsistsOfNameCharacters(device, kMaxInterfaceNameLength, "._-*");
}

}  // namespace vela
}  // namespace qor
