#include "PlistValidator.h"

#include "CFArrayObject.h"
#include "CFDictionaryObject.h"
#include "PlistLimits.h"

#include <algorithm>
#include <vector>

namespace qvcf {
namespace {

class Validator {
public:
    explicit Validator(bool openStep) : openStep_(openStep) {}

    bool valid(CFTypeRef ref) {
        if (ref == nullptr) {
            return false;
        }
        const auto* object = static_cast<const CFObject*>(ref);
        switch (object->typeId) {
            case kStringTypeId:
            case kDataTypeId:
                return true;
            case kBooleanTypeId:
            case kNumberTypeId:
            case kDateTypeId:
                return !openStep_;
            case kArrayTypeId:
            case kDictionaryTypeId:
                return validContainer(object);
            default:
                return false;
        }
    }

private:
    bool validContainer(const CFObject* container) {
        // Only the containers on the path from the root count: a value shared by two
        // branches is fine, one that contains itself is not.
        if (path_.size() >= kMaxPlistDepth ||
            std::find(path_.begin(), path_.end(), container) != path_.end()) {
            return false;
        }
        path_.push_back(container);
        const bool ok = container->typeId == kArrayTypeId
                            ? validArray(static_cast<const __CFArray*>(container))
                            : validDictionary(static_cast<const __CFDictionary*>(container));
        path_.pop_back();
        return ok;
    }

    bool validArray(const __CFArray* array) {
        return std::all_of(array->values.begin(), array->values.end(),
                           [this](const void* value) { return valid(value); });
    }

    bool validDictionary(const __CFDictionary* dictionary) {
        for (const auto& entry : dictionary->table) {
            const auto* key = static_cast<const CFObject*>(entry.first);
            if (key == nullptr || key->typeId != kStringTypeId || !valid(entry.second)) {
                return false;
            }
        }
        return true;
    }

    const bool openStep_;
    std::vector<const CFObject*> path_;
};

}  // namespace

bool PlistValidator::isValid(CFTypeRef root, CFPropertyListFormat format) {
    if (format != kCFPropertyListXMLFormat_v1_0 && format != kCFPropertyListBinaryFormat_v1_0 &&
        format != kCFPropertyListOpenStepFormat) {
        return false;
    }
    return Validator(format == kCFPropertyListOpenStepFormat).valid(root);
}

}  // namespace qvcf
