#pragma once

// Base types of the CoreFoundation subset, and the functions that every object answers.
//
// The code above the platform seam is written against Apple's C API; on Linux that API comes
// from here. Names, types, values and signatures are Apple's, so the same source compiles
// against either. The opaque structure names are Apple's as well: headers that forward-declare
// a reference type themselves (`typedef const struct __CFString* CFStringRef;`, as Qt's own
// headers do) then agree with ours.
//
// Where Apple traps on misuse (NULL objects, objects of the wrong type, indices out of range,
// mutating an immutable object) these functions give the empty answer instead: NULL, 0, false,
// kCFNotFound, or nothing done. docs/platform-corefoundation.md lists each difference.

#include <cstdint>

typedef unsigned char Boolean;
typedef std::uint8_t UInt8;
typedef std::int8_t SInt8;
typedef std::uint16_t UInt16;
typedef std::int16_t SInt16;
typedef std::uint32_t UInt32;
typedef std::int32_t SInt32;
typedef std::uint64_t UInt64;
typedef std::int64_t SInt64;
typedef float Float32;
typedef double Float64;
typedef UInt16 UniChar;
typedef UInt32 UTF32Char;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef signed long CFIndex;

typedef const void* CFTypeRef;
typedef const struct __CFString* CFStringRef;
typedef struct __CFString* CFMutableStringRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFNull* CFNullRef;

enum CFComparisonResult : CFIndex {
    kCFCompareLessThan = -1L,
    kCFCompareEqualTo = 0,
    kCFCompareGreaterThan = 1
};

static const CFIndex kCFNotFound = -1;

typedef struct {
    CFIndex location;
    CFIndex length;
} CFRange;

inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
    CFRange range = {location, length};
    return range;
}

// Every object comes from the one heap; allocator arguments are accepted and ignored.
inline const CFAllocatorRef kCFAllocatorDefault = nullptr;
inline const CFAllocatorRef kCFAllocatorSystemDefault = nullptr;

extern "C" {

CFTypeID CFGetTypeID(CFTypeRef cf);
CFStringRef CFCopyTypeIDDescription(CFTypeID type_id);

// Unlike Apple's, CFRetain(NULL) returns NULL and CFRelease(NULL) does nothing.
CFTypeRef CFRetain(CFTypeRef cf);
void CFRelease(CFTypeRef cf);
CFIndex CFGetRetainCount(CFTypeRef cf);

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);
CFHashCode CFHash(CFTypeRef cf);
CFStringRef CFCopyDescription(CFTypeRef cf);

CFTypeID CFNullGetTypeID(void);
extern const CFNullRef kCFNull;

} // extern "C"
