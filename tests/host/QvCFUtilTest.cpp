// The C-string copy helper and the type identifiers, including their value while other
// libraries' static objects are being built. Making strings only forwards to
// CFStringCreateWithCString, tested in tests/platform.
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cstring>

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

// The copy refuses what is not a string and leaves an empty buffer, not a fragment, when
// the text and its NUL do not fit.
TEST(CFStringUtilTest, CopyNeedsAStringAndRoomForItsNul) {
    StringHolder holder{QvCreateCFStringFromString("abc\xC3\xA9")};  // 5 bytes
    char buffer[8] = "xxxxxxx";
    EXPECT_FALSE(QvGetCStringFromCFString(holder.string, buffer, 5));
    EXPECT_STREQ(buffer, "");
    EXPECT_TRUE(QvGetCStringFromCFString(holder.string, buffer, 6));
    EXPECT_STREQ(buffer, "abc\xC3\xA9");

    EXPECT_FALSE(QvGetCStringFromCFString(nullptr, buffer, sizeof buffer));
    EXPECT_FALSE(QvGetCStringFromCFString(holder.string, nullptr, 8));
    EXPECT_FALSE(QvGetCStringFromCFString(holder.string, buffer, 0));
    std::strcpy(buffer, "xxxxxxx");
    EXPECT_FALSE(QvGetCStringFromCFString(reinterpret_cast<CFStringRef>(kCFBooleanTrue), buffer,
                                          sizeof buffer));
    EXPECT_STREQ(buffer, "");
}

}  // namespace
