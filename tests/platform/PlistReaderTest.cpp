// The property-list reader: XML read as CoreFoundation reads it, libplist's pitfalls in
// binary files corrected, hostile input refused; and round trips through python3's
// plistlib, an independent reader and writer, of values the configuration never holds.
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

// Each value read, as the writer writes it.
TEST(PlistReader, ValuesReadAsCoreFoundationReadsThem) {
    const struct {
        const char* body;
        const char* written;
    } rows[] = {
        {"<integer>010</integer>", "<integer>10</integer>"},
        {"<integer>-007</integer>", "<integer>-7</integer>"},
        {"<integer>000</integer>", "<integer>0</integer>"},
        {"<integer> +42 </integer>", "<integer>42</integer>"},
        {"<integer>0x1F</integer>", "<integer>31</integer>"},
        {"<integer>-9223372036854775808</integer>", "<integer>-9223372036854775808</integer>"},
        {"<integer>9223372036854775807</integer>", "<integer>9223372036854775807</integer>"},
        {"<real>1.5e3</real>", "<real>1500</real>"},
        {"<real> \t+.5</real>", "<real>0.5</real>"},
        {"<real>-INF</real>", "<real>-infinity</real>"},
        {"<real>Infinity</real>", "<real>+infinity</real>"},
        {"<real>NaN</real>", "<real>nan</real>"},
        {"<real><![CDATA[2.5]]></real>", "<real>2.5</real>"},
        {"<real>1e999</real>", "<real>+infinity</real>"},
        // Reals are written with CoreFoundation's spellings.
        {"<real>0</real>", "<real>0.0</real>"},
        {"<real>-0.0</real>", "<real>0.0</real>"},
        {"<real>1e20</real>", "<real>1e+20</real>"},
        {"<real>-1.5e-7</real>", "<real>-1.4999999999999999e-07</real>"},
        {"<real>123456789.125</real>", "<real>123456789.125</real>"},
        {"<data>QUJD\n\tREVG</data>", "<data>\nQUJDREVG\n</data>"},
        {"<data>QQ==</data>", "<data>\nQQ==\n</data>"},
        {"<data>QUI=</data>", "<data>\nQUI=\n</data>"},
        {"<data></data>", "<data>\n</data>"},
        {"<string>&lt;&gt;&amp;&apos;&quot;</string>", "<string>&lt;&gt;&amp;'\"</string>"},
        {"<string>&#65;&#x42;&#x1f525;&#0000065;</string>",
         "<string>AB\xF0\x9F\x94\xA5"
         "A</string>"},
        {"<string>a<![CDATA[<b>&amp;]]>c</string>", "<string>a&lt;b&gt;&amp;amp;c</string>"},
        {"<string> two\r\nlines </string>", "<string> two\r\nlines </string>"},
        {"<string/>", "<string></string>"},
        {"<string a=\"1\"></string >", "<string></string>"},
        {"<key>where a value is due</key>", "<string>where a value is due</string>"},
        {"<plist><string>wrapped</string></plist>", "<string>wrapped</string>"},
        {"<array><string>x</string></array>", "<array>\n\t<string>x</string>\n</array>"},
        // Whole seconds from 2001 must fit 32 bits, as libplist carries them.
        {"<date>1932-12-13T20:45:52Z</date>", "<date>1932-12-13T20:45:52Z</date>"},
        {"<date>2069-01-19T03:14:07Z</date>", "<date>2069-01-19T03:14:07Z</date>"},
    };
    for (const auto& row : rows) {
        CFPropertyListFormat format = kCFPropertyListBinaryFormat_v1_0;
        CFHolder value = parse(plistDocument(row.body), kCFPropertyListMutableContainers, &format);
        ASSERT_NE(value, nullptr) << row.body;
        EXPECT_EQ(format, kCFPropertyListXMLFormat_v1_0) << row.body;
        EXPECT_EQ(toXml(value.get()), plistDocument(std::string(row.written) + "\n")) << row.body;
    }
}

