// The XML writer: bytes as macOS CoreFoundation writes them.
#include "CFTestSupport.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qvtest {
namespace {

CFHolder array(std::vector<CFTypeRef> values) {
    CFHolder result(CFArrayCreate(kCFAllocatorDefault, values.data(),
                                  static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
    for (CFTypeRef value : values) {
        if (CFGetTypeID(value) != CFBooleanGetTypeID()) {
            CFRelease(value);
        }
    }
    return result;
}

// Escapes, strings, dates and the other numbers are written as the reader's tests expect
// them (ValuesReadAsCoreFoundationReadsThem).
TEST(PlistWriter, ReferenceDocumentByteForByte) {
    CFHolder root(newDictionary());
    auto dictionary = (CFMutableDictionaryRef)root.get();
    CFMutableDictionaryRef zeta = newDictionary();
    put(zeta, "b", int32Number(1));
    put(zeta, "a", int32Number(-2));
    put(dictionary, "zeta", zeta);
    // An unsigned value stored through SInt32 is written signed.
    const uint32_t unsignedValue = 3000000000U;
    CFHolder list = array({int64Number(3000000000LL),
                           CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &unsignedValue),
                           doubleNumber(1.0), doubleNumber(0.1), kCFBooleanTrue, kCFBooleanFalse});
    put(dictionary, "list", CFRetain(list.get()));
    put(dictionary, "Empty", newDictionary());
    // Keys sort by UTF-16 code unit: U+1F600 (D83D DE00) before U+FF01, a prefix first.
    for (const char* key : {"\xEF\xBC\x81", "\xF0\x9F\x98\x80", "rules", "rule"}) {
        put(dictionary, key, CFRetain(kCFBooleanTrue));
    }

    EXPECT_EQ(toXml(root.get()), plistDocument(R"(<dict>
	<key>Empty</key>
	<dict/>
	<key>list</key>
	<array>
		<integer>3000000000</integer>
		<integer>-1294967296</integer>
		<real>1</real>
		<real>0.10000000000000001</real>
		<true/>
		<false/>
	</array>
	<key>rule</key>
	<true/>
	<key>rules</key>
	<true/>
	<key>zeta</key>
	<dict>
		<key>a</key>
		<integer>-2</integer>
		<key>b</key>
		<integer>1</integer>
	</dict>
	<key>😀</key>
	<true/>
	<key>！</key>
	<true/>
</dict>
)"));
}

TEST(PlistWriter, DataLinesShrinkWithIndentationUpToEightTabs) {
    // Data can only come from a file, so it is read first.
    const std::string bytes64(64, 'x');
    const std::string base64 =
        "eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eA==";
    std::string nested = "<data>" + base64 + "</data>\n";
    for (int level = 0; level < 10; ++level) {
        nested = "<array>\n" + nested + "</array>\n";
    }
    CFHolder document = parse(plistDocument(nested));
    ASSERT_NE(document, nullptr);
    const std::string xml = toXml(document.get());
    // The data element sits at level 10: lines indented 8 tabs and 76 - 64 = 12 long.
    std::string expected = std::string(10, '\t') + "<data>\n";
    for (size_t pos = 0; pos < base64.size(); pos += 12) {
        expected += std::string(8, '\t') + base64.substr(pos, 12) + "\n";
    }
    expected += std::string(10, '\t') + "</data>\n";
    EXPECT_NE(xml.find(expected), std::string::npos) << xml;

    CFHolder shallow = parse(plistDocument("<data>" + base64 + "</data>\n"));
    EXPECT_EQ(toXml(shallow.get()), plistDocument("<data>\n" + base64.substr(0, 76) + "\n" +
                                                  base64.substr(76) + "\n</data>\n"));
}

// The store's validity check before writing: a dictionary that contains itself.
TEST(PlistWriter, InvalidDocumentsProduceNothing) {
    CFHolder loop(newDictionary());
    auto root = (CFMutableDictionaryRef)loop.get();
    CFHolder key(str("self"));
    CFDictionaryAddValue(root, key.get(), root);
    EXPECT_FALSE(CFPropertyListIsValid(root, kCFPropertyListBinaryFormat_v1_0));
    EXPECT_EQ(toXml(root), "");
    CFDictionaryRemoveAllValues(root);  // break the cycle so that it can be freed
}

// An immutable dictionary keeps its text from the first writing for the next ones, at
// its own depth only. Shared, it is valid and written wherever it is held; only XML is
// written.
TEST(PlistWriter, KeptTextIsExactAndPerDepthAndSharedValuesAreWrittenTwice) {
    const std::string inner = "<dict><key>b</key><array><dict/><integer>1</integer></array></dict>";
    CFHolder frozen = parse(plistDocument(inner), kCFPropertyListImmutable);
    CFHolder fresh = parse(plistDocument(inner));
    ASSERT_NE(frozen, nullptr);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(toXml(frozen.get()), toXml(fresh.get())) << "writing " << round;
    }
    CFHolder outer(newDictionary());
    put((CFMutableDictionaryRef)outer.get(), "a", CFRetain(frozen.get()));
    put((CFMutableDictionaryRef)outer.get(), "c", CFRetain(frozen.get()));
    EXPECT_TRUE(CFPropertyListIsValid(outer.get(), kCFPropertyListBinaryFormat_v1_0));
    CFHolder nested =
        parse(plistDocument("<dict><key>a</key>" + inner + "<key>c</key>" + inner + "</dict>"));
    EXPECT_EQ(toXml(outer.get()), toXml(nested.get()));

    CFErrorRef error = nullptr;
    EXPECT_EQ(CFPropertyListCreateData(kCFAllocatorDefault, outer.get(),
                                       kCFPropertyListBinaryFormat_v1_0, 0, &error),
              nullptr);
    ASSERT_NE(error, nullptr);
    CFRelease(error);
}

// Documents from 4 MiB up are written into pages kept from one document to the next:
// growing, shrinking and growing again must give each document exactly its own bytes,
// never a rest of the one written before into the same pages.
TEST(PlistWriter, LargeDocumentsOfChangingSizeKeepTheirOwnBytes) {
    for (const size_t megabytes : {5, 9, 5, 12}) {
        SCOPED_TRACE(megabytes);
        const std::string text(megabytes << 20, static_cast<char>('a' + megabytes));
        CFHolder dictionary(newDictionary());
        put((CFMutableDictionaryRef)dictionary.get(), "fill", str(text.c_str()));
        const std::string written = toXml(dictionary.get());
        EXPECT_EQ(written, plistDocument("<dict>\n\t<key>fill</key>\n\t<string>" + text +
                                         "</string>\n</dict>\n"));
    }
}

}  // namespace
}  // namespace qvtest
