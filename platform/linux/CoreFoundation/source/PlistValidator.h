// Whether an object tree can be written as a property list.
#pragma once

#include <CoreFoundation/CFPropertyList.h>

namespace qvcf {

class PlistValidator {
public:
    // Leaves must be strings, data, booleans, numbers or dates (only strings and data
    // for the OpenStep format), keys strings, values non-null; no container may contain
    // itself. Trees nested deeper than the reader accepts are refused as well, since
    // they could never be read back.
    static bool isValid(CFTypeRef root, CFPropertyListFormat format);
};

}  // namespace qvcf
