// Makes an XML property list safe and unambiguous for libplist before it parses it:
// drops a UTF-8 byte-order mark (libplist rejects it), rejects nesting deeper than the
// limit, and rewrites each <integer> into the form CoreFoundation gives it (decimal
// even with leading zeros, which libplist would read as octal). An integer
// CoreFoundation would refuse is refused here, instead of being read as 0, and so is
// a date libplist would wrap around (outside 1932-2069) or that is malformed.
#pragma once

#include <cstddef>
#include <string>

namespace qvcf {

class XmlPlistPreparer {
public:
    // False when the document is too deep or holds a malformed integer; `out` then
    // holds nothing useful.
    static bool prepare(const char* bytes, size_t size, std::string& out);
};

}  // namespace qvcf
