// CFPropertyListCreateDeepCopy: containers copied with the mutability asked for, leaves
// shared (every leaf type of the subset is immutable).
#include "CFArrayObject.h"
#include "CFDictionaryObject.h"
#include "PlistLimits.h"

#include <CoreFoundation/CFPropertyList.h>

#include <memory>

namespace {

struct ReleaseDeleter {
    void operator()(const void* object) const { CFRelease(object); }
};
using Owned = std::unique_ptr<const void, ReleaseDeleter>;

class DeepCopier {
public:
    explicit DeepCopier(bool mutableContainers) : mutable_(mutableContainers) {}

    // A new reference, or null for a value that is no property-list type or a tree
    // deeper than any property list may be.
    const void* copy(const void* value, size_t depth) {
        const auto* object = static_cast<const qvcf::CFObject*>(value);
        switch (object->typeId) {
            case qvcf::kStringTypeId:
            case qvcf::kNumberTypeId:
            case qvcf::kBooleanTypeId:
            case qvcf::kDataTypeId:
            case qvcf::kDateTypeId:
                return CFRetain(value);
            case qvcf::kArrayTypeId:
                return depth < qvcf::kMaxPlistDepth
                           ? copyArray(*static_cast<const __CFArray*>(object), depth + 1)
                           : nullptr;
            case qvcf::kDictionaryTypeId:
                return depth < qvcf::kMaxPlistDepth
                           ? copyDictionary(*static_cast<const __CFDictionary*>(object), depth + 1)
                           : nullptr;
            default:
                return nullptr;
        }
    }

private:
    const void* copyArray(const __CFArray& source, size_t depth) {
        auto* array = new __CFArray(&kCFTypeArrayCallBacks, mutable_);
        Owned owner(array);
        array->values.reserve(source.values.size());
        for (const void* value : source.values) {
            Owned element(value != nullptr ? copy(value, depth) : nullptr);
            if (element == nullptr) {
                return nullptr;
            }
            array->append(element.get());
        }
        return owner.release();
    }

    const void* copyDictionary(const __CFDictionary& source, size_t depth) {
        auto* dictionary = new __CFDictionary(&kCFTypeDictionaryKeyCallBacks,
                                              &kCFTypeDictionaryValueCallBacks, mutable_);
        Owned owner(dictionary);
        dictionary->table.reserve(source.table.size());
        for (const auto& entry : source.table) {
            Owned value(entry.second != nullptr ? copy(entry.second, depth) : nullptr);
            if (entry.first == nullptr || value == nullptr) {
                return nullptr;
            }
            dictionary->put(entry.first, value.get(), false);
        }
        return owner.release();
    }

    const bool mutable_;
};

}  // namespace

CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef, CFPropertyListRef propertyList,
                                               CFOptionFlags mutabilityOption) {
    if (propertyList == nullptr) {
        return nullptr;
    }
    const bool mutableContainers = (mutabilityOption & kCFPropertyListMutableContainers) != 0;
    return DeepCopier(mutableContainers).copy(propertyList, 0);
}
