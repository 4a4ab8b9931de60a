#pragma once

// The Core Graphics types that the accessibility and window server functions speak in: geometry
// with CGFloat = double (as on every 64-bit Apple system), window ids and window server results.
// Names, values and layouts are Apple's, so code written against Apple's headers compiles
// unchanged.

#include "cf/CFBase.h"

#include <cstdint>

typedef double CGFloat;

struct CGPoint {
    CGFloat x;
    CGFloat y;
};

struct CGSize {
    CGFloat width;
    CGFloat height;
};

struct CGRect {
    CGPoint origin;
    CGSize size;
};

inline CGPoint CGPointMake(CGFloat x, CGFloat y) {
    return CGPoint{x, y};
}

inline CGSize CGSizeMake(CGFloat width, CGFloat height) {
    return CGSize{width, height};
}

inline CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
    return CGRect{{x, y}, {width, height}};
}

// The window server's name for a window; 0 is never a window.
typedef std::uint32_t CGWindowID;
enum : CGWindowID { kCGNullWindowID = 0 };

enum CGError : std::int32_t {
    kCGErrorSuccess = 0,
    kCGErrorFailure = 1000,
    kCGErrorIllegalArgument = 1001,
    kCGErrorInvalidConnection = 1002,
    kCGErrorInvalidContext = 1003,
    kCGErrorCannotComplete = 1004,
    kCGErrorNotImplemented = 1006,
    kCGErrorRangeCheck = 1007,
    kCGErrorTypeCheck = 1008,
    kCGErrorInvalidOperation = 1010,
    kCGErrorNoneAvailable = 1011
};
