#include "PlistValueCache.h"

#include "CFNumberObject.h"
#include "CFStringObject.h"

namespace qvcf {

PlistValueCache::~PlistValueCache() {
    for (const auto& entry : keys_) {
        CFRelease(entry.second);
    }
    for (const void* number : smallIntegers_) {
        if (number != nullptr) {
            CFRelease(number);
        }
    }
}

const void* PlistValueCache::key(std::string_view text) {
    const auto found = keys_.find(text);
    if (found != keys_.end()) {
        return CFRetain(found->second);
    }
    const __CFString* made = createString(text.data(), text.size());
    if (made == nullptr) {
        return nullptr;
    }
    keys_.emplace(std::string_view(made->text), made);
    return CFRetain(made);
}

const void* PlistValueCache::integer(int64_t value) {
    if (value < 0 || value >= static_cast<int64_t>(kSmallIntegers)) {
        return new __CFNumber(value);
    }
    const void*& shared = smallIntegers_[value];
    if (shared == nullptr) {
        shared = new __CFNumber(value);
    }
    return CFRetain(shared);
}

}  // namespace qvcf
