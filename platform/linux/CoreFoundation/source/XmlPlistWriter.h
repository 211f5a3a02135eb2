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
};

}  // namespace qvcf
