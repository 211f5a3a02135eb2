#include "CFDataObject.h"

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string_view>

__CFData::__CFData(const UInt8* borrowed, CFIndex size, CFAllocatorRef bytesDeallocator)
    : CFObject(qvcf::kDataTypeId, false),
      bytes(borrowed),
      length(size),
      deallocator(bytesDeallocator) {}

__CFData::__CFData(std::vector<UInt8> copy)
    : CFObject(qvcf::kDataTypeId, false),
      owned(std::move(copy)),
      bytes(owned.data()),
      length(static_cast<CFIndex>(owned.size())),
      deallocator(kCFAllocatorNull) {}

__CFData::__CFData(qvcf::PagedString text)
    : CFObject(qvcf::kDataTypeId, false),
      ownedText(std::move(text)),
      bytes(reinterpret_cast<const UInt8*>(ownedText.data())),
      length(static_cast<CFIndex>(ownedText.size())),
      deallocator(kCFAllocatorNull) {}

__CFData::~__CFData() {
    // The default allocator is malloc's, so the default deallocator is free().
    if (deallocator == kCFAllocatorDefault) {
        std::free(const_cast<UInt8*>(bytes));
    }
}

bool __CFData::equals(const __CFData& other) const {
    return length == other.length &&
           (length == 0 || std::memcmp(bytes, other.bytes, static_cast<size_t>(length)) == 0);
}

CFHashCode __CFData::hash() const {
    // Like CoreFoundation, only a prefix counts, so large blobs hash quickly.
    const size_t prefix = length < 80 ? static_cast<size_t>(length) : 80;
    return std::hash<std::string_view>{}(
        std::string_view(reinterpret_cast<const char*>(bytes), prefix));
}

CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef, const UInt8* bytes, CFIndex length,
                                      CFAllocatorRef bytesDeallocator) {
    if (length < 0 || (bytes == nullptr && length > 0)) {
        return nullptr;
    }
    return new __CFData(bytes, length, bytesDeallocator);
}

const UInt8* CFDataGetBytePtr(CFDataRef theData) {
    return qvcf::checked<__CFData>(theData, qvcf::kDataTypeId, "CFDataGetBytePtr")->bytes;
}

CFIndex CFDataGetLength(CFDataRef theData) {
    return qvcf::checked<__CFData>(theData, qvcf::kDataTypeId, "CFDataGetLength")->length;
}
