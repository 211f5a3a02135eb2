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

    bool valid(CFTypeRef ref) { return check(ref).ok; }

private:
    // What a walk found out about one value: whether it is valid, how many containers
    // deep its subtree goes, and whether every container in it is immutable.
    struct Facts {
        bool ok;
        int height;
        bool frozen;
    };

    Facts check(CFTypeRef ref) {
        if (ref == nullptr) {
            return {false, 0, true};
        }
        const auto* object = static_cast<const CFObject*>(ref);
        switch (object->typeId) {
            case kStringTypeId:
            case kDataTypeId:
                return {true, 0, true};
            case kBooleanTypeId:
            case kNumberTypeId:
            case kDateTypeId:
                return {!openStep_, 0, true};
            case kArrayTypeId: {
                const auto* array = static_cast<const __CFArray*>(object);
                return checkContainer(array, array->isMutable, array->validHeight);
            }
            case kDictionaryTypeId: {
                const auto* dictionary = static_cast<const __CFDictionary*>(object);
                return checkContainer(dictionary, dictionary->isMutable, dictionary->validHeight);
            }
            default:
                return {false, 0, true};
        }
    }

    // A subtree of immutable containers cannot change, nor can it contain a container on
    // the path to it, so its verdict is kept; only the depth it sits at still counts.
    template <typename Container>
    Facts checkContainer(const Container* container, bool isMutable,
                         std::atomic<int>& validHeight) {
        const int known = openStep_ || isMutable ? -1 : validHeight.load(std::memory_order_acquire);
        if (known >= 0) {
            return {path_.size() + static_cast<size_t>(known) <= kMaxPlistDepth, known, true};
        }
        // Only the containers on the path from the root count: a value shared by two
        // branches is fine, one that contains itself is not.
        if (path_.size() >= kMaxPlistDepth ||
            std::find(path_.begin(), path_.end(), container) != path_.end()) {
            return {false, 0, false};
        }
        path_.push_back(container);
        Facts facts = checkChildren(container);
        path_.pop_back();
        facts.height += 1;
        facts.frozen = facts.frozen && !isMutable;
        if (facts.ok && facts.frozen && !openStep_) {
            validHeight.store(facts.height, std::memory_order_release);
        }
        return facts;
    }

    Facts checkChildren(const __CFArray* array) {
        Facts all{true, 0, true};
        for (const void* value : array->values) {
            if (!merge(all, check(value))) {
                break;
            }
        }
        return all;
    }

    Facts checkChildren(const __CFDictionary* dictionary) {
        Facts all{true, 0, true};
        for (const auto& entry : dictionary->table) {
            const auto* key = static_cast<const CFObject*>(entry.first);
            if (key == nullptr || key->typeId != kStringTypeId) {
                all.ok = false;
                break;
            }
            if (!merge(all, check(entry.second))) {
                break;
            }
        }
        return all;
    }

    // Adds one child's facts; false once the whole is known to be invalid.
    static bool merge(Facts& all, const Facts& child) {
        all.ok = all.ok && child.ok;
        all.height = std::max(all.height, child.height);
        all.frozen = all.frozen && child.frozen;
        return all.ok;
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
