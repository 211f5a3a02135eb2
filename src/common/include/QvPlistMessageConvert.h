// Messages and repeated fields in property lists: the generic templates that the message
// conversions (convert(dictionary, Message&) and convert(const Message&, dictionary),
// declared beside each schema) are built from.
//
// Reading is forgiving per key and strict per array: a bad key leaves its field unset,
// while one bad element empties a whole repeated field. Writing is all-or-nothing in its
// result, so a caller discards a dictionary whose conversion failed.
//
// The message conversions are found by argument-dependent lookup when these templates
// are instantiated, so they must live in the message types' namespace.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <google/protobuf/repeated_field.h>

#include <memory>
#include <new>
#include <type_traits>

#include "QvPlistConvert.h"

namespace qor {
namespace vela {

using google::protobuf::RepeatedField;
using google::protobuf::RepeatedPtrField;

inline CFMutableDictionaryRef createMutableDictionary() {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

inline bool isArray(CFTypeRef value) {
    return value != nullptr && CFGetTypeID(value) == CFArrayTypeInfo::CF_TYPE_ID;
}

// ---- Arrays -> repeated fields -------------------------------------------------------

// Fills `field` from an array of message dictionaries; one missing, foreign or incomplete
// element empties the field again.
template <typename T>
bool convert(CFArrayRef array, RepeatedPtrField<T>& field) {
    if (array == nullptr) {
        return false;
    }
    field.Clear();
    const CFIndex count = CFArrayGetCount(array);
    for (CFIndex i = 0; i < count; ++i) {
        T* element = field.Add();
        CFTypeRef item = CFArrayGetValueAtIndex(array, i);
        if (item == nullptr || CFGetTypeID(item) != TypeInfo<T>::CF_TYPE_ID ||
            !convert(static_cast<CFDictionaryRef>(item), *element)) {
            field.Clear();
            return false;
        }
    }
    return true;
}

// Fills `field` from an array of numbers; one item that is not a number of T's stored
// type empties the field again.
template <typename T>
bool convert(CFArrayRef array, RepeatedField<T>& field) {
    if (array == nullptr) {
        return false;
    }
    field.Clear();
    const CFIndex count = CFArrayGetCount(array);
    for (CFIndex i = 0; i < count; ++i) {
        T value{};
        if (!readNumber(CFArrayGetValueAtIndex(array, i), value)) {
            field.Clear();
            return false;
        }
        field.Add(value);
    }
    return true;
}

// Reads the array under `key`; a missing key or a value that is not an array leaves the
// field as it was.
template <typename Field>
bool convertArrayAt(CFDictionaryRef dict, const char* key, Field& field) {
    if (dict == nullptr || key == nullptr) {
        return false;
    }
    CFTypeRef value = lookupValue(dict, key);
    if (!isArray(value)) {
        return false;
    }
    return convert(static_cast<CFArrayRef>(value), field);
}

template <typename T>
bool convert(CFDictionaryRef dict, const char* key, RepeatedPtrField<T>& field) {
    return convertArrayAt(dict, key, field);
}

template <typename T>
bool convert(CFDictionaryRef dict, const char* key, RepeatedField<T>& field) {
    return convertArrayAt(dict, key, field);
}

// ---- Repeated fields -> arrays -------------------------------------------------------

// Owns the element references collected for a new array until the array is made.
class CFValueBatch {
public:
    explicit CFValueBatch(int capacity)
        : m_values(new (std::nothrow) CFTypeRef[capacity > 0 ? capacity : 1]) {}
    ~CFValueBatch() {
        for (int i = 0; i < m_count; ++i) {
            CFRelease(m_values[i]);
        }
    }
    CFValueBatch(const CFValueBatch&) = delete;
    CFValueBatch& operator=(const CFValueBatch&) = delete;

    bool valid() const { return m_values != nullptr; }
    // Takes ownership of `value`; false for a null value.
    bool push(CFTypeRef value) {
        if (value == nullptr) {
            return false;
        }
        m_values[m_count++] = value;
        return true;
    }
    // An immutable array retaining every collected value, or null.
    CFArrayRef createArray() const {
        return CFArrayCreate(kCFAllocatorDefault, m_values.get(), m_count, &kCFTypeArrayCallBacks);
    }

private:
    std::unique_ptr<CFTypeRef[]> m_values;
    int m_count = 0;
};

// A new dictionary holding `message`, or null.
template <typename T>
CFTypeRef createMessageValue(const T& message) {
    CFMutableDictionaryRef dict = createMutableDictionary();
    if (dict != nullptr && !convert(message, dict)) {
        CFRelease(dict);
        return nullptr;
    }
    return dict;
}

// Makes one value per element with `make`; `out` receives a new array (owned by the
// caller) only when every element could be made.
template <typename Field, typename Make>
bool createArrayOf(const Field& field, Make make, CFArrayRef& out) {
    CFValueBatch batch(field.size());
    if (!batch.valid()) {
        return false;
    }
    for (const auto& element : field) {
        if (!batch.push(make(element))) {
            return false;
        }
    }
    CFArrayRef array = batch.createArray();
    if (array == nullptr) {
        return false;
    }
    out = array;
    return true;
}

// One dictionary per message.
template <typename T>
bool convertCreate(const RepeatedPtrField<T>& field, CFArrayRef& out) {
    return createArrayOf(
        field, [](const T& message) { return createMessageValue(message); }, out);
}

// One number per element.
template <typename T>
bool convertCreate(const RepeatedField<T>& field, CFArrayRef& out) {
    return createArrayOf(
        field, [](T value) { return createValue(value); }, out);
}

// ---- Fields of a message being read --------------------------------------------------

// Hands the value under `key` to `set` when it converts to V.
template <typename V, typename Setter>
void readField(CFDictionaryRef dict, const char* key, Setter set) {
    V value{};
    if (readValue(lookupValue(dict, key), value)) {
        set(value);
    }
}

// Enumerations are set only with a value of their set, so the setters' checks never fire.
template <typename Setter>
void readEnumField(CFDictionaryRef dict, const char* key, bool (*isValid)(int), Setter set) {
    int value = 0;
    if (readValue(lookupValue(dict, key), value) && isValid(value)) {
        set(value);
    }
}

// A nested message is present as soon as its key is, whatever the value; a dictionary
// value is then read into it and the reader's verdict is left to the outer message.
template <typename MutableAccessor>
void readNestedField(CFDictionaryRef dict, const char* key, MutableAccessor mutableField) {
    CFTypeRef value = lookupValue(dict, key);
    if (value == nullptr) {
        return;
    }
    auto* nested = mutableField();
    using Nested = typename std::remove_pointer<decltype(nested)>::type;
    if (CFGetTypeID(value) == TypeInfo<Nested>::CF_TYPE_ID) {
        convert(static_cast<CFDictionaryRef>(value), *nested);
    }
}

// A repeated field is read only when its key is there; the array's verdict is ignored.
template <typename Field>
void readRepeatedField(CFDictionaryRef dict, const char* key, Field& field) {
    convert(dict, key, field);
}

// ---- Fields of a message being written -----------------------------------------------

// Checks the target and the message and empties the target before a writer fills it.
template <typename T>
bool beginWrite(const T& message, CFMutableDictionaryRef dict) {
    if (dict == nullptr || !message.IsInitialized()) {
        return false;
    }
    CFDictionaryRemoveAllValues(dict);
    return true;
}

template <typename V>
bool writeField(CFMutableDictionaryRef dict, const char* key, bool present, const V& value) {
    return !present || addConvertedValue(dict, key, value);
}

// Builds the dictionary of `message` and adds it to `parent` under `key`.
template <typename T>
bool convert(const T& message, const char* key, CFMutableDictionaryRef parent) {
    if (key == nullptr || parent == nullptr) {
        return false;
    }
    CFTypeRef dict = createMessageValue(message);
    if (dict == nullptr) {
        return false;
    }
    const bool added = addValue(parent, key, dict);
    CFRelease(dict);
    return added;
}

template <typename T>
bool writeNestedField(CFMutableDictionaryRef dict, const char* key, bool present,
                      const T& message) {
    return !present || convert(message, key, dict);
}

// Repeated fields are written only when they hold at least one element.
template <typename Field>
bool writeRepeatedField(CFMutableDictionaryRef dict, const char* key, const Field& field) {
    if (field.empty()) {
        return true;
    }
    CFArrayRef array = nullptr;
    if (!convertCreate(field, array)) {
        return false;
    }
    const bool added = addValue(dict, key, array);
    CFRelease(array);
    return added;
}

}  // namespace vela
}  // namespace qor
