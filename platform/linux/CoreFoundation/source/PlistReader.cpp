#include "PlistReader.h"

#include "BinaryPlistGuard.h"
#include "CFArrayObject.h"
#include "CFDataObject.h"
#include "CFDateObject.h"
#include "CFDictionaryObject.h"
#include "CFNumberObject.h"
#include "CFStringObject.h"
#include "PlistLimits.h"
#include "PlistValueCache.h"
#include "XmlPlistParser.h"

#include <plist/plist.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

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

PlistTree parseBinary(const UInt8* bytes, size_t size) {
    if (!BinaryPlistGuard::check(bytes, size)) {
        return nullptr;
    }
    plist_t root = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(bytes), static_cast<uint32_t>(size), &root);
    return PlistTree(root);
}

// Turns one libplist tree (of a binary document) into CoreFoundation objects.
class TreeConverter {
public:
    explicit TreeConverter(bool mutableContainers) : mutable_(mutableContainers) {}
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
                return cache_.integer(static_cast<int64_t>(raw));
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
            Owned key(keyText != nullptr ? cache_.key(keyText) : nullptr);
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

    const bool mutable_;
    size_t nodes_ = 0;
    PlistValueCache cache_;
};

const void* readBinary(const UInt8* bytes, size_t size, bool mutableContainers,
                       const char*& problem) {
    PlistTree tree = parseBinary(bytes, size);
    if (tree == nullptr) {
        problem = "malformed binary property list";
        return nullptr;
    }
    const void* root = TreeConverter(mutableContainers).convert(tree.get(), 0);
    if (root == nullptr) {
        problem = "property list holds an unsupported or malformed value";
    }
    return root;
}

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
    const void* root =
        binary ? readBinary(bytes, size, mutableContainers, problem)
               : XmlPlistParser::parse(std::string_view(reinterpret_cast<const char*>(bytes), size),
                                       mutableContainers, problem);
    if (root == nullptr) {
        return nullptr;
    }
    format = binary ? kCFPropertyListBinaryFormat_v1_0 : kCFPropertyListXMLFormat_v1_0;
    return root;
}

}  // namespace qvcf
