// Arrays and dictionaries: ownership, key equality and mutability.
#include "CFTestSupport.h"

#include <gtest/gtest.h>

namespace qvtest {
namespace {

TEST(CFDictionary, HoldsItsValuesPastTheCreatorsRelease) {
    CFHolder dictionary(newDictionary());
    auto root = (CFMutableDictionaryRef)dictionary.get();
    CFStringRef key = str("fw_log_path");
    CFStringRef value = str("/var/log/ipfw.log");
    CFDictionaryAddValue(root, key, value);
    CFRelease(key);
    CFRelease(value);
    // Both objects now live only through the dictionary; a missing retain would make
    // this a use after free under AddressSanitizer.
    auto found = static_cast<CFStringRef>(lookup(root, "fw_log_path"));
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(CFStringGetCStringPtr(found, kCFStringEncodingUTF8), "/var/log/ipfw.log");
}

TEST(CFDictionary, KeysCompareByContent) {
    CFHolder dictionary(newDictionary());
    auto root = (CFMutableDictionaryRef)dictionary.get();
    put(root, "rules", int32Number(1));
    CFHolder otherKey(str("rules"));
    EXPECT_TRUE(CFDictionaryContainsKey(root, otherKey.get()));

    // Numbers are equal by value whatever their representation.
    CFHolder intKey(int32Number(7));
    CFDictionaryAddValue(root, intKey.get(), kCFBooleanTrue);
    CFHolder doubleKey(doubleNumber(7.0));
    CFHolder wideKey(int64Number(7));
    EXPECT_EQ(CFDictionaryGetValue(root, doubleKey.get()), kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetValue(root, wideKey.get()), kCFBooleanTrue);
    CFHolder fraction(doubleNumber(7.5));
    EXPECT_FALSE(CFDictionaryContainsKey(root, fraction.get()));
}

TEST(CFDictionary, AddKeepsSetReplacesRemoveDrops) {
    CFHolder dictionary(newDictionary());
    auto root = (CFMutableDictionaryRef)dictionary.get();
    CFHolder key(str("enable_fw"));
    CFDictionaryAddValue(root, key.get(), kCFBooleanTrue);
    CFDictionaryAddValue(root, key.get(), kCFBooleanFalse);
    EXPECT_EQ(CFDictionaryGetValue(root, key.get()), kCFBooleanTrue);
    CFDictionarySetValue(root, key.get(), kCFBooleanFalse);
    EXPECT_EQ(CFDictionaryGetValue(root, key.get()), kCFBooleanFalse);
    EXPECT_EQ(CFDictionaryGetCount(root), 1);

    put(root, "syslog_conf", str("/etc/syslog.conf"));
    CFDictionaryRemoveValue(root, key.get());
    EXPECT_FALSE(CFDictionaryContainsKey(root, key.get()));
    EXPECT_EQ(CFDictionaryGetCount(root), 1);
    CFDictionaryRemoveValue(root, key.get());  // absent: no effect
    CFDictionaryRemoveAllValues(root);
    EXPECT_EQ(CFDictionaryGetCount(root), 0);
    EXPECT_EQ(lookup(root, "syslog_conf"), nullptr);
}

TEST(CFDictionary, SettingTheSameValueAgainKeepsItAlive) {
    CFHolder dictionary(newDictionary());
    auto root = (CFMutableDictionaryRef)dictionary.get();
    CFHolder key(str("k"));
    CFStringRef value = str("only held by the dictionary");
    CFDictionarySetValue(root, key.get(), value);
    CFRelease(value);
    CFDictionarySetValue(root, key.get(), CFDictionaryGetValue(root, key.get()));
    EXPECT_EQ(CFStringGetLength(static_cast<CFStringRef>(CFDictionaryGetValue(root, key.get()))),
              27);
}

// Value callbacks that count how often the dictionary retains and releases.
struct CountingCallbacks {
    static int retains;
    static int releases;
    static const void* retain(CFAllocatorRef, const void* value) {
        ++retains;
        return CFRetain(value);
    }
    static void release(CFAllocatorRef, const void* value) {
        ++releases;
        CFRelease(value);
    }
};
int CountingCallbacks::retains = 0;
int CountingCallbacks::releases = 0;

TEST(CFDictionary, UsesTheCallersCallbacksAndNullCallbacksRetainNothing) {
    CountingCallbacks::retains = CountingCallbacks::releases = 0;
    const CFDictionaryValueCallBacks counting = {0, CountingCallbacks::retain,
                                                 CountingCallbacks::release, nullptr, nullptr};
    CFHolder key(str("k"));
    CFHolder value(str("v"));
    {
        CFHolder dictionary(CFDictionaryCreateMutable(kCFAllocatorDefault, 0,
                                                      &kCFTypeDictionaryKeyCallBacks, &counting));
        auto root = (CFMutableDictionaryRef)dictionary.get();
        CFDictionarySetValue(root, key.get(), value.get());
        CFDictionarySetValue(root, key.get(), value.get());
        EXPECT_EQ(CountingCallbacks::retains, 2);
        EXPECT_EQ(CountingCallbacks::releases, 1);
    }
    EXPECT_EQ(CountingCallbacks::releases, 2);

    // Without callbacks, keys compare by pointer and nothing is retained.
    CFHolder plain(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, nullptr, nullptr));
    auto root = (CFMutableDictionaryRef)plain.get();
    CFDictionaryAddValue(root, key.get(), value.get());
    CFHolder sameText(str("k"));
    EXPECT_FALSE(CFDictionaryContainsKey(root, sameText.get()));
    EXPECT_TRUE(CFDictionaryContainsKey(root, key.get()));
}

// A mutable copy of an immutable document shares its values: changing the copy's keys
// leaves the original as it was, and the two compare equal by content until then.
TEST(CFDictionary, MutableCopyIsShallowAndEqualByContent) {
    CFHolder frozen = parse(xmlDocument("<dict><key>rules</key><array><integer>3100</integer>"
                                        "</array></dict>\n"),
                            kCFPropertyListImmutable);
    ASSERT_NE(frozen, nullptr);
    auto original = static_cast<CFDictionaryRef>(frozen.get());
    CFHolder copy(CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, original));
    auto root = (CFMutableDictionaryRef)copy.get();
    EXPECT_TRUE(CFEqual(original, root));
    EXPECT_EQ(lookup(original, "rules"), lookup(root, "rules"));

