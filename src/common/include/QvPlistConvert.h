// Property-list values and the C++ field types they carry: the type traits that pick the
// CoreFoundation type for a field type, and the conversions of single values (numbers,
// booleans, strings) between CoreFoundation objects and C++ variables.
//
// Every signed or unsigned 32-bit field travels as a CFNumber of kCFNumberSInt32Type, so
// an unsigned value above 2147483647 is stored as its negative two's-complement twin and
// comes back as the same 32 bits. Reals travel as kCFNumberDoubleType.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <stdlib.h>

#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>

#include "QvCFUtil.h"

namespace qor {
namespace vela {

// Number traits: the CFNumber type identifier and the number type a C++ type is stored as.
template <typename T, CFNumberType N>
struct CFNumberTypeInfo {
    static const CFTypeID CF_TYPE_ID;
    static constexpr CFNumberType CF_NUM_TYPE = N;
};

template <typename T, CFNumberType N>
const CFTypeID CFNumberTypeInfo<T, N>::CF_TYPE_ID = CFNumberGetTypeID();

template <>
struct TypeInfo<int> : CFNumberTypeInfo<int, kCFNumberSInt32Type> {};
template <>
struct TypeInfo<unsigned int> : CFNumberTypeInfo<unsigned int, kCFNumberSInt32Type> {};
template <>
struct TypeInfo<double> : CFNumberTypeInfo<double, kCFNumberDoubleType> {};

// Strings are looked up lazily: the identifier is needed only once a string is read.
template <>
struct TypeInfo<std::string> {
    static CFTypeID GET_CF_TYPE_ID() {
        static const CFTypeID id = CFStringGetTypeID();
        return id;
    }
};

// Messages are stored as dictionaries; each message type's TypeInfo derives from this.
struct CFDictionaryTypeInfo {
    static inline const CFTypeID CF_TYPE_ID = CFDictionaryGetTypeID();
};

// Copies `string` as UTF-8 into `out`. False for a null string, or when the slow path
// (taken whenever CoreFoundation has no UTF-8 pointer at hand, e.g. for non-ASCII text)
// cannot allocate or copy.
inline bool convert(CFStringRef string, std::string& out) {
    if (string == nullptr) {
        return false;
    }
    const char* direct = CFStringGetCStringPtr(string, kCFStringEncodingUTF8);
    if (direct != nullptr) {
        out = direct;
        return true;
    }
    const CFIndex length = CFStringGetLength(string);
    if (length == 0) {
        out.clear();
        return true;
    }
    // A UTF-16 unit never needs more than three UTF-8 bytes, so four per unit is ample.
    const size_t capacity = 4 * static_cast<size_t>(length);
    char* buffer = static_cast<char*>(malloc(capacity + 1));
    if (buffer == nullptr) {
        return false;
    }
    const bool copied = QvGetCStringFromCFString(string, buffer, capacity);
    if (copied) {
        out = buffer;
    }
    free(buffer);
    return copied;
}

// Reads a number of T's stored type; false when `value` is not a number or the number
// does not convert to T without loss.
template <typename T>
bool readNumber(CFTypeRef value, T& out) {
    if (value == nullptr || CFGetTypeID(value) != TypeInfo<T>::CF_TYPE_ID) {
        return false;
    }
    T converted{};
    if (!CFNumberGetValue(static_cast<CFNumberRef>(value), TypeInfo<T>::CF_NUM_TYPE, &converted)) {
        return false;
    }
    out = converted;
    return true;
}

inline bool readValue(CFTypeRef value, int& out) {
    return readNumber(value, out);
}
inline bool readValue(CFTypeRef value, unsigned int& out) {
    return readNumber(value, out);
}
inline bool readValue(CFTypeRef value, double& out) {
    return readNumber(value, out);
}

// Any boolean but kCFBooleanFalse reads as true; a number is not a boolean.
inline bool readValue(CFTypeRef value, bool& out) {
    if (value == nullptr || CFGetTypeID(value) != TypeInfo<bool>::CF_TYPE_ID) {
        return false;
    }
    out = value != kCFBooleanFalse;
    return true;
}

inline bool readValue(CFTypeRef value, std::string& out) {
    if (value == nullptr || CFGetTypeID(value) != TypeInfo<std::string>::GET_CF_TYPE_ID()) {
        return false;
    }
    return convert(static_cast<CFStringRef>(value), out);
}

// The create functions return an owned reference (null on failure), booleans included,
// so that every value is released the same way after insertion.
template <typename T>
CFTypeRef createNumber(T value) {
    return CFNumberCreate(kCFAllocatorDefault, TypeInfo<T>::CF_NUM_TYPE, &value);
}

inline CFTypeRef createValue(int value) {
    return createNumber(value);
}
inline CFTypeRef createValue(unsigned int value) {
    return createNumber(value);
}
inline CFTypeRef createValue(double value) {
    return createNumber(value);
}
inline CFTypeRef createValue(bool value) {
    return CFRetain(value ? kCFBooleanTrue : kCFBooleanFalse);
}
inline CFTypeRef createValue(const std::string& value) {
    return QvCreateCFStringFromString(value.c_str());
}

// The one string of the process for the key `key` (not to be released), or null. Keys
// are the schemas' field names, a small fixed set, while every dictionary of every rule
// holds them: one string per name keeps ten thousand rules from carrying two hundred
// thousand copies and spares an allocation per field on every conversion.
inline CFStringRef sharedKey(const char* key) {
    static std::mutex* const lock = new std::mutex;
    // Never destroyed: dictionaries released during exit may still hold its strings.
    static auto* const keys = new std::unordered_map<std::string, CFStringRef>;
    std::lock_guard<std::mutex> guard(*lock);
    auto found = keys->find(key);
    if (found != keys->end()) {
        return found->second;
    }
    CFStringRef made = QvCreateCFStringFromString(key);
    if (made != nullptr) {
        keys->emplace(key, made);
    }
    return made;
}

// The value stored under `key`, or null when the key is absent or cannot be made.
inline CFTypeRef lookupValue(CFDictionaryRef dict, const char* key) {
    if (dict == nullptr || key == nullptr) {
        return nullptr;
    }
    CFStringRef keyString = sharedKey(key);
    return keyString != nullptr ? CFDictionaryGetValue(dict, keyString) : nullptr;
}

// Adds `value` (not consumed; the dictionary retains it) under `key`.
inline bool addValue(CFMutableDictionaryRef dict, const char* key, CFTypeRef value) {
    if (dict == nullptr || key == nullptr || value == nullptr) {
        return false;
    }
    CFStringRef keyString = sharedKey(key);
    if (keyString == nullptr) {
        return false;
    }
    CFDictionaryAddValue(dict, keyString, value);
    return true;
}

// Converts `value` and adds it under `key`.
template <typename T>
bool addConvertedValue(CFMutableDictionaryRef dict, const char* key, const T& value) {
    CFTypeRef converted = createValue(value);
    if (converted == nullptr) {
        return false;
    }
    const bool added = addValue(dict, key, converted);
    CFRelease(converted);
    return added;
}

}  // namespace vela
}  // namespace qor
