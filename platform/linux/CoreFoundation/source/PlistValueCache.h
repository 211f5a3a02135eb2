// The objects one read shares among the places that hold the same value. A configuration
// repeats a few key names in every dictionary (ten thousand rules, twenty keys each) and
// the same enumerations, flags and lengths in every rule; one immutable object per key
// name and per small integer keeps the tree small and its walks in cache.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>

namespace qvcf {

class PlistValueCache {
public:
    PlistValueCache() = default;
    ~PlistValueCache();
    PlistValueCache(const PlistValueCache&) = delete;
    PlistValueCache& operator=(const PlistValueCache&) = delete;

    // A new reference to the one string of this read with the UTF-8 text `text`, or NULL
    // when the text is not well-formed.
    const void* key(std::string_view text);

    // A new reference to a number holding `value`.
    const void* integer(int64_t value);

private:
    static constexpr size_t kSmallIntegers = 256;
    const void* smallIntegers_[kSmallIntegers] = {};
    // Each view looks into the text of the string it maps to, which the cache keeps
    // alive, so that a lookup needs no copy of the name.
    std::unordered_map<std::string_view, const void*> keys_;
};

}  // namespace qvcf
