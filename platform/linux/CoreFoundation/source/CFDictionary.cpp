#include "CFDictionaryObject.h"
#include "SharedCallBacks.h"

namespace {

const void* retainObject(CFAllocatorRef, const void* value) {
    return CFRetain(value);
}

void releaseObject(CFAllocatorRef, const void* value) {
    CFRelease(value);
}

Boolean equalObjects(const void* a, const void* b) {
    return qvcf::equal(a, b);
}

CFHashCode hashObject(const void* value) {
    return qvcf::hash(value);
}

const __CFDictionary* asDictionary(CFDictionaryRef dictionary, const char* function) {
    return qvcf::checked<__CFDictionary>(dictionary, qvcf::kDictionaryTypeId, function);
}

__CFDictionary* asMutableDictionary(CFMutableDictionaryRef dictionary, const char* function) {
    auto* object = const_cast<__CFDictionary*>(asDictionary(dictionary, function));
    if (!object->isMutable) {
        qvcf::fatal(function, "immutable collection given to mutating function");
    }
    return object;
}

}  // namespace

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {
    0, retainObject, releaseObject, nullptr, equalObjects, hashObject};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {0, retainObject, releaseObject,
                                                                    nullptr, equalObjects};

size_t __CFDictionary::KeyHash::operator()(const void* key) const {
    return callBacks->hash != nullptr ? callBacks->hash(key) : std::hash<const void*>{}(key);
}

bool __CFDictionary::KeyEqual::operator()(const void* a, const void* b) const {
    return a == b || (callBacks->equal != nullptr && callBacks->equal(a, b));
}

__CFDictionary::__CFDictionary(const CFDictionaryKeyCallBacks* keys,
                               const CFDictionaryValueCallBacks* values, bool mutableDictionary)
    : CFObject(qvcf::kDictionaryTypeId, false),
      keyCallBacks(qvcf::sharedCallBacks(keys, kCFTypeDictionaryKeyCallBacks)),
      valueCallBacks(qvcf::sharedCallBacks(values, kCFTypeDictionaryValueCallBacks)),
      isMutable(mutableDictionary),
      table(KeyHash{&keyCallBacks}, KeyEqual{&keyCallBacks}) {}

__CFDictionary::~__CFDictionary() {
    clear();
}

__CFDictionary::Table::Entry* __CFDictionary::Table::find(const void* key) {
    if (index_ != nullptr) {
        const auto at = index_->find(key);
        return at != index_->end() ? &entries_[at->second] : nullptr;
    }
    // Pointer identity first: keys shared between dictionaries match without a compare.
    for (Entry& entry : entries_) {
        if (entry.first == key) {
            return &entry;
        }
    }
    for (Entry& entry : entries_) {
        if (equal_(entry.first, key)) {
            return &entry;
        }
    }
    return nullptr;
}

void __CFDictionary::Table::add(const void* key, const void* value) {
    entries_.emplace_back(key, value);
    if (index_ != nullptr) {
        index_->emplace(key, entries_.size() - 1);
    } else if (entries_.size() > kIndexedFrom) {
        buildIndex();
    }
}

void __CFDictionary::Table::erase(Entry* entry) {
    if (index_ != nullptr) {
        index_->erase(entry->first);
    }
    Entry& last = entries_.back();
    if (entry != &last) {
        *entry = last;
        if (index_ != nullptr) {
            (*index_)[entry->first] = static_cast<size_t>(entry - entries_.data());
        }
    }
    entries_.pop_back();
}

std::vector<__CFDictionary::Table::Entry> __CFDictionary::Table::take() {
    index_.reset();
    return std::move(entries_);
}

void __CFDictionary::Table::buildIndex() {
    index_ = std::make_unique<std::unordered_map<const void*, size_t, KeyHash, KeyEqual>>(
        entries_.size() * 2, hash_, equal_);
    for (size_t i = 0; i < entries_.size(); ++i) {
        index_->emplace(entries_[i].first, i);
    }
}

const void* __CFDictionary::find(const void* key, bool& found) const {
    const Table::Entry* entry = table.find(key);
    found = entry != nullptr;
    return found ? entry->second : nullptr;
}

