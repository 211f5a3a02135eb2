// The property-list reader: libplist's pitfalls corrected, hostile input refused.
#include "CFTestSupport.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <locale.h>
#include <unistd.h>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace qvtest {
namespace {

int64_t integerOf(CFTypeRef number) {
    int64_t value = 0;
    EXPECT_EQ(CFGetTypeID(number), CFNumberGetTypeID());
    EXPECT_TRUE(CFNumberGetValue(static_cast<CFNumberRef>(number), kCFNumberSInt64Type, &value));
    return value;
}

std::vector<int64_t> integersOf(const std::string& body) {
    CFHolder list = parse(xmlDocument("<array>" + body + "</array>"));
    std::vector<int64_t> values;
    if (list == nullptr) {
        return values;
    }
    auto array = static_cast<CFArrayRef>(list.get());
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        values.push_back(integerOf(CFArrayGetValueAtIndex(array, i)));
    }
    return values;
}

TEST(PlistReader, IntegersReadAsCoreFoundationReadsThem) {
    EXPECT_EQ(integersOf("<integer>010</integer><integer>-007</integer><integer>0</integer>"
                         "<integer>000</integer><integer> +42 </integer><integer>0x1F</integer>"),
              (std::vector<int64_t>{10, -7, 0, 0, 42, 31}));
    EXPECT_EQ(integersOf("<integer>-9223372036854775808</integer>"
                         "<integer>9223372036854775807</integer><integer>-1</integer>"),
              (std::vector<int64_t>{INT64_MIN, INT64_MAX, -1}));
}

TEST(PlistReader, MalformedIntegersFailTheDocument) {
    for (const char* bad :
         {"<integer>abc</integer>", "<integer></integer>", "<integer>1 2</integer>",
          "<integer>0x</integer>", "<integer>&#49;</integer>"}) {
        EXPECT_EQ(parse(xmlDocument(bad)), nullptr) << bad;
    }
}

TEST(PlistReader, ByteOrderMarkIsSkippedAndFormatReported) {
    CFPropertyListFormat format = kCFPropertyListBinaryFormat_v1_0;
    CFHolder value =
        parse("\xEF\xBB\xBF" + xmlDocument("<true/>\n"), kCFPropertyListMutableContainers, &format);
    EXPECT_EQ(value.get(), kCFBooleanTrue);
    EXPECT_EQ(format, kCFPropertyListXMLFormat_v1_0);
}

TEST(PlistReader, MutableContainersOptionMakesEveryContainerMutable) {
    CFHolder root = parse(xmlDocument("<dict><key>list</key><array><dict/></array></dict>"));
    ASSERT_NE(root, nullptr);
    auto dictionary = (CFMutableDictionaryRef)root.get();
    put(dictionary, "added", str("ok"));  // would abort on an immutable dictionary
    auto list = static_cast<CFArrayRef>(lookup(dictionary, "list"));
    auto inner = (CFMutableDictionaryRef)CFArrayGetValueAtIndex(list, 0);
    put(inner, "deep", str("ok"));
    EXPECT_EQ(CFDictionaryGetCount(inner), 1);
}

TEST(PlistReader, WrongRootTypesAreRepresented) {
    CFHolder array = parse(xmlDocument("<array><string>x</string></array>"));
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(CFGetTypeID(array.get()), CFArrayGetTypeID());
    CFHolder text = parse(xmlDocument("<string>just text</string>"));
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(CFGetTypeID(text.get()), CFStringGetTypeID());
}

// Parses and writes 0.5 with a decimal-comma locale as the thread's locale, in a child
// process (glibc keeps allocations of a LOCPATH lookup that LeakSanitizer would report),
// and exits 0 when both came out right.
[[noreturn]] void checkRealsUnderCommaLocale(const std::string& localeDir) {
    setenv("LOCPATH", localeDir.c_str(), 1);
    locale_t german = newlocale(LC_ALL_MASK, "de_DE.UTF-8", static_cast<locale_t>(0));
    if (german == static_cast<locale_t>(0)) {
        std::fprintf(stderr, "no de_DE locale\n");
        _exit(2);
    }
    uselocale(german);
    CFHolder half = parse(xmlDocument("<real>0.5</real>"));
    double value = 0;
    const bool read = half != nullptr && CFNumberGetValue(static_cast<CFNumberRef>(half.get()),
                                                          kCFNumberDoubleType, &value);
    if (!read || value != 0.5) {
        std::fprintf(stderr, "read %g\n", value);
        _exit(3);
    }
    if (toXml(half.get()) != xmlDocument("<real>0.5</real>\n")) {
        std::fprintf(stderr, "wrote %s\n", toXml(half.get()).c_str());
        _exit(4);
    }
    _exit(0);
}

