#include "XmlPlistWriter.h"

#include "CFArrayObject.h"
#include "CFDataObject.h"
#include "CFDateObject.h"
#include "CFDictionaryObject.h"
#include "CFNumberObject.h"
#include "CFStringObject.h"
#include "Utf8.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace qvcf {
namespace {

constexpr std::string_view kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";
constexpr std::string_view kFooter = "</plist>\n";

// Seconds from the Unix epoch to CoreFoundation's, 2001-01-01.
constexpr double kAbsoluteTimeEpoch = 978307200.0;

// Base64 lines are indented at most this deep, and indentation counts against the
// 76-character line.
constexpr size_t kMaxDataIndent = 8;
constexpr size_t kDataLineLength = 76;

class Writer {
public:
    explicit Writer(PagedString& out) : out_(out) {}

    void element(CFTypeRef ref, size_t level) {
        const auto* object = static_cast<const CFObject*>(ref);
        switch (object->typeId) {
            case kStringTypeId:
                tagged("string", static_cast<const __CFString*>(object)->text);
                break;
            case kNumberTypeId:
                number(*static_cast<const __CFNumber*>(object));
                break;
            case kBooleanTypeId:
                out_ += static_cast<const __CFBoolean*>(object)->value ? "<true/>\n" : "<false/>\n";
                break;
            case kDateTypeId:
                date(*static_cast<const __CFDate*>(object));
                break;
            case kDataTypeId:
                data(*static_cast<const __CFData*>(object), level);
                break;
            case kArrayTypeId: {
                const auto& container = *static_cast<const __CFArray*>(object);
                cached(container, container.isMutable, level, [&] { array(container, level); });
                break;
            }
            case kDictionaryTypeId: {
                const auto& container = *static_cast<const __CFDictionary*>(object);
                cached(container, container.isMutable, level,
                       [&] { dictionary(container, level); });
                break;
            }
            default:
                break;
        }
    }

private:
    // An immutable dictionary is rendered once per level and its text reused after: a
    // document saved again after a small change re-renders only the new parts. Only one
    // that holds no mutable container at any depth is kept, since only its text can never
    // change. Arrays are not kept: the long ones are the lists made anew for each save,
    // and their elements are kept already.
    template <typename Container, typename Render>
    void cached(const Container& container, bool isMutable, size_t level, Render render) {
        if (const std::string* text = isMutable ? nullptr : container.xml.find(level)) {
            out_ += *text;
            return;
        }
        const bool outerSawMutable = sawMutable_;
        const bool outerInsideKept = insideKept_;
        // Only the outermost immutable dictionary keeps its text: the text of those inside
        // it is part of it already, and keeping it twice made the kept text of ten
        // thousand rules half as large again.
        const bool mayKeep =
            std::is_same_v<Container, __CFDictionary> && !isMutable && !insideKept_;
        sawMutable_ = isMutable;
        insideKept_ = insideKept_ || mayKeep;
        const size_t start = out_.size();
        render();
        if (mayKeep && !sawMutable_) {
            container.xml.keep(level, std::string(out_.data() + start, out_.size() - start));
        }
        insideKept_ = outerInsideKept;
        sawMutable_ = sawMutable_ || outerSawMutable;
    }

    void indent(size_t level) { out_.append(level, '\t'); }

    // Copies runs without markup characters whole; most text has none at all.
    void escaped(std::string_view text) {
        size_t start = 0;
        for (;;) {
            const size_t special = text.find_first_of("&<>", start);
            out_.append(text, start,
                        special == std::string_view::npos ? text.npos : special - start);
            if (special == std::string_view::npos) {
                return;
            }
            out_ += text[special] == '&' ? "&amp;" : text[special] == '<' ? "&lt;" : "&gt;";
            start = special + 1;
        }
    }

    void tagged(std::string_view tag, std::string_view text) {
        out_ += '<';
        out_ += tag;
        out_ += '>';
        escaped(text);
        out_ += "</";
        out_ += tag;
        out_ += ">\n";
    }

