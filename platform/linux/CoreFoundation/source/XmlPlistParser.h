// Reads an XML property list straight into CoreFoundation objects in one pass over the
// caller's bytes: no copy of the text and no intermediate tree, so that loading a
// configuration of ten thousand rules costs little more than the objects it makes.
//
// Files are read as CoreFoundation reads them on macOS. Where libplist, the reader used
// before, would have read a file differently, the file is refused rather than read
// either way, except in three places where CoreFoundation's reading is kept: nothing
// after the document's element is read, <data> is decoded as CoreFoundation decodes it,
// and references in <real> are resolved. Integers and dates keep the rules this reader
// has always applied (PlistScalarText.h).
#pragma once

#include <cstddef>
#include <string_view>

namespace qvcf {

class XmlPlistParser {
public:
    // A new object tree, or NULL with `problem` set to a short reason. A leading UTF-8
    // byte-order mark is skipped. With `mutableContainers`, dictionaries and arrays are
    // mutable.
    static const void* parse(std::string_view document, bool mutableContainers,
                             const char*& problem);
};

}  // namespace qvcf
