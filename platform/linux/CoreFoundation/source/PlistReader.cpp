#include "PlistReader.h"

#include "BinaryPlistGuard.h"
#include "CFArrayObject.h"
#include "CFDataObject.h"
#include "CFDateObject.h"
#include "CFDictionaryObject.h"
#include "CFNumberObject.h"
#include "CFStringObject.h"
#include "PlistLimits.h"
#include "XmlPlistPreparer.h"

#include <plist/plist.h>

#include <locale.h>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>

namespace qvcf {
namespace {

constexpr char kBinaryMagic[] = "bplist00";
constexpr size_t kBinaryMagicLength = sizeof kBinaryMagic - 1;

struct PlistDeleter {
    void operator()(void* node) const { plist_free(node); }
};
using PlistTree = std::unique_ptr<void, PlistDeleter>;

struct ReleaseDeleter {
    void operator()(const void* object) const { CFRelease(object); }
};
using Owned = std::unique_ptr<const void, ReleaseDeleter>;

// libplist reads reals with atof(), which follows the thread's locale; "0.5" must not
// read as 0 under a locale with a decimal comma.
class CLocaleScope {
public:
    CLocaleScope() : previous_(uselocale(cLocale())) {}
    ~CLocaleScope() { uselocale(previous_); }
    CLocaleScope(const CLocaleScope&) = delete;
    CLocaleScope& operator=(const CLocaleScope&) = delete;

private:
    static locale_t cLocale() {
        static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
        return locale != static_cast<locale_t>(0) ? locale : LC_GLOBAL_LOCALE;
    }
    locale_t previous_;
};

PlistTree parseBinary(const UInt8* bytes, size_t size) {
    if (!BinaryPlistGuard::check(bytes, size)) {
        return nullptr;
    }
    plist_t root = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(bytes), static_cast<uint32_t>(size), &root);
    return PlistTree(root);
}

PlistTree parseXml(const UInt8* bytes, size_t size) {
    std::string prepared;
    if (!XmlPlistPreparer::prepare(reinterpret_cast<const char*>(bytes), size, prepared)) {
        return nullptr;
    }
    const CLocaleScope cLocale;
    plist_t root = nullptr;
    plist_from_xml(prepared.data(), static_cast<uint32_t>(prepared.size()), &root);
    return PlistTree(root);
}

// Turns one libplist tree into CoreFoundation objects.
class TreeConverter {
public:
    explicit TreeConverter(bool mutableContainers) : mutable_(mutableContainers) {}
    ~TreeConverter() {
        for (const auto& entry : keys_) {
            CFRelease(entry.second);
        }
        for (const void* number : smallIntegers_) {
            if (number != nullptr) {
                CFRelease(number);
            }
        }
    }
    TreeConverter(const TreeConverter&) = delete;
    TreeConverter& operator=(const TreeConverter&) = delete;

    const void* convert(plist_t node, size_t depth) {
        if (++nodes_ > kMaxPlistNodes) {
            return nullptr;
        }
        switch (plist_get_node_type(node)) {
            case PLIST_BOOLEAN:
                return CFRetain(plist_bool_val_is_true(node) ? kCFBooleanTrue : kCFBooleanFalse);
            case PLIST_UINT: {
                uint64_t raw = 0;
                plist_get_uint_val(node, &raw);
                // libplist hands back the two's-complement bits of negative values.
                return integer(static_cast<int64_t>(raw));
            }
            case PLIST_REAL: {
                double value = 0;
                plist_get_real_val(node, &value);
                return new __CFNumber(value);
            }
            case PLIST_STRING:
                return convertString(node);
            case PLIST_DATE: {
                int32_t seconds = 0;
                int32_t microseconds = 0;
                plist_get_date_val(node, &seconds, &microseconds);
                return new __CFDate(seconds + microseconds / 1e6);
            }
            case PLIST_DATA: {
                uint64_t length = 0;
                const char* bytes = plist_get_data_ptr(node, &length);
                const auto* begin = reinterpret_cast<const UInt8*>(bytes);
                return new __CFData(std::vector<UInt8>(begin, begin + (bytes ? length : 0)));
            }
            case PLIST_ARRAY:
                return depth < kMaxPlistDepth ? convertArray(node, depth + 1) : nullptr;
            case PLIST_DICT:
                return depth < kMaxPlistDepth ? convertDictionary(node, depth + 1) : nullptr;
            default:
                // Keys outside dictionaries, UIDs: nothing the subset represents.
                return nullptr;
        }
    }

private:
    const void* convertString(plist_t node) {
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return text != nullptr ? createString(text, length) : nullptr;
    }

