// Round trips through python3's plistlib, an independent reader and writer.
#include "CFTestSupport.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <cstdlib>
#include <string>

namespace qvtest {
namespace {

constexpr const char* kPython = "/usr/bin/python3";

// Runs `script` with the given arguments under python3; true when it exits with 0.
bool runPython(const TempDir& dir, const std::string& script, const std::string& arguments) {
    const std::string scriptPath = dir.file("check.py");
    writeFile(scriptPath, script);
    const std::string command = std::string(kPython) + " " + scriptPath + " " + arguments;
    const int status = std::system(command.c_str());
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// A nested document such as the configuration store writes: rule dictionaries in an
// array under "rules", options with every value kind.
CFHolder configurationDocument() {
    CFHolder root(newDictionary());
    auto dictionary = (CFMutableDictionaryRef)root.get();

    CFMutableDictionaryRef options = newDictionary();
    put(options, "enable_fw", CFRetain(kCFBooleanTrue));
    put(options, "enable_notify", CFRetain(kCFBooleanFalse));
    const uint32_t setNumber = 3000000000U;
    put(options, "default_set_num",
        CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &setNumber));
    put(options, "fw_log_path", str("/var/log/Quorvane/QvrnCore/ipfw.log"));
    put(options, "syslog_conf", str("caf\xC3\xA9 & <syslog> \xF0\x9F\x94\xA5"));
    put(dictionary, "FwOptions", options);

    CFMutableDictionaryRef rule = newDictionary();
    put(rule, "rule_index", int32Number(3100));
    put(rule, "probability", doubleNumber(0.1));
    put(rule, "description", str(""));
    put(rule, "src_ip", newDictionary());
    const void* ports[] = {int32Number(22), int32Number(-1)};
    put(rule, "icmp_type", CFArrayCreate(kCFAllocatorDefault, ports, 2, &kCFTypeArrayCallBacks));
    CFRelease(ports[0]);
    CFRelease(ports[1]);
    const void* rules[] = {rule};
    CFMutableDictionaryRef list = newDictionary();
    put(list, "rules", CFArrayCreate(kCFAllocatorDefault, rules, 1, &kCFTypeArrayCallBacks));
    CFRelease(rule);
    put(dictionary, "FwRuleCfg", list);
    put(dictionary, "FwExceptionRuleCfg", newDictionary());
    return root;
}

constexpr const char* kExpectedInPython = R"PY(
import plistlib, sys
with open(sys.argv[1], 'rb') as f:
    doc = plistlib.load(f)
expected = {
    'FwOptions': {
        'enable_fw': True, 'enable_notify': False, 'default_set_num': -1294967296,
        'fw_log_path': '/var/log/Quorvane/QvrnCore/ipfw.log',
        'syslog_conf': 'caf\u00e9 & <syslog> \U0001F525',
    },
    'FwRuleCfg': {'rules': [{
        'rule_index': 3100, 'probability': 0.1, 'description': '', 'src_ip': {},
        'icmp_type': [22, -1],
    }]},
    'FwExceptionRuleCfg': {},
}
if doc != expected or type(doc['FwRuleCfg']['rules'][0]['probability']) is not float:
    print('plistlib read', doc, file=sys.stderr)
    sys.exit(1)
with open(sys.argv[2], 'wb') as f:
    plistlib.dump(doc, f, fmt=plistlib.FMT_BINARY)
)PY";

TEST(PlistInterop, OurXmlReadsEqualInPlistlibAndItsBinaryReadsEqualHere) {
    TempDir dir;
    CFHolder document = configurationDocument();
    const std::string xml = toXml(document.get());
    ASSERT_FALSE(xml.empty());
    writeFile(dir.file("ours.plist"), xml);

    ASSERT_TRUE(runPython(dir, kExpectedInPython,
                          dir.file("ours.plist") + " " + dir.file("theirs.bplist")));

    CFPropertyListFormat format = kCFPropertyListXMLFormat_v1_0;
    CFHolder back =
        parse(readFile(dir.file("theirs.bplist")), kCFPropertyListMutableContainers, &format);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(format, kCFPropertyListBinaryFormat_v1_0);
    // The writer is canonical (sorted keys, fixed spellings), so equal text means equal
    // documents.
    EXPECT_EQ(toXml(back.get()), xml);
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
