// Structural check of a binary property list ("bplist00") before libplist reads it.
// Debian's libplist 2.2.0 predates several hardening fixes of its binary reader, so
// every offset, count and reference is checked here first, together with the nesting
// depth, reference cycles and the size the document expands into.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvcf {

class BinaryPlistGuard {
public:
    // True when the document is well-formed, holds only the value kinds the subset
    // represents (no null, set or UID objects), uses only string keys and stays within
    // the depth and size limits.
    static bool check(const uint8_t* bytes, size_t size);
};

}  // namespace qvcf