    const void* convertArray(plist_t node, size_t depth) {
        auto* array = new __CFArray(&kCFTypeArrayCallBacks, mutable_);
        Owned owner(array);
        // Sized once: growing by doubling frees a trail of small blocks for every container.
        array->values.reserve(plist_array_get_size(node));
        plist_array_iter iterator = nullptr;
        plist_array_new_iter(node, &iterator);
        bool ok = iterator != nullptr;
        while (ok) {
            plist_t item = nullptr;
            plist_array_next_item(node, iterator, &item);
            if (item == nullptr) {
                break;
            }
            Owned value(convert(item, depth));
            ok = value != nullptr;
            if (ok) {
                array->append(value.get());
            }
        }
        std::free(iterator);
        return ok ? owner.release() : nullptr;
    }

    const void* convertDictionary(plist_t node, size_t depth) {
        auto* dictionary = new __CFDictionary(&kCFTypeDictionaryKeyCallBacks,
                                              &kCFTypeDictionaryValueCallBacks, mutable_);
        Owned owner(dictionary);
        dictionary->table.reserve(plist_dict_get_size(node));
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        bool ok = iterator != nullptr;
        while (ok) {
            char* keyText = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, iterator, &keyText, &item);
            if (item == nullptr) {
                std::free(keyText);
                break;
            }
            Owned key(keyText != nullptr ? sharedKey(keyText) : nullptr);
            std::free(keyText);
            Owned value(key != nullptr ? convert(item, depth) : nullptr);
            ok = value != nullptr;
            if (ok) {
                dictionary->put(key.get(), value.get(), true);
            }
        }
        std::free(iterator);
        return ok ? owner.release() : nullptr;
    }

    // A new reference to the one string of this read with the text `text`. A document
    // repeats a few key names in every dictionary (ten thousand rules, twenty keys
    // each); one immutable string per name keeps the tree small and its walks in cache.
    const void* sharedKey(const char* text) {
        auto found = keys_.find(text);
        if (found != keys_.end()) {
            return CFRetain(found->second);
        }
        const void* made = createString(text, std::strlen(text));
        if (made == nullptr) {
            return nullptr;
        }
        keys_.emplace(text, made);
        return CFRetain(made);
    }

    // A new reference to a number of `value`. Enumerations, flags and lengths repeat in
    // every rule; numbers are immutable, so one object per small value serves them all.
    const void* integer(int64_t value) {
        if (value < 0 || value >= static_cast<int64_t>(kSmallIntegers)) {
            return new __CFNumber(value);
        }
        const void*& shared = smallIntegers_[value];
        if (shared == nullptr) {
            shared = new __CFNumber(value);
        }
        return CFRetain(shared);
    }

    static constexpr size_t kSmallIntegers = 256;
    const bool mutable_;
    size_t nodes_ = 0;
    const void* smallIntegers_[kSmallIntegers] = {};
    std::unordered_map<std::string, const void*> keys_;
};

}  // namespace

CFPropertyListRef PlistReader::read(const UInt8* bytes, size_t size, bool mutableContainers,
                                    CFPropertyListFormat& format, const char*& problem) {
    if (bytes == nullptr || size == 0) {
        problem = "empty property list";
        return nullptr;
    }
    if (size > kMaxPlistBytes) {
        problem = "property list too large";
        return nullptr;
    }
    const bool binary =
        size >= kBinaryMagicLength && std::memcmp(bytes, kBinaryMagic, kBinaryMagicLength) == 0;
    PlistTree tree = binary ? parseBinary(bytes, size) : parseXml(bytes, size);
    if (tree == nullptr) {
        problem = binary ? "malformed binary property list" : "malformed XML property list";
        return nullptr;
    }
    const void* root = TreeConverter(mutableContainers).convert(tree.get(), 0);
    if (root == nullptr) {
        problem = "property list holds an unsupported or malformed value";
        return nullptr;
    }
    format = binary ? kCFPropertyListBinaryFormat_v1_0 : kCFPropertyListXMLFormat_v1_0;
    return root;
}

}  // namespace qvcf
