#include "XmlPlistParser.h"

#include "CFArrayObject.h"
#include "CFDataObject.h"
#include "CFDateObject.h"
#include "CFDictionaryObject.h"
#include "CFNumberObject.h"
#include "CFStringObject.h"
#include "PlistLimits.h"
#include "PlistScalarText.h"
#include "PlistValueCache.h"
#include "XmlCharacterData.h"
#include "XmlCursor.h"
#include "XmlMarkup.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qvcf {
namespace {

struct ReleaseDeleter {
    void operator()(const void* object) const { CFRelease(object); }
};
using Owned = std::unique_ptr<const void, ReleaseDeleter>;

// The values read so far for the container open at one depth. They are collected
// first and handed over once the container closes, so that every container is sized
// once to what it holds: growing by doubling leaves a trail of freed blocks per
// container, and there are tens of thousands of containers in a configuration.
class PendingValues {
public:
    explicit PendingValues(std::vector<const void*>& values) : values_(values) {}
    ~PendingValues() {
        for (const void* value : values_) {
            CFRelease(value);
        }
        values_.clear();
    }
    PendingValues(const PendingValues&) = delete;
    PendingValues& operator=(const PendingValues&) = delete;

    // Takes over the reference to `value`.
    void add(const void* value) { values_.push_back(value); }
    const std::vector<const void*>& values() const { return values_; }

private:
    std::vector<const void*>& values_;
};

// What stands next among the values inside an element.
enum class Next { kValue, kClose, kError };

class Parser {
public:
    Parser(std::string_view text, bool mutableContainers)
        : cursor_(text), mutable_(mutableContainers), pending_(kMaxPlistDepth) {}

    const void* document() {
        XmlTag root;
        return skipProlog(root) ? value(root, 0) : nullptr;
    }

    const char* problem() const { return problem_; }

private:
    // Keeps the first problem met; false, for the caller to return.
    bool refuse(const char* problem) {
        if (problem_ == nullptr) {
            problem_ = problem;
        }
        return false;
    }

    // The same, for callers that return an object.
    std::nullptr_t fail(const char* problem) {
        refuse(problem);
        return nullptr;
    }

    // Declarations, instructions and comments up to the document's element, whose tag
    // is read into `root`.
    bool skipProlog(XmlTag& root) {
        for (;;) {
            cursor_.skipSpace();
            if (cursor_.remaining() < 2 || cursor_.peek() != '<') {
                return refuse("no XML element");
            }
            bool skipped = false;
            if (cursor_.startsWith("<?")) {
                skipped = XmlMarkup::skipProcessingInstruction(cursor_, XmlMarkup::Place::kProlog);
            } else if (cursor_.startsWith("<!--")) {
                skipped = XmlMarkup::skipComment(cursor_, XmlMarkup::Place::kProlog);
            } else if (cursor_.startsWith("<!DOCTYPE")) {
                skipped = XmlMarkup::skipDoctype(cursor_);
            } else {
                return XmlMarkup::readTag(cursor_, root) || refuse("malformed tag");
            }
            if (!skipped) {
                return refuse("malformed declaration, comment or instruction");
            }
        }
    }

    // Moves to the next value's tag among the values inside an element, past blanks,
    // comments and instructions; stops at a closing tag.
    Next next(XmlTag& tag) {
        for (;;) {
            cursor_.skipSpace();
            if (cursor_.peek() != '<') {
                refuse(cursor_.atEnd() ? "unexpected end of document" : "text between values");
                return Next::kError;
            }
            if (cursor_.startsWith("</")) {
                return Next::kClose;
            }
            bool skipped = false;
            if (cursor_.startsWith("<?")) {
                skipped = XmlMarkup::skipProcessingInstruction(cursor_, XmlMarkup::Place::kContent);
            } else if (cursor_.startsWith("<!--")) {
                skipped = XmlMarkup::skipComment(cursor_, XmlMarkup::Place::kContent);
            } else if (!cursor_.startsWith("<!")) {
                return XmlMarkup::readTag(cursor_, tag) || refuse("malformed tag") ? Next::kValue
                                                                                   : Next::kError;
            }
            if (!skipped) {
                refuse("malformed markup among values");
                return Next::kError;
            }
        }
    }

