#pragma once

// Bitmap images of Core Graphics and the bitmap contexts that draw them, as far as the conversion
// between platform images and Qt images needs them. An image holds a QImage of its pixel size; a
// bitmap context paints with QPainter into the caller's buffer. Include it through
// platformGraphics.h.

#include "ax/CGBase.h"
#include "cf/CFString.h"

#include <QImage>

#include <cstddef>
#include <cstdint>

typedef struct CGImage* CGImageRef;
typedef struct CGColorSpace* CGColorSpaceRef;
typedef struct CGContext* CGContextRef;

typedef std::uint32_t CGBitmapInfo;
enum : CGBitmapInfo {
    kCGImageAlphaNone = 0,
    kCGImageAlphaPremultipliedLast = 1,
    kCGImageAlphaPremultipliedFirst = 2,
    kCGImageAlphaLast = 3,
    kCGImageAlphaFirst = 4,
    kCGImageAlphaNoneSkipLast = 5,
    kCGImageAlphaNoneSkipFirst = 6,
    kCGBitmapAlphaInfoMask = 0x1F,
    kCGBitmapByteOrderDefault = 0,
    kCGBitmapByteOrder32Little = 0x2000,
    kCGBitmapByteOrder32Big = 0x4000,
    kCGBitmapByteOrderMask = 0x7000,
};

extern "C" {

CFTypeID CGImageGetTypeID(void);
// In pixels; 0 for NULL.
std::size_t CGImageGetWidth(CGImageRef image);
std::size_t CGImageGetHeight(CGImageRef image);
std::size_t CGImageGetBytesPerRow(CGImageRef image);
// CFRelease that accepts NULL.
void CGImageRelease(CGImageRef image);

extern const CFStringRef kCGColorSpaceSRGB;
// A new colour space, released by the caller; NULL for a name other than kCGColorSpaceSRGB.
CGColorSpaceRef CGColorSpaceCreateWithName(CFStringRef name);
void CGColorSpaceRelease(CGColorSpaceRef space);

// A new context, released by the caller, that draws into data, which must outlive it. Only the
// 32-bit layouts that QImage shares with Core Graphics are known (8 bits per component, alpha
// or padding first in little-endian order or last in big-endian order); NULL for others, for a
// NULL buffer or colour space and for rows shorter than the width. Its user space has its origin
// at the bottom left, y upward, as in Core Graphics.
CGContextRef CGBitmapContextCreate(void* data, std::size_t width, std::size_t height,
                                   std::size_t bitsPerComponent, std::size_t bytesPerRow,
                                   CGColorSpaceRef space, std::uint32_t bitmapInfo);
void CGContextScaleCTM(CGContextRef context, CGFloat sx, CGFloat sy);
// Draws the image upright into rect, over what is there (source over).
void CGContextDrawImage(CGContextRef context, CGRect rect, CGImageRef image);
void CGContextRelease(CGContextRef context);

} // extern "C"

// What QImage::toCGImage is on Apple systems: a new image, released by the caller, of the
// image's pixels at its pixel size (its device pixel ratio is not an image's business); NULL for
// a null image.
CGImageRef CGImageCreateWithQImage(const QImage& image);
