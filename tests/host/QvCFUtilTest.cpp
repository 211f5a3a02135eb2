// CoreFoundation string helpers and the type identifiers, including their value while
// other libraries' static objects are being built.
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <string>

#include "QvCFUtil.h"

namespace {

using qor::vela::CFArrayTypeInfo;
using qor::vela::TypeInfo;

// Read during this binary's static initialisation, which runs after libQvUtil's.
const CFTypeID g_boolIdAtStart = TypeInfo<bool>::CF_TYPE_ID;
const CFTypeID g_arrayIdAtStart = CFArrayTypeInfo::CF_TYPE_ID;

TEST(CFTypeIdTest, IdentifiersMatchCoreFoundationAlreadyDuringStaticInitialisation) {
    EXPECT_EQ(g_boolIdAtStart, CFGetTypeID(kCFBooleanTrue));
    EXPECT_EQ(g_arrayIdAtStart, CFArrayGetTypeID());
    EXPECT_NE(g_boolIdAtStart, g_arrayIdAtStart);
    EXPECT_EQ(TypeInfo<bool>::CF_TYPE_ID, CFBooleanGetTypeID());
}

// Releases a string at scope end.
struct StringHolder {
    CFStringRef string;
    ~StringHolder() {
        if (string)
            CFRelease(string);
    }
};

TEST(CFStringUtilTest, RoundTripsUtf8Text) {
    const char* text = "r\xC3\xA8gle \xE2\x82\xAC \xF0\x9F\x94\xA5 ipfw";
    StringHolder holder{QvCreateCFStringFromString(text)};
    ASSERT_NE(holder.string, nullptr);
    char buffer[64];
    ASSERT_TRUE(QvGetCStringFromCFString(holder.string, buffer, sizeof buffer));
    EXPECT_STREQ(buffer, text);
}

TEST(CFStringUtilTest, RefusesNullAndInvalidUtf8) {
    EXPECT_EQ(QvCreateCFStringFromString(nullptr), nullptr);
    EXPECT_EQ(QvCreateCFStringFromString("bad \xC3\x28 byte"), nullptr);
    EXPECT_EQ(QvCreateCFStringFromString("\xED\xA0\x80"), nullptr) << "a lone surrogate";
}

TEST(CFStringUtilTest, CopyNeedsRoomForTextAndNul) {
    StringHolder holder{QvCreateCFStringFromString("abc\xC3\xA9")};  // 5 bytes
    char buffer[8] = "xxxxxxx";
    EXPECT_FALSE(QvGetCStringFromCFString(holder.string, buffer, 5));
    EXPECT_STREQ(buffer, "") << "a failed copy leaves an empty string, not a fragment";
    EXPECT_TRUE(QvGetCStringFromCFString(holder.string, buffer, 6));
    EXPECT_STREQ(buffer, "abc\xC3\xA9");
}

TEST(CFStringUtilTest, CopyRefusesNullsAndNonStrings) {
    StringHolder holder{QvCreateCFStringFromString("x")};
    char buffer[8];
    EXPECT_FALSE(QvGetCStringFromCFString(nullptr, buffer, sizeof buffer));
    EXPECT_FALSE(QvGetCStringFromCFString(holder.string, nullptr, 8));
    EXPECT_FALSE(QvGetCStringFromCFString(holder.string, buffer, 0));
    EXPECT_FALSE(QvGetCStringFromCFString(reinterpret_cast<CFStringRef>(kCFBooleanTrue), buffer,
                                          sizeof buffer));
}

}  // namespace