TEST(PlistReaderDeathTest, RealsIgnoreTheThreadLocale) {
    TempDir dir;
    const std::string command =
        "localedef -i de_DE -f UTF-8 " + dir.file("de_DE.UTF-8") + " >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) {
        GTEST_SKIP() << "localedef cannot build de_DE here";
    }
    EXPECT_EXIT(checkRealsUnderCommaLocale(dir.path()), ::testing::ExitedWithCode(0), "");
}

std::string nestedArrays(size_t depth) {
    std::string text;
    for (size_t i = 0; i < depth; ++i) {
        text += "<array>";
    }
    for (size_t i = 0; i < depth; ++i) {
        text += "</array>";
    }
    return xmlDocument(text);
}

TEST(PlistReader, NestingIsBoundedAt512Levels) {
    EXPECT_NE(parse(nestedArrays(512)), nullptr);
    EXPECT_EQ(parse(nestedArrays(513)), nullptr);
    EXPECT_EQ(parse(nestedArrays(100000)), nullptr);
    // Markup inside comments and CDATA does not count.
    EXPECT_NE(parse(xmlDocument("<!-- <array><array> --><array><string><![CDATA[<array>]]>"
                                "</string></array>")),
              nullptr);
}

TEST(PlistReader, BrokenXmlFailsCleanly) {
    const std::string good = xmlDocument("<dict><key>a</key><string>b</string></dict>");
    ASSERT_NE(parse(good), nullptr);
    for (size_t cut : {size_t{0}, size_t{10}, good.size() / 2, good.size() - 12}) {
        EXPECT_EQ(parse(good.substr(0, cut)), nullptr) << "truncated at " << cut;
    }
    EXPECT_EQ(parse("not a property list at all"), nullptr);
    EXPECT_EQ(parse(xmlDocument("<string>\xFF\xFE</string>")), nullptr);
    EXPECT_EQ(parse(std::string("\0\0\0\0", 4)), nullptr);
    EXPECT_EQ(parse(xmlDocument(std::string("<string>a\0b</string>", 20))), nullptr);
}

TEST(PlistReader, DatesOutsideWhatLibplistCarriesAreRefused) {
    // Whole seconds from 2001 must fit 32 bits: 1932-12-13T20:45:52Z .. 2069-01-19T03:14:07Z.
    EXPECT_NE(parse(xmlDocument("<date>1932-12-13T20:45:52Z</date>")), nullptr);
    EXPECT_NE(parse(xmlDocument("<date>2069-01-19T03:14:07Z</date>")), nullptr);
    EXPECT_EQ(parse(xmlDocument("<date>1932-12-13T20:45:51Z</date>")), nullptr);
    EXPECT_EQ(parse(xmlDocument("<date>2100-01-01T00:00:00Z</date>")), nullptr);
    EXPECT_EQ(parse(xmlDocument("<date>2020-13-01T00:00:00Z</date>")), nullptr);
    EXPECT_EQ(parse(xmlDocument("<date>yesterday</date>")), nullptr);
}

TEST(PlistReader, FailureHandsOutAReleasableError) {
    const std::string junk = "<plist><dict><key>";
    CFHolder data(CFDataCreateWithBytesNoCopy(kCFAllocatorDefault,
                                              reinterpret_cast<const UInt8*>(junk.data()),
                                              static_cast<CFIndex>(junk.size()), kCFAllocatorNull));
    CFErrorRef error = nullptr;
    EXPECT_EQ(CFPropertyListCreateWithData(kCFAllocatorDefault, static_cast<CFDataRef>(data.get()),
                                           0, nullptr, &error),
              nullptr);
    ASSERT_NE(error, nullptr);
    CFRelease(error);
}

// A binary property list from its objects (each already encoded) and a root index.
std::string binaryPlist(const std::vector<std::string>& objects, uint64_t root = 0,
                        uint64_t claimedCount = 0, int referenceWidth = 1) {
    std::string file = "bplist00";
    std::vector<uint64_t> offsets;
    for (const std::string& object : objects) {
        offsets.push_back(file.size());
        file += object;
    }
    const uint64_t tableOffset = file.size();
    for (uint64_t offset : offsets) {
        file += static_cast<char>(offset >> 8);
        file += static_cast<char>(offset & 0xFF);
    }
    std::string trailer(32, '\0');
    trailer[6] = 2;  // offset width
    trailer[7] = static_cast<char>(referenceWidth);
    const uint64_t count = claimedCount != 0 ? claimedCount : objects.size();
    for (int i = 0; i < 8; ++i) {
        trailer[8 + i] = static_cast<char>(count >> (56 - 8 * i));
        trailer[16 + i] = static_cast<char>(root >> (56 - 8 * i));
        trailer[24 + i] = static_cast<char>(tableOffset >> (56 - 8 * i));
    }
    return file + trailer;
}