TEST(PlistReader, MalformedValuesFailTheDocument) {
    for (const char* bad :
         {// Dates outside 32-bit seconds from 2001 or malformed.
          "<date>1932-12-13T20:45:51Z</date>", "<date>2100-01-01T00:00:00Z</date>",
          "<date>2020-13-01T00:00:00Z</date>", "<date>yesterday</date>",
          // Integers: no digits, junk, references, markup, beyond int64_t (libplist
          // wrapped these into other numbers), empty.
          "<integer>abc</integer>", "<integer></integer>", "<integer>1 2</integer>",
          "<integer>0x</integer>", "<integer>&#49;</integer>", "<integer>1<!-- -->2</integer>",
          "<integer>9223372036854775808</integer>", "<integer>-9223372036854775809</integer>",
          "<integer>99999999999999999999</integer>", "<integer>0x8000000000000000</integer>",
          "<integer/>",
          // Reals: what atof() read as 0 or as a prefix.
          "<real/>", "<real></real>", "<real>abc</real>", "<real>1.5 </real>", "<real>1.5e</real>",
          "<real>0x1p3</real>", "<real>-nan</real>", "<real> nan</real>", "<real>1<!-- -->5</real>",
          // Data: non-ASCII, markup, empty element.
          "<data>QUJD\xC3\xA9</data>", "<data>QU<!-- -->JD</data>", "<data/>",
          // Booleans and dates hold nothing.
          "<true>x</true>", "<false><!-- --></false>", "<true> </true>",
          "<date>2020-01-01T00:00:00Z<!-- --></date>", "<date/>",
          // Text: libplist read a prefix of a name, an uppercase X, a sign, a lone "&",
          // references to nothing, comments and open sections.
          "<string>&ampx;</string>", "<string>&#X41;</string>", "<string>&#+65;</string>",
          "<string>a&</string>", "<string>&nbsp;</string>", "<string>&#00000065;</string>",
          "<string>&#0;</string>", "<string>&#xD800;</string>", "<string>&#x110000;</string>",
          "<string>a<!-- c -->b</string>", "<string>a<![CDATA[b</string>"}) {
        EXPECT_EQ(parse(plistDocument(bad)), nullptr) << bad;
    }
}

