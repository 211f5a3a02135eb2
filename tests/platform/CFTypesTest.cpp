// Strings, numbers, booleans, data, arrays and dictionaries of the Linux CoreFoundation
// subset: conversions, ownership, key equality and mutability.
#include "CFTestSupport.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>

namespace qvtest {
namespace {

CFStringRef asString(const CFHolder& holder) {
    return static_cast<CFStringRef>(holder.get());
}

TEST(CFString, LengthCopyAndRefusals) {
    // "é" is one UTF-16 unit, "€" one, U+1F600 two.
    CFHolder text(str("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(CFStringGetLength(asString(text)), 5);
    CFHolder empty(str(""));
    EXPECT_EQ(CFStringGetLength(asString(empty)), 0);

    // A direct pointer only for ASCII, so callers need the copying path.
    CFHolder ascii(str("rules"));
    CFHolder accented(str("r\xC3\xA8gles"));
    ASSERT_NE(CFStringGetCStringPtr(asString(ascii), kCFStringEncodingUTF8), nullptr);
    EXPECT_STREQ(CFStringGetCStringPtr(asString(ascii), kCFStringEncodingUTF8), "rules");
    EXPECT_EQ(CFStringGetCStringPtr(asString(accented), kCFStringEncodingUTF8), nullptr);
    char buffer[16];
    ASSERT_TRUE(
        CFStringGetCString(asString(accented), buffer, sizeof buffer, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "r\xC3\xA8gles");
    // The copy needs room for the terminator.
    EXPECT_FALSE(CFStringGetCString(asString(accented), buffer, 7, kCFStringEncodingUTF8));
    EXPECT_TRUE(CFStringGetCString(asString(ascii), buffer, 6, kCFStringEncodingUTF8));

    EXPECT_EQ(CFStringCreateWithCString(kCFAllocatorDefault, nullptr, kCFStringEncodingUTF8),
              nullptr);
    for (const char* bad : {"\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "a\xFF"}) {
        EXPECT_EQ(str(bad), nullptr) << "accepted malformed UTF-8";
    }
}

// `number` read as `type`: the value as that type and the lossless flag.
std::pair<double, bool> readAs(CFNumberRef number, CFNumberType type) {
    int32_t narrow = 0;
    int64_t wide = 0;
    double real = 0;
    void* value = type == kCFNumberSInt32Type   ? static_cast<void*>(&narrow)
                  : type == kCFNumberSInt64Type ? static_cast<void*>(&wide)
                                                : static_cast<void*>(&real);
    const bool exact = CFNumberGetValue(number, type, value);
    return {value == &narrow ? narrow : value == &wide ? static_cast<double>(wide) : real, exact};
}

TEST(CFNumber, ConversionsTruncateAndReportLoss) {
    constexpr CFNumberType k32 = kCFNumberSInt32Type;
    constexpr CFNumberType k64 = kCFNumberSInt64Type;
    constexpr CFNumberType kReal = kCFNumberDoubleType;
    const uint32_t big = 3000000000U;
    const struct {
        const char* input;
        CFNumberRef number;
        CFNumberType as;
        double value;
        bool exact;
    } rows[] = {
#define ROW(make, as, value, exact) {#make, make, as, value, exact}
        ROW(int32Number(INT32_MIN), k32, INT32_MIN, true),
        ROW(int32Number(INT32_MAX), k32, INT32_MAX, true),
        ROW(int32Number(INT32_MIN), k64, INT32_MIN, true),
        ROW(int32Number(-1), k64, -1, true),
        ROW(int64Number(3000000000LL), k32, -1294967296, false),
        ROW(int64Number(int64_t{INT32_MAX} + 1), k32, INT32_MIN, false),
        ROW(int64Number(int64_t{INT32_MIN} - 1), k32, INT32_MAX, false),
        // An unsigned value stored through SInt32 is sign-extended, without loss.
        ROW(CFNumberCreate(kCFAllocatorDefault, k32, &big), k64, -1294967296, true),
        ROW(CFNumberCreate(kCFAllocatorDefault, k32, &big), k32, -1294967296, true),
        ROW(doubleNumber(2.7), k32, 2, false),
        ROW(doubleNumber(-2.7), k32, -2, false),
        ROW(doubleNumber(3.0), k32, 3, true),
        ROW(doubleNumber(3.0), k64, 3, true),
        ROW(doubleNumber(1e10), k32, INT32_MAX, false),
        ROW(doubleNumber(std::nan("")), k32, 0, false),
        ROW(int64Number(int64_t{1} << 53), kReal, 9007199254740992.0, true),
        ROW(int64Number((int64_t{1} << 53) + 1), kReal, 9007199254740992.0, false),
        ROW(int64Number(INT64_MAX), kReal, 9223372036854775808.0, false),
        ROW(int32Number(-7), kReal, -7.0, true),
#undef ROW
    };
    for (const auto& row : rows) {
        CFHolder number(row.number);
        EXPECT_EQ(readAs(row.number, row.as), std::make_pair(row.value, row.exact)) << row.input;
    }
}

// The store makes an empty field's array from no values at all.
TEST(CFArray, NoValuesMakeAnEmptyArray) {
    CFHolder empty(CFArrayCreate(kCFAllocatorDefault, nullptr, 0, &kCFTypeArrayCallBacks));
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(CFArrayGetCount(static_cast<CFArrayRef>(empty.get())), 0);
}

TEST(CFBoolean, SingletonsHaveTheirOwnTypeAndSurviveExtraReleases) {
    EXPECT_EQ(CFGetTypeID(kCFBooleanTrue), CFBooleanGetTypeID());
    EXPECT_NE(CFBooleanGetTypeID(), CFNumberGetTypeID());
    CFRelease(kCFBooleanTrue);
    CFRelease(kCFBooleanTrue);
    EXPECT_EQ(CFGetTypeID(kCFBooleanTrue), CFBooleanGetTypeID());
}

// Setting the value a dictionary already holds, and only it holds, keeps it alive; a
// second add keeps the first value, a set replaces it, removing all empties it.
TEST(CFDictionary, SetKeepsItsOwnValueAddKeepsSetReplacesRemoveAllEmpties) {
    CFHolder dictionary(newDictionary());
    auto root = (CFMutableDictionaryRef)dictionary.get();
    put(root, "fw_log_path", str("/var/log/ipfw.log"));
    CFHolder path(str("fw_log_path"));
    CFDictionarySetValue(root, path.get(), CFDictionaryGetValue(root, path.get()));
    EXPECT_EQ(CFStringGetLength(static_cast<CFStringRef>(lookup(root, "fw_log_path"))), 17);

    CFHolder key(str("enable_fw"));
    CFDictionaryAddValue(root, key.get(), kCFBooleanTrue);
    CFDictionaryAddValue(root, key.get(), kCFBooleanFalse);
    EXPECT_EQ(CFDictionaryGetValue(root, key.get()), kCFBooleanTrue);
    CFDictionarySetValue(root, key.get(), kCFBooleanFalse);
    EXPECT_EQ(CFDictionaryGetValue(root, key.get()), kCFBooleanFalse);
    CFDictionaryRemoveAllValues(root);
    EXPECT_EQ(lookup(root, "enable_fw"), nullptr);
    EXPECT_EQ(lookup(root, "fw_log_path"), nullptr);
}

// A mutable copy of an immutable document shares its values: changing the copy's keys
// leaves the original as it was, and the two compare equal by content until then.
TEST(CFDictionary, MutableCopyIsShallowAndEqualByContent) {
    CFHolder frozen = parse(plistDocument("<dict><key>rules</key><array><integer>3100</integer>"
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
    EXPECT_EQ(lookup(original, "enable_fw"), nullptr);
}

}  // namespace
}  // namespace qvtest
