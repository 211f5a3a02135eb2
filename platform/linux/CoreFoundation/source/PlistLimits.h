// Bounds on property-list documents. Files are untrusted input: anything beyond these
// is rejected before the parser builds it.
#pragma once

#include <cstddef>

namespace qvcf {

// Deepest nesting of dictionaries and arrays read, written or validated.
constexpr size_t kMaxPlistDepth = 512;

// Most values one document may expand into. A binary file can reference one object
// from many places, so its expanded size is bounded separately from its byte size.
constexpr size_t kMaxPlistNodes = size_t{1} << 20;

// Dates read: libplist carries binary ones faithfully only while whole seconds from
// 2001-01-01 fit 32 bits, and XML files keep to the same range so that a date reads
// alike in both formats.
constexpr double kMinPlistDate = -2147483648.0;
constexpr double kMaxPlistDate = 2147483647.0;

// Largest input accepted, far above any configuration file.
constexpr size_t kMaxPlistBytes = size_t{256} << 20;

}  // namespace qvcf
