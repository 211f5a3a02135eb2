// Arrays. Immutable unless read from a property list with mutable containers; the
// subset has no public mutator.
#pragma once

#include "CFObject.h"
#include "XmlRenderCache.h"

#include <CoreFoundation/CFArray.h>

#include <vector>

struct __CFArray : qvcf::CFObject {
    __CFArray(const CFArrayCallBacks* callBacks, bool isMutable);
    ~__CFArray() override;

    // Takes one reference to `value` through the retain callback.
    void append(const void* value);
    bool equals(const __CFArray& other) const;

    // A shared copy (SharedCallBacks.h).
    const CFArrayCallBacks& callBacks;
    const bool isMutable;
    std::vector<const void*> values;
    // The XML writer keeps no text for arrays; the slot keeps both containers alike.
    qvcf::XmlRenderCache xml;
    // For immutable containers holding no mutable one: the height of the subtree once
    // it has been found valid (-1 until then), so that it is walked only once.
    mutable std::atomic<int> validHeight{-1};
};
