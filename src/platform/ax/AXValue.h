#pragma once

// Packed values: the points, sizes, rectangles and ranges that attributes such as "AXPosition"
// and "AXSize" carry, as CoreFoundation objects.

#include "AXError.h"
#include "CGBase.h"
#include "cf/CFBase.h"

typedef const struct __AXValue* AXValueRef;

enum AXValueType : UInt32 {
    kAXValueIllegalType = 0,
    kAXValueCGPointType = 1,
    kAXValueCGSizeType = 2,
    kAXValueCGRectType = 3,
    kAXValueCFRangeType = 4,
    kAXValueAXErrorType = 5
};

extern "C" {

CFTypeID AXValueGetTypeID(void);
// valuePtr points at a CGPoint, CGSize, CGRect, CFRange or AXError as theType says. NULL for
// an illegal type or a null pointer.
AXValueRef AXValueCreate(AXValueType theType, const void* valuePtr);
// kAXValueIllegalType for NULL or an object that is not a packed value.
AXValueType AXValueGetType(AXValueRef value);
// False, and nothing stored, when the value is not of theType.
Boolean AXValueGetValue(AXValueRef value, AXValueType theType, void* valuePtr);

} // extern "C"
