#pragma once

// Numbers and booleans.

#include "CFBase.h"

typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFBoolean* CFBooleanRef;

enum CFNumberType : CFIndex {
    kCFNumberSInt8Type = 1,
    kCFNumberSInt16Type = 2,
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat32Type = 5,
    kCFNumberFloat64Type = 6,
    kCFNumberCharType = 7,
    kCFNumberShortType = 8,
    kCFNumberIntType = 9,
    kCFNumberLongType = 10,
    kCFNumberLongLongType = 11,
    kCFNumberFloatType = 12,
    kCFNumberDoubleType = 13,
    kCFNumberCFIndexType = 14,
    kCFNumberNSIntegerType = 15,
    kCFNumberCGFloatType = 16,
    kCFNumberMaxType = 16
};

extern "C" {

CFTypeID CFBooleanGetTypeID(void);
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
Boolean CFBooleanGetValue(CFBooleanRef boolean);

CFTypeID CFNumberGetTypeID(void);
// As on Apple, a number keeps the storage type of the C type it was made from: one of
// kCFNumberSInt8Type to kCFNumberFloat64Type (an Int becomes SInt32, a CGFloat Float64).
// An unknown type gives NULL.
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType theType, const void* valuePtr);
CFNumberType CFNumberGetType(CFNumberRef number);
CFIndex CFNumberGetByteSize(CFNumberRef number);
Boolean CFNumberIsFloatType(CFNumberRef number);
// Stores the value converted to theType and answers whether the conversion was exact.
// Fractions are truncated toward zero; values out of the target's range are clamped to it
// (NaN to an integer gives 0).
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);
// Compares values, whatever the types; NaN equals NaN and is below every other value.
CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef otherNumber, void* context);

} // extern "C"
