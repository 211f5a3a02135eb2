// The debug level that a configuration property list asks for, read from its bytes.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace qvutil {

constexpr int kDefaultDebugLevel = 4;
constexpr const char* kDebugLevelKey = "DebugLevel";

// The integer 0..7 under the root key "DebugLevel" of the XML or binary property list in
// `bytes`; kDefaultDebugLevel when the list does not parse, its root is not a dictionary,
// the key is missing or its value is not such an integer.
int DebugLevelFromPlist(const uint8_t* bytes, size_t length);

}  // namespace qvutil
