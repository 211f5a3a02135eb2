// The text of a <string>, <key> or <real>: character data with the predefined entities,
// numeric character references and CDATA sections, read as CoreFoundation reads it. A
// reference that libplist, the former reader, read differently or refused is refused.
#pragma once

#include "XmlCursor.h"

#include <string>
#include <string_view>

namespace qvcf {

class XmlCharacterData {
public:
    // At the first byte of the text: reads up to the "<" that ends it and leaves the
    // cursor there. `text` views the document itself when nothing needed decoding (the
    // usual case, and no copy), else `scratch`.
    static bool read(XmlCursor& cursor, std::string& scratch, std::string_view& text);
};

}  // namespace qvcf
