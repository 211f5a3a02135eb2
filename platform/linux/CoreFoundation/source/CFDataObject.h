// Byte buffers: either borrowed from the caller or owned.
#pragma once

#include "CFObject.h"

#include <CoreFoundation/CFData.h>

#include <vector>

struct __CFData : qvcf::CFObject {
    // Borrows `bytes`; frees them at destruction unless `deallocator` is kCFAllocatorNull.
    __CFData(const UInt8* bytes, CFIndex length, CFAllocatorRef deallocator);
    // Owns a copy.
    explicit __CFData(std::vector<UInt8> bytes);
    ~__CFData() override;

    bool equals(const __CFData& other) const;
    CFHashCode hash() const;

    std::vector<UInt8> owned;
    const UInt8* bytes;
    CFIndex length;
    CFAllocatorRef deallocator;
};
