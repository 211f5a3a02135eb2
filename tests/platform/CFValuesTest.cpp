// Strings, numbers, booleans and data of the Linux CoreFoundation subset.
#include "CFTestSupport.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace qvtest {
namespace {

TEST(CFString, LengthCountsUtf16CodeUnits) {
    // "é" is one unit, "€" one, U+1F600 two.
    CFHolder text(str("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(CFStringGetLength(static_cast<CFStringRef>(text.get())), 5);
    CFHolder empty(str(""));
    EXPECT_EQ(CFStringGetLength(static_cast<CFStringRef>(empty.get())), 0);
}

TEST(CFString, CStringPtrOnlyForAsciiSoCallersNeedTheCopyPath) {
    CFHolder ascii(str("rules"));
    CFHolder accented(str("r\xC3\xA8gles"));
    const char* direct =
        CFStringGetCStringPtr(static_cast<CFStringRef>(ascii.get()), kCFStringEncodingUTF8);
    ASSERT_NE(direct, nullptr);
    EXPECT_STREQ(direct, "rules");
    EXPECT_EQ(
        CFStringGetCStringPtr(static_cast<CFStringRef>(accented.get()), kCFStringEncodingUTF8),
        nullptr);

    char buffer[16];
    ASSERT_TRUE(CFStringGetCString(static_cast<CFStringRef>(accented.get()), buffer, sizeof buffer,
                                   kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "r\xC3\xA8gles");
}

TEST(CFString, GetCStringNeedsRoomForTheTerminator) {
    CFHolder text(str("abcd"));
    auto string = static_cast<CFStringRef>(text.get());
    char buffer[5];
    EXPECT_FALSE(CFStringGetCString(string, buffer, 4, kCFStringEncodingUTF8));
    EXPECT_TRUE(CFStringGetCString(string, buffer, 5, kCFStringEncodingUTF8));
    EXPECT_STREQ(buffer, "abcd");
    EXPECT_FALSE(CFStringGetCString(string, buffer, 5, 0x0600 /* ASCII */));
}

TEST(CFString, CreationRefusesNullAndMalformedUtf8) {
    EXPECT_EQ(CFStringCreateWithCString(kCFAllocatorDefault, nullptr, kCFStringEncodingUTF8),
              nullptr);
    for (const char* bad : {"\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "a\xFF"}) {
        EXPECT_EQ(str(bad), nullptr) << "accepted malformed UTF-8";
    }
}

TEST(CFString, CompareOrdersByUtf16CodeUnit) {
    auto order = [](const char* a, const char* b, CFStringCompareFlags flags = 0) {
        CFHolder left(str(a));
        CFHolder right(str(b));
        return CFStringCompare(static_cast<CFStringRef>(left.get()),
                               static_cast<CFStringRef>(right.get()), flags);
    };
    EXPECT_EQ(order("Empty", "list"), kCFCompareLessThan);
    EXPECT_EQ(order("list", "Empty"), kCFCompareGreaterThan);
    EXPECT_EQ(order("rule", "rule"), kCFCompareEqualTo);
    EXPECT_EQ(order("rule", "rules"), kCFCompareLessThan);
    // U+1F600 (surrogates D83D DE00) sorts before U+FF01, unlike in UTF-8 byte order.
    EXPECT_EQ(order("\xF0\x9F\x98\x80", "\xEF\xBC\x81"), kCFCompareLessThan);
    EXPECT_EQ(order("ABC", "abc", kCFCompareCaseInsensitive), kCFCompareEqualTo);
}

// Reads `number` as `type`, returning the stored value and the lossless flag.
template <typename T>
std::pair<T, bool> read(CFTypeRef number, CFNumberType type) {
    T value{};
    const bool exact = CFNumberGetValue(static_cast<CFNumberRef>(number), type, &value);
    return {value, exact};
}

TEST(CFNumber, SInt32RoundTripsAtTheEdges) {
    for (int32_t edge : {INT32_MIN, -1, 0, INT32_MAX}) {
        CFHolder number(int32Number(edge));
        EXPECT_EQ(read<int32_t>(number.get(), kCFNumberSInt32Type), std::make_pair(edge, true));
        EXPECT_EQ(read<int64_t>(number.get(), kCFNumberSInt64Type),
                  std::make_pair(int64_t{edge}, true));
    }
}

TEST(CFNumber, NarrowingTo32BitsTruncatesAndReportsLoss) {
    CFHolder big(int64Number(3000000000LL));
    EXPECT_EQ(read<int32_t>(big.get(), kCFNumberSInt32Type), std::make_pair(-1294967296, false));
    CFHolder justAbove(int64Number(int64_t{INT32_MAX} + 1));
    EXPECT_EQ(read<int32_t>(justAbove.get(), kCFNumberSInt32Type),
              std::make_pair(INT32_MIN, false));
    CFHolder justBelow(int64Number(int64_t{INT32_MIN} - 1));
    EXPECT_EQ(read<int32_t>(justBelow.get(), kCFNumberSInt32Type),
              std::make_pair(INT32_MAX, false));
}

TEST(CFNumber, UnsignedStoredThroughSInt32IsSignExtended) {
    const uint32_t unsignedValue = 3000000000U;
    CFHolder number(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &unsignedValue));
    EXPECT_EQ(read<int32_t>(number.get(), kCFNumberSInt32Type), std::make_pair(-1294967296, true));
    EXPECT_EQ(read<int64_t>(number.get(), kCFNumberSInt64Type),
              std::make_pair(int64_t{-1294967296}, true));
    uint32_t back = 0;
    EXPECT_TRUE(
        CFNumberGetValue(static_cast<CFNumberRef>(number.get()), kCFNumberSInt32Type, &back));
    EXPECT_EQ(back, unsignedValue);
}

TEST(CFNumber, DoublesToIntegersTruncateAndReportFractions) {
    CFHolder fraction(doubleNumber(2.7));
    EXPECT_EQ(read<int32_t>(fraction.get(), kCFNumberSInt32Type), std::make_pair(2, false));
    CFHolder negative(doubleNumber(-2.7));
    EXPECT_EQ(read<int32_t>(negative.get(), kCFNumberSInt32Type), std::make_pair(-2, false));
    CFHolder whole(doubleNumber(3.0));
    EXPECT_EQ(read<int32_t>(whole.get(), kCFNumberSInt32Type), std::make_pair(3, true));
    EXPECT_EQ(read<int64_t>(whole.get(), kCFNumberSInt64Type), std::make_pair(int64_t{3}, true));
    CFHolder huge(doubleNumber(1e10));
    EXPECT_EQ(read<int32_t>(huge.get(), kCFNumberSInt32Type), std::make_pair(INT32_MAX, false));
    CFHolder notANumber(doubleNumber(std::nan("")));
    EXPECT_EQ(read<int32_t>(notANumber.get(), kCFNumberSInt32Type), std::make_pair(0, false));
}

TEST(CFNumber, IntegersToDoubleAreExactOnlyWithin53Bits) {
    CFHolder exact(int64Number(int64_t{1} << 53));
    EXPECT_EQ(read<double>(exact.get(), kCFNumberDoubleType),
              std::make_pair(9007199254740992.0, true));
    CFHolder inexact(int64Number((int64_t{1} << 53) + 1));
    EXPECT_FALSE(read<double>(inexact.get(), kCFNumberDoubleType).second);
    CFHolder largest(int64Number(INT64_MAX));
    EXPECT_FALSE(read<double>(largest.get(), kCFNumberDoubleType).second);
    CFHolder small(int32Number(-7));
    EXPECT_EQ(read<double>(small.get(), kCFNumberDoubleType), std::make_pair(-7.0, true));
}

TEST(CFNumber, CreationRefusesNullValue) {
    EXPECT_EQ(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, nullptr), nullptr);
}

TEST(CFBoolean, SingletonsHaveTheirOwnTypeAndSurviveExtraReleases) {
    EXPECT_EQ(CFGetTypeID(kCFBooleanTrue), CFBooleanGetTypeID());
    EXPECT_NE(CFBooleanGetTypeID(), CFNumberGetTypeID());
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
    EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
    CFRelease(kCFBooleanTrue);
    CFRelease(kCFBooleanTrue);
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
}

TEST(CFData, NullDeallocatorLeavesBytesToTheirOwner) {
    UInt8 bytes[] = {1, 2, 3};
    CFHolder data(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, bytes, 3, kCFAllocatorNull));
    EXPECT_EQ(CFDataGetBytePtr(static_cast<CFDataRef>(data.get())), bytes);
    EXPECT_EQ(CFDataGetLength(static_cast<CFDataRef>(data.get())), 3);
    data.reset();
    EXPECT_EQ(bytes[2], 3);  // still ours; AddressSanitizer would flag a free of the stack
}

TEST(CFData, DefaultDeallocatorFreesMallocedBytes) {
    auto* bytes = static_cast<UInt8*>(std::malloc(64));
    std::memset(bytes, 7, 64);
    // Under LeakSanitizer a missing free() fails the run.
    CFHolder data(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, bytes, 64, kCFAllocatorDefault));
    EXPECT_EQ(CFDataGetBytePtr(static_cast<CFDataRef>(data.get()))[63], 7);
}

TEST(CFData, RefusesNegativeLengthAndMissingBytes) {
    UInt8 byte = 0;
    EXPECT_EQ(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, &byte, -1, kCFAllocatorNull),
              nullptr);
    EXPECT_EQ(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault, nullptr, 4, kCFAllocatorNull),
              nullptr);
}

}  // namespace
}  // namespace qvtest