void __CFDictionary::put(const void* key, const void* value, bool replace) {
    Table::Entry* entry = table.find(key);
    if (entry == nullptr) {
        table.add(retainKey(key), retainValue(value));
        return;
    }
    if (replace) {
        // Retain first: the new value may be the old one.
        const void* old = entry->second;
        entry->second = retainValue(value);
        releaseValue(old);
    }
}

void __CFDictionary::remove(const void* key) {
    Table::Entry* entry = table.find(key);
    if (entry == nullptr) {
        return;
    }
    const void* storedKey = entry->first;
    const void* storedValue = entry->second;
    table.erase(entry);
    releaseKey(storedKey);
    releaseValue(storedValue);
}

void __CFDictionary::clear() {
    // Released after the table is emptied, so that a release that reaches back into
    // this dictionary finds it consistent.
    const auto entries = table.take();
    for (const auto& entry : entries) {
        releaseKey(entry.first);
        releaseValue(entry.second);
    }
}

bool __CFDictionary::equals(const __CFDictionary& other) const {
    if (table.size() != other.table.size()) {
        return false;
    }
    for (const auto& entry : table) {
        bool found = false;
        const void* otherValue = other.find(entry.first, found);
        if (!found) {
            return false;
        }
        const bool same = valueCallBacks.equal != nullptr
                              ? valueCallBacks.equal(entry.second, otherValue)
                              : entry.second == otherValue;
        if (!same) {
            return false;
        }
    }
    return true;
}

const void* __CFDictionary::retainKey(const void* key) const {
    return keyCallBacks.retain != nullptr ? keyCallBacks.retain(kCFAllocatorDefault, key) : key;
}

const void* __CFDictionary::retainValue(const void* value) const {
    return valueCallBacks.retain != nullptr ? valueCallBacks.retain(kCFAllocatorDefault, value)
                                            : value;
}

void __CFDictionary::releaseKey(const void* key) const {
    if (keyCallBacks.release != nullptr) {
        keyCallBacks.release(kCFAllocatorDefault, key);
    }
}

void __CFDictionary::releaseValue(const void* value) const {
    if (valueCallBacks.release != nullptr) {
        valueCallBacks.release(kCFAllocatorDefault, value);
    }
}

CFTypeID CFDictionaryGetTypeID(void) {
    return qvcf::kDictionaryTypeId;
}

// The capacity is only a hint, as in current CoreFoundation.
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks) {
    if (capacity < 0) {
        return nullptr;
    }
    return new __CFDictionary(keyCallBacks, valueCallBacks, true);
}

namespace {

__CFDictionary* copyDictionary(CFDictionaryRef theDict, bool isMutable, const char* function) {
    const __CFDictionary* source = asDictionary(theDict, function);
    auto* copy = new __CFDictionary(&source->keyCallBacks, &source->valueCallBacks, isMutable);
    copy->table.reserve(source->table.size());
    for (const auto& entry : source->table) {
        copy->put(entry.first, entry.second, false);
    }
    return copy;
}

}  // namespace

CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef, CFDictionaryRef theDict) {
    return copyDictionary(theDict, false, "CFDictionaryCreateCopy");
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef, CFIndex,
                                                     CFDictionaryRef theDict) {
    return copyDictionary(theDict, true, "CFDictionaryCreateMutableCopy");
}

CFIndex CFDictionaryGetCount(CFDictionaryRef theDict) {
    return asDictionary(theDict, "CFDictionaryGetCount")->count();
}

Boolean CFDictionaryContainsKey(CFDictionaryRef theDict, const void* key) {
    bool found = false;
    asDictionary(theDict, "CFDictionaryContainsKey")->find(key, found);
    return found;
}

const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key) {
    bool found = false;
    return asDictionary(theDict, "CFDictionaryGetValue")->find(key, found);
}

void CFDictionaryAddValue(CFMutableDictionaryRef theDict, const void* key, const void* value) {
    asMutableDictionary(theDict, "CFDictionaryAddValue")->put(key, value, false);
}

void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value) {
    asMutableDictionary(theDict, "CFDictionarySetValue")->put(key, value, true);
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef theDict, const void* key) {
    asMutableDictionary(theDict, "CFDictionaryRemoveValue")->remove(key);
}

void CFDictionaryRemoveAllValues(CFMutableDictionaryRef theDict) {
    asMutableDictionary(theDict, "CFDictionaryRemoveAllValues")->clear();
}
