// Immutable byte buffers.
#pragma once

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFData* CFDataRef;

// Wraps `bytes` without copying. With kCFAllocatorNull as deallocator the caller keeps
// ownership of the bytes; with kCFAllocatorDefault they are free()d at the last release.
CF_EXPORT CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, const UInt8* bytes,
                                                CFIndex length, CFAllocatorRef bytesDeallocator);

CF_EXPORT const UInt8* CFDataGetBytePtr(CFDataRef theData);
CF_EXPORT CFIndex CFDataGetLength(CFDataRef theData);

CF_EXTERN_C_END
