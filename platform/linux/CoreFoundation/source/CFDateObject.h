// Dates read from property-list files. There is no public date API: a date is only
// carried from a file back into the file.
#pragma once

#include "CFObject.h"

#include <functional>

struct __CFDate : qvcf::CFObject {
    // `seconds` since 2001-01-01 00:00:00 UTC, CoreFoundation's absolute time.
    explicit __CFDate(double seconds) : CFObject(qvcf::kDateTypeId, false), absoluteTime(seconds) {}

    bool equals(const __CFDate& other) const { return absoluteTime == other.absoluteTime; }
    CFHashCode hash() const { return std::hash<double>{}(absoluteTime); }

    const double absoluteTime;
};
