// Property-list form of the firewall options: one key per option that is set, named
// after its field. Options that are not stored keep their schema defaults when read.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include "QvPlistMessageConvert.h"
#include "VelaFwInternalMsg.pb.h"

namespace qor {
namespace vela {

template <>
struct TypeInfo<FwOptions> : CFDictionaryTypeInfo {};

// Reads every option key that holds a value of the right kind; false for a null dictionary.
bool convert(CFDictionaryRef dict, FwOptions& options);

// Empties `dict` and writes the options that are set; false for a null dictionary or
// when a key or value cannot be made.
bool convert(const FwOptions& options, CFMutableDictionaryRef dict);

}  // namespace vela
}  // namespace qor
