#include "DebugLevelReader.h"

#include <CoreFoundation/CoreFoundation.h>

namespace qvutil {
namespace {

// Releases a CoreFoundation object at scope end.
class CFHolder {
public:
    explicit CFHolder(CFTypeRef object) : m_object(object) {}
    ~CFHolder() {
        if (m_object != nullptr) {
            CFRelease(m_object);
        }
    }
    CFHolder(const CFHolder&) = delete;
    CFHolder& operator=(const CFHolder&) = delete;
    CFTypeRef get() const { return m_object; }

private:
    CFTypeRef m_object;
};

int LevelFromValue(CFTypeRef value) {
    if (value == nullptr || CFGetTypeID(value) != CFNumberGetTypeID()) {
        return kDefaultDebugLevel;
    }
    int64_t level = -1;
    // Fails for reals with a fraction, so 4.5 is not taken as 4.
    if (!CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt64Type, &level) ||
        level < 0 || level > 7) {
        return kDefaultDebugLevel;
    }
    return static_cast<int>(level);
}

}  // namespace

int DebugLevelFromPlist(const uint8_t* bytes, size_t length) {
    if (bytes == nullptr || length == 0) {
        return kDefaultDebugLevel;
    }
    CFHolder data(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, bytes,
                                              static_cast<CFIndex>(length), kCFAllocatorNull));
    if (data.get() == nullptr) {
        return kDefaultDebugLevel;
    }
    CFHolder root(CFPropertyListCreateWithData(kCFAllocatorDefault,
                                               static_cast<CFDataRef>(data.get()),
                                               kCFPropertyListImmutable, nullptr, nullptr));
    if (root.get() == nullptr || CFGetTypeID(root.get()) != CFDictionaryGetTypeID()) {
        return kDefaultDebugLevel;
    }
    CFHolder key(
        CFStringCreateWithCString(kCFAllocatorDefault, kDebugLevelKey, kCFStringEncodingUTF8));
    if (key.get() == nullptr) {
        return kDefaultDebugLevel;
    }
    return LevelFromValue(
        CFDictionaryGetValue(static_cast<CFDictionaryRef>(root.get()), key.get()));
}

}  // namespace qvutil
