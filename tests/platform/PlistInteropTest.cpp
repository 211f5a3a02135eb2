// Round trips through python3's plistlib, an independent reader and writer, of values the
// configuration never holds (tests/firewall ConfigTest covers the configuration document).
#include "CFTestSupport.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace qvtest {
namespace {

// Runs `script` with the given arguments under python3; true when it exits with 0.
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