    void number(const __CFNumber& number) {
        char buffer[64];
        if (!number.isFloat) {
            const auto result = std::to_chars(buffer, buffer + sizeof buffer, number.integer);
            out_ += "<integer>";
            out_.append(buffer, result.ptr);
            out_ += "</integer>\n";
            return;
        }
        out_ += "<real>";
        const double value = number.real;
        if (std::isnan(value)) {
            out_ += "nan";
        } else if (std::isinf(value)) {
            out_ += value > 0 ? "+infinity" : "-infinity";
        } else if (value == 0.0) {
            out_ += "0.0";
        } else {
            // to_chars in general format with a precision is printf's %.17g in the C
            // locale, whatever the process locale is.
            const auto result = std::to_chars(buffer, buffer + sizeof buffer, value,
                                              std::chars_format::general, 17);
            out_.append(buffer, result.ptr);
        }
        out_ += "</real>\n";
    }

    void date(const __CFDate& date) {
        const double unixSeconds = std::floor(date.absoluteTime + kAbsoluteTimeEpoch);
        const auto seconds = static_cast<time_t>(unixSeconds);
        struct tm parts {};
        char buffer[64] = "";
        if (gmtime_r(&seconds, &parts) != nullptr) {
            std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02dZ",
                          parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour,
                          parts.tm_min, parts.tm_sec);
        }
        tagged("date", buffer);
    }

    void data(const __CFData& data, size_t level) {
        static constexpr char kAlphabet[] =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        const size_t tabs = std::min(level, kMaxDataIndent);
        const size_t lineLength = kDataLineLength - 8 * tabs;
        std::string encoded;
        const auto* bytes = data.bytes;
        const auto length = static_cast<size_t>(data.length);
        for (size_t i = 0; i < length; i += 3) {
            const uint32_t group = (uint32_t{bytes[i]} << 16) |
                                   (i + 1 < length ? uint32_t{bytes[i + 1]} << 8 : 0) |
                                   (i + 2 < length ? uint32_t{bytes[i + 2]} : 0);
            encoded += kAlphabet[(group >> 18) & 0x3F];
            encoded += kAlphabet[(group >> 12) & 0x3F];
            encoded += i + 1 < length ? kAlphabet[(group >> 6) & 0x3F] : '=';
            encoded += i + 2 < length ? kAlphabet[group & 0x3F] : '=';
        }
        out_ += "<data>\n";
        for (size_t pos = 0; pos < encoded.size(); pos += lineLength) {
            indent(tabs);
            out_.append(encoded, pos, lineLength);
            out_ += '\n';
        }
        indent(level);
        out_ += "</data>\n";
    }

    void array(const __CFArray& array, size_t level) {
        if (array.values.empty()) {
            out_ += "<array/>\n";
            return;
        }
        out_ += "<array>\n";
        for (const void* value : array.values) {
            indent(level + 1);
            element(value, level + 1);
        }
        indent(level);
        out_ += "</array>\n";
    }

    void dictionary(const __CFDictionary& dictionary, size_t level) {
        if (dictionary.table.empty()) {
            out_ += "<dict/>\n";
            return;
        }
        std::vector<std::pair<const __CFString*, const void*>> entries;
        entries.reserve(dictionary.table.size());
        for (const auto& entry : dictionary.table) {
            entries.emplace_back(static_cast<const __CFString*>(entry.first), entry.second);
        }
        std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
            return compareUtf16(a.first->text, b.first->text, false) < 0;
        });
        out_ += "<dict>\n";
        for (const auto& entry : entries) {
            indent(level + 1);
            tagged("key", entry.first->text);
            indent(level + 1);
            element(entry.second, level + 1);
        }
        indent(level);
        out_ += "</dict>\n";
    }

    PagedString& out_;
    bool sawMutable_ = false;
    // True while rendering inside an immutable dictionary whose text may be kept.
    bool insideKept_ = false;
};

}  // namespace

namespace {

// Documents are written again and again at about the same size.
std::atomic<size_t> lastSize{0};

}  // namespace

void XmlPlistWriter::expect(size_t bytes) {
    size_t none = 0;
    lastSize.compare_exchange_strong(none, bytes, std::memory_order_relaxed);
}

void XmlPlistWriter::write(CFTypeRef root, PagedString& out) {
    // Documents are written again and again at about the same size: start with room for
    // the last one and some more instead of growing through every power of two. A grown
    // copy would briefly hold the document twice; room never written to costs no memory,
    // since a buffer this large is made of pages the kernel hands out when first touched.
    const size_t expected = lastSize.load(std::memory_order_relaxed);
    out.reserve(out.size() + expected + expected / 4);
    out += kHeader;
    Writer(out).element(root, 0);
    out += kFooter;
    lastSize.store(out.size(), std::memory_order_relaxed);
}

}  // namespace qvcf
