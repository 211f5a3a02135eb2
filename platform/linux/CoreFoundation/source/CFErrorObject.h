// The error handed out through the CFErrorRef out-parameters. It carries a code and a
// description for debugging; the subset has no accessors for it.
#pragma once

#include "CFObject.h"

#include <CoreFoundation/CFPropertyList.h>

#include <string>

struct __CFError : qvcf::CFObject {
    __CFError(CFIndex errorCode, std::string text)
        : CFObject(qvcf::kErrorTypeId, false), code(errorCode), description(std::move(text)) {}

    const CFIndex code;
    const std::string description;
};

namespace qvcf {

// CoreFoundation's codes for property lists that cannot be read or written.
constexpr CFIndex kPropertyListReadCorruptError = 3840;
constexpr CFIndex kPropertyListWriteInvalidError = 3851;

// Stores a new error in `*error` when the caller asked for one.
inline void reportError(CFErrorRef* error, CFIndex code, const char* description) {
    if (error != nullptr) {
        *error = new __CFError(code, description);
    }
}

}  // namespace qvcf
