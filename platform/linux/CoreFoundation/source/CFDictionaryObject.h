// Dictionaries: a hash table whose hashing and equality come from the key callbacks.
#pragma once

#include "CFObject.h"
#include "XmlRenderCache.h"

#include <CoreFoundation/CFDictionary.h>

#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

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

    // The pairs in insertion order. Property-list dictionaries hold a handful of keys, so
    // they are found by a scan of one allocation; a hash index is added only past
    // kIndexedFrom entries. A hash table per dictionary cost three small allocations more
    // per rule dictionary, and freeing hundreds of thousands of them on a load of 10,000
    // rules made release alone grow fifty times for ten times the rules.
    class Table {
    public:
        using Entry = std::pair<const void*, const void*>;
        static constexpr size_t kIndexedFrom = 16;

        Table(KeyHash hash, KeyEqual equal) : hash_(hash), equal_(equal) {}

        Entry* find(const void* key);
        const Entry* find(const void* key) const { return const_cast<Table*>(this)->find(key); }
        // `key` must be absent.
        void add(const void* key, const void* value);
        void erase(Entry* entry);
        // Empties the table and hands over its pairs.
        std::vector<Entry> take();
        void reserve(size_t count) { entries_.reserve(count); }
        size_t size() const { return entries_.size(); }
        bool empty() const { return entries_.empty(); }
        std::vector<Entry>::const_iterator begin() const { return entries_.begin(); }
        std::vector<Entry>::const_iterator end() const { return entries_.end(); }

    private:
        void buildIndex();

        KeyHash hash_;
        KeyEqual equal_;
        std::vector<Entry> entries_;
        std::unique_ptr<std::unordered_map<const void*, size_t, KeyHash, KeyEqual>> index_;
    };

    // Shared copies (SharedCallBacks.h).
    const CFDictionaryKeyCallBacks& keyCallBacks;
    const CFDictionaryValueCallBacks& valueCallBacks;
    const bool isMutable;
    Table table;
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