    bool close(std::string_view name) {
        return XmlMarkup::readClosingTag(cursor_, name) || refuse("missing or mismatched end tag");
    }

    // The value whose start tag `tag` has just been read, inside `depth` containers.
    const void* value(const XmlTag& tag, size_t depth) {
        if (tag.name == "plist") {
            return plist(tag, depth);
        }
        if (++nodes_ > kMaxPlistNodes) {
            return fail("property list holds too many values");
        }
        if (tag.name == "dict" || tag.name == "array") {
            return container(tag, depth);
        }
        if (tag.name == "string" || tag.name == "key") {
            return string(tag);
        }
        if (tag.name == "true" || tag.name == "false") {
            return boolean(tag);
        }
        return scalar(tag);
    }

    // <plist> holds exactly one value. Wrappers nested in one another are counted
    // rather than recursed into, so that their nesting costs no stack.
    const void* plist(const XmlTag& tag, size_t depth) {
        XmlTag inner = tag;
        size_t wrappers = 0;
        for (; inner.name == "plist"; ++wrappers) {
            if (inner.empty) {
                return fail("empty plist element");
            }
            const Next next = this->next(inner);
            if (next != Next::kValue) {
                return fail("empty plist element");
            }
        }
        Owned result(value(inner, depth));
        for (; result != nullptr && wrappers > 0; --wrappers) {
            const Next next = this->next(inner);
            if (next == Next::kValue) {
                return fail("plist element holds more than one value");
            }
            if (next == Next::kError || !close("plist")) {
                return nullptr;
            }
        }
        return result.release();
    }

    const void* container(const XmlTag& tag, size_t depth) {
        if (depth >= kMaxPlistDepth) {
            return fail("property list nested too deeply");
        }
        const bool isDictionary = tag.name == "dict";
        PendingValues items(pending_[depth]);
        if (!tag.empty && !(isDictionary ? readEntries(depth, items) : readItems(depth, items))) {
            return nullptr;
        }
        return isDictionary ? newDictionary(items.values()) : newArray(items.values());
    }

    bool readItems(size_t depth, PendingValues& items) {
        XmlTag tag;
        for (Next next = this->next(tag); next != Next::kClose; next = this->next(tag)) {
            const void* item = next == Next::kValue ? value(tag, depth + 1) : nullptr;
            if (item == nullptr) {
                return false;
            }
            items.add(item);
        }
        return close("array");
    }

    // Keys and values alternate in `entries`.
    bool readEntries(size_t depth, PendingValues& entries) {
        XmlTag tag;
        for (Next next = this->next(tag); next != Next::kClose; next = this->next(tag)) {
            if (next == Next::kError || !readEntry(tag, depth, entries)) {
                return false;
            }
        }
        return close("dict");
    }

    bool readEntry(const XmlTag& keyTag, size_t depth, PendingValues& entries) {
        // libplist took <key/> for a value where a key was due.
        if (keyTag.name != "key" || keyTag.empty) {
            return refuse("dictionary value without a key");
        }
        Owned key(keyString());
        if (key == nullptr) {
            return false;
        }
        XmlTag tag;
        const Next next = this->next(tag);
        if (next != Next::kValue) {
            return refuse("dictionary key without a value");
        }
        const void* entryValue = value(tag, depth + 1);
        if (entryValue == nullptr) {
            return false;
        }
        entries.add(key.release());
        entries.add(entryValue);
        return true;
    }

    const void* newArray(const std::vector<const void*>& items) const {
        auto* array = new __CFArray(&kCFTypeArrayCallBacks, mutable_);
        array->values.reserve(items.size());
        for (const void* item : items) {
            array->append(item);
        }
        return array;
    }

    const void* newDictionary(const std::vector<const void*>& entries) const {
        auto* dictionary = new __CFDictionary(&kCFTypeDictionaryKeyCallBacks,
                                              &kCFTypeDictionaryValueCallBacks, mutable_);
        dictionary->table.reserve(entries.size() / 2);
        for (size_t i = 0; i < entries.size(); i += 2) {
            // A repeated key keeps its last value.
            dictionary->put(entries[i], entries[i + 1], true);
        }
        return dictionary;
    }

