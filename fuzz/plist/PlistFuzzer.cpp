// Feeds arbitrary bytes to the property-list reader. Whatever it accepts must be valid,
// must be writable as XML, and the written XML must read back into a document that
// writes the same bytes again.
#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <cstring>

#include "FuzzPlist.h"
#include "FuzzWorld.h"

namespace {

CFDataRef writeXml(CFPropertyListRef plist) {
    return CFPropertyListCreateData(kCFAllocatorDefault, plist, kCFPropertyListXMLFormat_v1_0, 0,
                                    nullptr);
}

bool sameBytes(CFDataRef a, CFDataRef b) {
    return CFDataGetLength(a) == CFDataGetLength(b) &&
           std::memcmp(CFDataGetBytePtr(a), CFDataGetBytePtr(b),
                       static_cast<size_t>(CFDataGetLength(a))) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    CFPropertyListRef plist = qvfuzz::ReadPlist(bytes, size);
    if (plist == nullptr) {
        return 0;
    }
    if (!CFPropertyListIsValid(plist, kCFPropertyListBinaryFormat_v1_0)) {
        qvfuzz::Fail("an accepted document is not valid");
    }
    CFDataRef first = writeXml(plist);
    CFRelease(plist);
    if (first == nullptr) {
        qvfuzz::Fail("an accepted document cannot be written");
    }
    CFPropertyListRef again = qvfuzz::ReadPlist(CFDataGetBytePtr(first), CFDataGetLength(first));
    if (again == nullptr) {
        qvfuzz::Fail("written XML does not read back");
    }
    CFDataRef second = writeXml(again);
    CFRelease(again);
    if (second == nullptr || !sameBytes(first, second)) {
        qvfuzz::Fail("written XML reads back into a different document");
    }
    CFRelease(first);
    CFRelease(second);
    return 0;
}
