// Writes a property list as XML, byte for byte as macOS CoreFoundation writes it:
// tab indentation, keys sorted by UTF-16 code unit, only &, < and > escaped, reals as
// %.17g with CoreFoundation's spellings of zero, infinities and NaN.
#pragma once

#include "PageAllocator.h"

#include <CoreFoundation/CFBase.h>

namespace qvcf {

class XmlPlistWriter {
public:
    // Appends the document to `out`. The tree must have passed PlistValidator.
    static void write(CFTypeRef root, PagedString& out);
    // Before anything has been written: the first document will be about `bytes` long
    // (the size of the one read), so that its buffer is sized once instead of doubling.
    static void expect(size_t bytes);
};

}  // namespace qvcf
