// Reads XML property lists (XmlPlistParser) and binary ones (through libplist) into
// CoreFoundation objects.
#pragma once

#include <CoreFoundation/CFPropertyList.h>

#include <cstddef>

namespace qvcf {

class PlistReader {
public:
    // A new object tree, or NULL with `problem` set to a short reason. With
    // `mutableContainers`, dictionaries and arrays are mutable.
    static CFPropertyListRef read(const UInt8* bytes, size_t size, bool mutableContainers,
                                  CFPropertyListFormat& format, const char*& problem);
};

}  // namespace qvcf
