// The markup around property-list values: processing instructions, comments, the
// document type declaration and tags. Each is read the way CoreFoundation reads it.
// libplist, which read these files before, skips quoted text while it looks for the end
// of markup and CoreFoundation does not; markup whose end the two would place
// differently is refused, so that no file reads one way here and another on macOS or in
// an older release.
#pragma once

#include "XmlCursor.h"

#include <string_view>

namespace qvcf {

struct XmlTag {
    std::string_view name;
    // Written as <name/>.
    bool empty = false;
};

class XmlMarkup {
public:
    // Before the document's element, or among the values inside one: CoreFoundation
    // starts looking for the end of a comment or instruction one byte apart in the two.
    enum class Place { kProlog, kContent };

    // At "<?": moves past the processing instruction.
    static bool skipProcessingInstruction(XmlCursor& cursor, Place place);

    // At "<!--": moves past the comment.
    static bool skipComment(XmlCursor& cursor, Place place);

    // At "<!DOCTYPE": moves past the declaration and its internal subset.
    static bool skipDoctype(XmlCursor& cursor);

    // At the "<" of a start or empty-element tag: reads its name; attributes are ignored.
    static bool readTag(XmlCursor& cursor, XmlTag& tag);

    // Moves past "</name>" (blanks allowed before the ">") at the cursor.
    static bool readClosingTag(XmlCursor& cursor, std::string_view name);
};

}  // namespace qvcf
