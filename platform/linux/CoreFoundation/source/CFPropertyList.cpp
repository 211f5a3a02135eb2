#include "CFDataObject.h"
#include "CFErrorObject.h"
#include "PlistReader.h"
#include "PlistValidator.h"
#include "XmlPlistWriter.h"

#include <CoreFoundation/CFPropertyList.h>

#include <string>
#include <utility>

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef data,
                                               CFOptionFlags options, CFPropertyListFormat* format,
                                               CFErrorRef* error) {
    if (data == nullptr) {
        qvcf::reportError(error, qvcf::kPropertyListReadCorruptError, "no data");
        return nullptr;
    }
    const auto* bytes =
        qvcf::checked<__CFData>(data, qvcf::kDataTypeId, "CFPropertyListCreateWithData");
    CFPropertyListFormat readFormat = kCFPropertyListXMLFormat_v1_0;
    const char* problem = "";
    CFPropertyListRef result = qvcf::PlistReader::read(
        bytes->bytes, static_cast<size_t>(bytes->length),
        (options & kCFPropertyListMutableContainers) != 0, readFormat, problem);
    if (result == nullptr) {
        qvcf::reportError(error, qvcf::kPropertyListReadCorruptError, problem);
        return nullptr;
    }
    if (format != nullptr) {
        *format = readFormat;
    }
    // A document read is usually written back later, changed a little.
    if (readFormat == kCFPropertyListXMLFormat_v1_0) {
        qvcf::XmlPlistWriter::expect(static_cast<size_t>(bytes->length));
    }
    return result;
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef, CFPropertyListRef propertyList,
                                   CFPropertyListFormat format, CFOptionFlags, CFErrorRef* error) {
    // Only XML is written; binary files are read but never produced here.
    if (format != kCFPropertyListXMLFormat_v1_0) {
        qvcf::reportError(error, qvcf::kPropertyListWriteInvalidError, "unsupported format");
        return nullptr;
    }
    if (!qvcf::PlistValidator::isValid(propertyList, format)) {
        qvcf::reportError(error, qvcf::kPropertyListWriteInvalidError, "invalid property list");
        return nullptr;
    }
    qvcf::PagedString text;
    qvcf::XmlPlistWriter::write(propertyList, text);
    return new __CFData(std::move(text));
}

Boolean CFPropertyListIsValid(CFPropertyListRef plist, CFPropertyListFormat format) {
    return qvcf::PlistValidator::isValid(plist, format);
}
