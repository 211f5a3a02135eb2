// Dictionaries: a hash table whose hashing and equality come from the key callbacks.
#pragma once

#include "CFObject.h"
#include "XmlRenderCache.h"

#include <CoreFoundation/CFDictionary.h>

#include <unordered_map>

struct __CFDictionary : qvcf::CFObject {
    __CFDictionary(const CFDictionaryKeyCallBacks* keyCallBacks,
                   const CFDictionaryValueCallBacks* valueCallBacks, bool isMutable);
    ~__CFDictionary() override;

    const void* find(const void* key, bool& found) const;
    // Adds the pair when the key is absent; with `replace`, also replaces the value of a
    // present key (the key object already stored stays).
    void put(const void* key, const void* value, bool replace);
    void remove(const void* key);
    void clear();
    CFIndex count() const { return static_cast<CFIndex>(table.size()); }
    bool equals(const __CFDictionary& other) const;

    struct KeyHash {
        const CFDictionaryKeyCallBacks* callBacks;
        size_t operator()(const void* key) const;
    };
    struct KeyEqual {
        const CFDictionaryKeyCallBacks* callBacks;
        bool operator()(const void* a, const void* b) const;
    };

    const CFDictionaryKeyCallBacks keyCallBacks;
    const CFDictionaryValueCallBacks valueCallBacks;
    const bool isMutable;
    std::unordered_map<const void*, const void*, KeyHash, KeyEqual> table;
    // Used by the XML writer for immutable dictionaries only.
    qvcf::XmlRenderCache xml;
    // For immutable containers holding no mutable one: the height of the subtree once
    // it has been found valid (-1 until then), so that it is walked only once.
    mutable std::atomic<int> validHeight{-1};

private:
    const void* retainKey(const void* key) const;
    const void* retainValue(const void* value) const;
    void releaseKey(const void* key) const;
    void releaseValue(const void* value) const;
};
