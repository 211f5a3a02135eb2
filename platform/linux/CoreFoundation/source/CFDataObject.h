// Byte buffers: either borrowed from the caller or owned.
#pragma once

#include "CFObject.h"
#include "PageAllocator.h"

#include <CoreFoundation/CFData.h>

#include <string>
#include <vector>

struct __CFData : qvcf::CFObject {
    // Borrows `bytes`; frees them at destruction unless `deallocator` is kCFAllocatorNull.
    __CFData(const UInt8* bytes, CFIndex length, CFAllocatorRef deallocator);
    // Owns a copy.
    explicit __CFData(std::vector<UInt8> bytes);
    // Owns `text`, taken over without a copy.
    explicit __CFData(qvcf::PagedString text);
    ~__CFData() override;

    bool equals(const __CFData& other) const;
    CFHashCode hash() const;

    std::vector<UInt8> owned;
    qvcf::PagedString ownedText;
    const UInt8* bytes;
    CFIndex length;
    CFAllocatorRef deallocator;
};