    put(root, "enable_fw", kCFBooleanTrue);
    EXPECT_FALSE(CFEqual(original, root));
    EXPECT_EQ(CFDictionaryGetCount(original), 1);
    EXPECT_EQ(CFDictionaryGetCount(root), 2);
}

TEST(CFArray, RetainsValuesAndKeepsOrder) {
    CFStringRef first = str("first");
    CFNumberRef second = int32Number(2);
    const void* values[] = {first, second, kCFBooleanTrue};
    CFHolder array(CFArrayCreate(kCFAllocatorDefault, values, 3, &kCFTypeArrayCallBacks));
    CFRelease(first);
    CFRelease(second);
    auto list = static_cast<CFArrayRef>(array.get());
    ASSERT_EQ(CFArrayGetCount(list), 3);
    EXPECT_EQ(CFGetTypeID(list), CFArrayGetTypeID());
    EXPECT_STREQ(CFStringGetCStringPtr(static_cast<CFStringRef>(CFArrayGetValueAtIndex(list, 0)),
                                       kCFStringEncodingUTF8),
                 "first");
    int32_t number = 0;
    EXPECT_TRUE(CFNumberGetValue(static_cast<CFNumberRef>(CFArrayGetValueAtIndex(list, 1)),
                                 kCFNumberSInt32Type, &number));
    EXPECT_EQ(number, 2);
    EXPECT_EQ(CFArrayGetValueAtIndex(list, 2), kCFBooleanTrue);
}

TEST(CFArray, EmptyAndInvalidCreation) {
    CFHolder empty(CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeArrayCallBacks));
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(CFArrayGetCount(static_cast<CFArrayRef>(empty.get())), 0);
    EXPECT_EQ(CFArrayCreate(kCFAllocatorDefault, nullptr, 2, &kCFTypeArrayCallBacks), nullptr);
}

}  // namespace
}  // namespace qvtest
