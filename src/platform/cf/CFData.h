#pragma once

// Immutable byte buffers.

#include "CFBase.h"

typedef const struct __CFData* CFDataRef;

extern "C" {

CFTypeID CFDataGetTypeID(void);
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef theData);
CFIndex CFDataGetLength(CFDataRef theData);
const UInt8* CFDataGetBytePtr(CFDataRef theData);
void CFDataGetBytes(CFDataRef theData, CFRange range, UInt8* buffer);

} // extern "C"