    bool characterData(std::string_view name, std::string_view& text) {
        if (!XmlCharacterData::read(cursor_, scratch_, text)) {
            return refuse("malformed text or reference");
        }
        return close(name);
    }

    // A <string>, or a <key> where a value is due (read as a string, as both
    // CoreFoundation and libplist read it).
    const void* string(const XmlTag& tag) {
        std::string_view text;
        if (!tag.empty && !characterData(tag.name, text)) {
            return nullptr;
        }
        const void* made = createString(text.data(), text.size());
        return made != nullptr ? made : fail("string is not UTF-8");
    }

    const void* keyString() {
        std::string_view text;
        if (!characterData("key", text)) {
            return nullptr;
        }
        const void* key = cache_.key(text);
        return key != nullptr ? key : fail("key is not UTF-8");
    }

    const void* boolean(const XmlTag& tag) {
        if (!tag.empty && !close(tag.name)) {
            return nullptr;
        }
        return CFRetain(tag.name == "true" ? kCFBooleanTrue : kCFBooleanFalse);
    }

    // <integer>, <real>, <date> or <data>, none of which may be empty.
    const void* scalar(const XmlTag& tag) {
        using Reader = const void* (Parser::*)();
        static const std::pair<std::string_view, Reader> kReaders[] = {
            {"integer", &Parser::integer},
            {"real", &Parser::real},
            {"date", &Parser::date},
            {"data", &Parser::data},
        };
        for (const auto& reader : kReaders) {
            if (tag.name == reader.first) {
                const void* made =
                    tag.empty ? fail("empty value element") : (this->*reader.second)();
                return made != nullptr && close(tag.name) ? made : release(made);
            }
        }
        return fail("unknown element");
    }

    static std::nullptr_t release(const void* object) {
        if (object != nullptr) {
            CFRelease(object);
        }
        return nullptr;
    }

    // The text up to the next "<", taken as it stands: integers, dates and data have
    // no references or sections.
    bool rawText(std::string_view& text) {
        const char* begin = cursor_.position();
        const char* less = cursor_.find('<', begin);
        if (less == nullptr) {
            return refuse("unexpected end of document");
        }
        cursor_.moveTo(less);
        text = std::string_view(begin, static_cast<size_t>(less - begin));
        return true;
    }

    const void* integer() {
        std::string_view text;
        int64_t number = 0;
        if (!rawText(text) || !PlistScalarText::integer(text, number)) {
            return fail("malformed integer");
        }
        return cache_.integer(number);
    }

    const void* real() {
        std::string_view text;
        double number = 0;
        if (!XmlCharacterData::read(cursor_, scratch_, text) ||
            !PlistScalarText::real(text, number)) {
            return fail("malformed real");
        }
        return new __CFNumber(number);
    }

    const void* date() {
        std::string_view text;
        double seconds = 0;
        if (!rawText(text) || !PlistScalarText::date(text, seconds)) {
            return fail("malformed or unsupported date");
        }
        return new __CFDate(seconds);
    }

    const void* data() {
        std::string_view text;
        std::vector<UInt8> bytes;
        if (!rawText(text) || !PlistScalarText::data(text, bytes)) {
            return fail("malformed data");
        }
        return new __CFData(std::move(bytes));
    }

    XmlCursor cursor_;
    const bool mutable_;
    PlistValueCache cache_;
    // One list per depth: a container's values wait there while its children are read.
    std::vector<std::vector<const void*>> pending_;
    std::string scratch_;
    size_t nodes_ = 0;
    const char* problem_ = nullptr;
};

}  // namespace

const void* XmlPlistParser::parse(std::string_view document, bool mutableContainers,
                                  const char*& problem) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (document.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        document.remove_prefix(kByteOrderMark.size());
    }
    // XML has no place for a NUL byte; a reader that stops at one would take a cut-off
    // text for the whole.
    if (document.find('\0') != std::string_view::npos) {
        problem = "NUL byte in XML property list";
        return nullptr;
    }
    Parser parser(document, mutableContainers);
    const void* root = parser.document();
    if (root == nullptr) {
        problem = parser.problem() != nullptr ? parser.problem() : "malformed XML property list";
    }
    return root;
}

}  // namespace qvcf