std::string arrayOf(std::vector<uint16_t> references, int referenceWidth = 1) {
    std::string object(1, static_cast<char>(0xA0 | references.size()));
    for (uint16_t reference : references) {
        if (referenceWidth == 2) {
            object += static_cast<char>(reference >> 8);
        }
        object += static_cast<char>(reference & 0xFF);
    }
    return object;
}

TEST(PlistReader, BinaryDocumentsAreRead) {
    // ["ab", 7, true]
    CFPropertyListFormat format = kCFPropertyListXMLFormat_v1_0;
    CFHolder list = parse(binaryPlist({arrayOf({1, 2, 3}),
                                       "\x52"
                                       "ab",
                                       "\x10\x07", "\x09"}),
                          kCFPropertyListMutableContainers, &format);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(format, kCFPropertyListBinaryFormat_v1_0);
    EXPECT_EQ(toXml(list.get()),
              xmlDocument("<array>\n\t<string>ab</string>\n\t<integer>7</integer>\n\t<true/>\n"
                          "</array>\n"));
}

TEST(PlistReader, HostileBinaryDocumentsAreRefused) {
    const std::string good = binaryPlist({arrayOf({1}), "\x09"});
    ASSERT_NE(parse(good), nullptr);
    for (size_t cut : {size_t{8}, size_t{20}, good.size() - 1}) {
        EXPECT_EQ(parse(good.substr(0, cut)), nullptr) << "truncated at " << cut;
    }
    // An array that contains itself.
    EXPECT_EQ(parse(binaryPlist({arrayOf({0})})), nullptr);
    // A reference past the object table, and an object count far beyond the file.
    EXPECT_EQ(parse(binaryPlist({arrayOf({5}), "\x09"})), nullptr);
    EXPECT_EQ(parse(binaryPlist({arrayOf({1}), "\x09"}, 0, uint64_t{1} << 60)), nullptr);
    // An array claiming 2^62 elements, and a string claiming more bytes than exist.
    EXPECT_EQ(parse(binaryPlist({std::string("\xAF\x13\x40\0\0\0\0\0\0\0", 10)})), nullptr);
    EXPECT_EQ(parse(binaryPlist({"\x5F\x10\x7F"
                                 "abc"})),
              nullptr);
    // A key holding U+0000, on which libplist itself would assert.
    EXPECT_EQ(parse(binaryPlist({"\xD1\x01\x02",
                                 std::string("\x53"
                                             "a\0b",
                                             4),
                                 "\x09"})),
              nullptr);
    EXPECT_EQ(parse(binaryPlist({"\xD1\x01\x02", std::string("\x61\0\0", 3), "\x09"})), nullptr);
    // A date past 2069, which libplist would wrap around.
    EXPECT_EQ(parse(binaryPlist({std::string("\x33\x41\xF0\0\0\0\0\0\0", 9)})), nullptr);
    EXPECT_NE(parse(binaryPlist({std::string("\x33\x41\xC0\0\0\0\0\0\0", 9)})), nullptr);
    // Set and UID objects, which the subset does not represent; a non-string key.
    EXPECT_EQ(parse(binaryPlist({"\xC1\x01", "\x09"})), nullptr);
    EXPECT_EQ(parse(binaryPlist({std::string("\x80\x00", 2)})), nullptr);
    EXPECT_EQ(parse(binaryPlist({"\xD1\x01\x01", "\x10\x01"})), nullptr);
}

TEST(PlistReader, BinaryNestingAndSharingAreBounded) {
    // Each array holds the next one twice: 40 levels would expand to 2^40 values.
    std::vector<std::string> chain;
    for (uint8_t i = 0; i < 40; ++i) {
        chain.push_back(arrayOf({static_cast<uint16_t>(i + 1), static_cast<uint16_t>(i + 1)}));
    }
    chain.push_back("\x09");
    EXPECT_EQ(parse(binaryPlist(chain)), nullptr);

    // 512 nested arrays are read, 513 are not.
    for (uint16_t depth : {512, 513}) {
        std::vector<std::string> nested;
        for (uint16_t i = 0; i < depth; ++i) {
            nested.push_back(i + 1 < depth ? arrayOf({static_cast<uint16_t>(i + 1)}, 2)
                                           : arrayOf({}, 2));
        }
        EXPECT_EQ(parse(binaryPlist(nested, 0, 0, 2)) != nullptr, depth == 512) << depth;
    }

    // A shared value reached twice from a shallow tree is fine.
    EXPECT_NE(parse(binaryPlist({arrayOf({1, 1}), arrayOf({2}), "\x08"})), nullptr);
}

}  // namespace
}  // namespace qvtest