// Parses and writes 0.5 with a decimal-comma locale as the thread's locale, in a child
// process (glibc keeps allocations of a LOCPATH lookup that LeakSanitizer would report),
// and exits 0 when both came out right.
[[noreturn]] void checkRealsUnderCommaLocale(const std::string& localeDir) {
    setenv("LOCPATH", localeDir.c_str(), 1);
    locale_t german = newlocale(LC_ALL_MASK, "de_DE.UTF-8", static_cast<locale_t>(0));
    if (german == static_cast<locale_t>(0)) {
        _exit(2);
    }
    uselocale(german);
    CFHolder half = parse(plistDocument("<real>0.5</real>"));
    double value = 0;
    const bool read = half != nullptr && CFNumberGetValue(static_cast<CFNumberRef>(half.get()),
                                                          kCFNumberDoubleType, &value);
    std::fprintf(stderr, "read %g, wrote %s\n", value, read ? toXml(half.get()).c_str() : "");
    _exit(read && value == 0.5 && toXml(half.get()) == plistDocument("<real>0.5</real>\n") ? 0 : 3);
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

// `depth` arrays, the innermost holding `innermost`.
std::string nestedArrays(size_t depth, const std::string& innermost = "") {
    std::string text;
    for (size_t i = 0; i < depth; ++i) {
        text += "<array>";
    }
    text += innermost;
    for (size_t i = 0; i < depth; ++i) {
        text += "</array>";
    }
    return plistDocument(text);
}

TEST(PlistReader, NestingIsBoundedAt512LevelsAndValuesAt2To20) {
    EXPECT_NE(parse(nestedArrays(512)), nullptr);
    EXPECT_EQ(parse(nestedArrays(513)), nullptr);
    EXPECT_EQ(parse(nestedArrays(512, "<dict/>")), nullptr);
    EXPECT_EQ(parse(nestedArrays(100000)), nullptr);
    // Markup inside comments and CDATA does not count, nor do <plist> wrappers.
    EXPECT_NE(parse(plistDocument("<!-- <array><array> --><array><string><![CDATA[<array>]]>"
                                  "</string></array>")),
              nullptr);
    std::string wrappers;
    std::string closings;
    for (int i = 0; i < 100000; ++i) {
        wrappers += "<plist>";
        closings += "</plist>";
    }
    EXPECT_NE(parse(wrappers + "<array><true/></array>" + closings), nullptr);

    // The root array and 2^20 - 1 values are read; one more is refused.
    std::string many;
    for (size_t i = 0; i < (size_t{1} << 20) - 1; ++i) {
        many += "<true/>";
    }
    EXPECT_NE(parse(plistDocument("<array>" + many + "</array>")), nullptr);
    EXPECT_EQ(parse(plistDocument("<array>" + many + "<true/></array>")), nullptr);
}

TEST(PlistReader, MarkupAroundValuesIsSkipped) {
    const std::string canonical =
        toXml(parse(plistDocument("<dict><key>a</key><array><true/></array></dict>")).get());
    ASSERT_FALSE(canonical.empty());
    for (const std::string& document : std::vector<std::string>{
             "<dict><key>a</key><array><true/></array></dict>",
             "\xEF\xBB\xBF" + plistDocument("<dict><key>a</key><array><true/></array></dict>"),
             "\n\t<dict  ><key\n>a</key ><array><true></true></array\t></dict>",
             "<?xml version=\"1.0\"?><!-- c --><!DOCTYPE plist [ <!ENTITY x \"y\"> %p; "
             "<!-- ] --> <?i?> ]><plist><dict><key>a</key><array><true/></array></dict></plist>",
             "<plist><!-- c --><?i \"?\"?><dict><!----><key>a</key><?i?><array><true/><!-- <x> -->"
             "</array></dict><!-- c --></plist>",
             "<plist><plist><dict><key>a</key><array><plist><true/></plist></array></dict>"
             "</plist></plist>",
             "<dict><key>a</key><array><true/></array></dict> after the element: ignored <x",
             plistDocument("<dict><key>a</key><array><true/></array></dict>") + "trailing \x01",
             "<dict a=\"<b\" c=\"\"><key>a</key><array><true/></array></dict>",
             "<dict><key>a</key><integer>1</integer><key>a</key><array><true/></array></dict>",
         }) {
        EXPECT_EQ(toXml(parse(document).get()), canonical) << document;
    }
}

TEST(PlistReader, BrokenXmlFailsCleanly) {
    const std::string good = plistDocument("<dict><key>a</key><string>b</string></dict>");
    ASSERT_NE(parse(good), nullptr);
    // Cut inside the root, before </plist>, and at no content at all.
    for (size_t cut : {size_t{0}, size_t{10}, good.size() / 2, good.size() - 12, good.size() - 9}) {
        EXPECT_EQ(parse(good.substr(0, cut)), nullptr) << "truncated at " << cut;
    }
    for (const std::string& bad : std::vector<std::string>{
             std::string("not a property list at all"), std::string("\0\0\0\0", 4),
             plistDocument("<string>\xFF\xFE</string>"), plistDocument("<key>\xC0\x80</key>"),
             plistDocument(std::string("<string>a\0b</string>", 20)),
             // Unclosed and mismatched elements; end tags with more than their name.
             "<plist><array><true/></array>", "<array><true/>", "<array></dict>",
             "<dict><key>a</key></key></dict>", "<array></array x>", "<array></array/>",
             "<plist><true/></plst>",
             // A key without value, a value without key, <key/> where a key is due.
             "<dict><key>a</key></dict>", "<dict><key>a</key><!-- c --></dict>",
             "<dict><string>a</string></dict>", "<dict><key/><true/></dict>",
             "<dict><plist><key>a</key><true/></plist></dict>",
             // Text outside elements.
             "x<plist><true/></plist>", "<array>x<true/></array>", "<array><true/>x</array>",
             // <plist> holds exactly one value.
             "<plist></plist>", "<plist/>", "<plist><true/><false/></plist>",
             "<plist><array/><true/></plist>",
             // Unknown, empty and malformed tags.
             "<foo/>", "<>", "<array><x/></array>", "<array><true/ ></array>", "<array",
             "<dict a=\">\"></dict>", "<dict a<b></dict>",
             // Unterminated or misplaced markup.
             "<!-- <true/>", "<?xml <true/>", "<!DOCTYPE plist <true/>", "<![CDATA[x]]><true/>",
             "<!ELEMENT x><true/>", "<array><!DOCTYPE x></array>", "<array><![CDATA[x]]></array>",
             "<array><!---></array>", "<?> <?x?><true/>", "<?x \"?>\"?><true/>",
             "<!DOCTYPE x \">\"><true/>", "<!DOCTYPE x [ ] ><true/>",
             "<!DOCTYPE x [ junk ]><true/>", "<!DOCTYPE x [ <!-- ]> --> ]><true/>"}) {
        EXPECT_EQ(parse(bad), nullptr) << bad;
    }
}

// A binary property list from its objects (each already encoded), the first the root.
std::string binaryPlist(const std::vector<std::string>& objects, uint64_t claimedCount = 0,
                        int referenceWidth = 1) {
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

// Binary files read, as the writer writes them; "" when refused.
TEST(PlistReader, BinaryDocumentsReadOrAreRefused) {
    const std::string good = binaryPlist({arrayOf({1}), "\x09"});
    const auto date = [](const char* bigEndianSeconds) {
        return binaryPlist({"\x33" + std::string(bigEndianSeconds, 8)});
    };
    const struct {
        const char* name;
        std::string file;
        const char* written;
    } rows[] = {
        {"[\"ab\", 7, true]",
         binaryPlist({arrayOf({1, 2, 3}),
                      "\x52"
                      "ab",
                      "\x10\x07", "\x09"}),
         "<array>\n\t<string>ab</string>\n\t<integer>7</integer>\n\t<true/>\n</array>"},
        {"[true]", good, "<array>\n\t<true/>\n</array>"},
        {"cut after the magic", good.substr(0, 8), ""},
        {"cut in the objects", good.substr(0, 20), ""},
        {"cut in the trailer", good.substr(0, good.size() - 1), ""},
        {"array containing itself", binaryPlist({arrayOf({0})}), ""},
        {"reference past the table", binaryPlist({arrayOf({5}), "\x09"}), ""},
        {"object count beyond the file", binaryPlist({arrayOf({1}), "\x09"}, uint64_t{1} << 60),
         ""},
        {"array of 2^62 elements", binaryPlist({std::string("\xAF\x13\x40\0\0\0\0\0\0\0", 10)}),
         ""},
        {"string longer than the file",
         binaryPlist({"\x5F\x10\x7F"
                      "abc"}),
         ""},
        // libplist itself would assert on a key holding U+0000.
        {"key with U+0000",
         binaryPlist({"\xD1\x01\x02",
                      std::string("\x53"
                                  "a\0b",
                                  4),
                      "\x09"}),
         ""},
        {"UTF-16 key U+0000", binaryPlist({"\xD1\x01\x02", std::string("\x61\0\0", 3), "\x09"}),
         ""},
        // Dates: whole seconds from 2001 in 32 bits, past which libplist wraps around.
        {"date 2^31 - 1 s", date("\x41\xDF\xFF\xFF\xFF\xC0\0\0"),
         "<date>2069-01-19T03:14:07Z</date>"},
        {"date -2^31 s", date("\xC1\xE0\0\0\0\0\0\0"), "<date>1932-12-13T20:45:52Z</date>"},
        {"date 2^31 s", date("\x41\xE0\0\0\0\0\0\0"), ""},
        {"date -2^31 - 1 s", date("\xC1\xE0\0\0\0\x20\0\0"), ""},
        {"date 2^32 s", date("\x41\xF0\0\0\0\0\0\0"), ""},
        // Set and UID objects, which the subset does not represent; a non-string key.
        {"set", binaryPlist({"\xC1\x01", "\x09"}), ""},
        {"UID", binaryPlist({std::string("\x80\x00", 2)}), ""},
        {"number key", binaryPlist({"\xD1\x01\x01", "\x10\x01"}), ""},
    };
    for (const auto& row : rows) {
        CFPropertyListFormat format = kCFPropertyListXMLFormat_v1_0;
        CFHolder value = parse(row.file, kCFPropertyListMutableContainers, &format);
        EXPECT_EQ(value == nullptr ? "" : toXml(value.get()),
                  *row.written == '\0' ? "" : plistDocument(std::string(row.written) + "\n"))
            << row.name;
        EXPECT_TRUE(value == nullptr || format == kCFPropertyListBinaryFormat_v1_0) << row.name;
    }
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
        EXPECT_EQ(parse(binaryPlist(nested, 0, 2)) != nullptr, depth == 512) << depth;
    }

    // A shared value reached twice from a shallow tree is fine.
    EXPECT_NE(parse(binaryPlist({arrayOf({1, 1}), arrayOf({2}), "\x08"})), nullptr);
}

bool runPython(const TempDir& dir, const std::string& script, const std::string& arguments) {
    writeFile(dir.file("check.py"), script);
    return std::system(("/usr/bin/python3 " + dir.file("check.py") + " " + arguments).c_str()) == 0;
}

constexpr const char* kWriteEdgeCases = R"PY(
import plistlib, sys, datetime
doc = {
    'big': 2**62, 'negative': -2**40, 'zero_real': 0.0, 'tiny': 5e-324,
    'data': bytes(range(256)) * 3, 'when': datetime.datetime(2021, 6, 30, 23, 59, 58),
    'deep': [[[[{'x': [1.5]}]]]], 'empty_list': [], 'unicode': 'I\u00f1t\u00ebrn\u00e2ti\u00f4n',
}
for name, fmt in (('binary', plistlib.FMT_BINARY), ('xml', plistlib.FMT_XML)):
    with open(sys.argv[1] + '.' + name, 'wb') as f:
        plistlib.dump(doc, f, fmt=fmt, sort_keys=True)
)PY";

TEST(PlistInterop, PlistlibFilesOfEitherFormatReadAlike) {
    TempDir dir;
    ASSERT_TRUE(runPython(dir, kWriteEdgeCases, dir.file("edge")));
    CFHolder binary = parse(readFile(dir.file("edge.binary")));
    CFHolder xml = parse(readFile(dir.file("edge.xml")));
    ASSERT_NE(binary, nullptr);
    ASSERT_NE(xml, nullptr);
    const std::string fromBinary = toXml(binary.get());
    EXPECT_EQ(fromBinary, toXml(xml.get()));
    EXPECT_NE(fromBinary.find("<integer>4611686018427387904</integer>"), std::string::npos);
    EXPECT_NE(fromBinary.find("<date>2021-06-30T23:59:58Z</date>"), std::string::npos);
    EXPECT_NE(fromBinary.find("<real>4.9406564584124654e-324</real>"), std::string::npos);

    // And what we write of it reads back equal in plistlib.
    writeFile(dir.file("ours.plist"), fromBinary);
    EXPECT_TRUE(runPython(dir,
                          "import plistlib, sys\n"
                          "a = plistlib.load(open(sys.argv[1], 'rb'))\n"
                          "b = plistlib.load(open(sys.argv[2], 'rb'))\n"
                          "sys.exit(0 if a == b else 1)\n",
                          dir.file("ours.plist") + " " + dir.file("edge.binary")));
}

}  // namespace
}  // namespace qvtest
