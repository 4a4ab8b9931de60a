#include "CGImage.h"

#include "cf/CFObject_p.h"

#include <QPainter>

#include <climits>
#include <optional>

namespace {

struct ImageBody {
    QImage image;
};

struct ColorSpaceBody {};

struct ContextBody {
    QImage target;
    CGFloat scaleX = 1;
    CGFloat scaleY = 1;
};

CFTypeID imageType() {
    static const CFTypeID type =
        CFRuntime::registerType({"CGImage", &CFRuntime::destroyBody<ImageBody>, nullptr, nullptr, nullptr});
    return type;
}

CFTypeID colorSpaceType() {
    static const CFTypeID type =
        CFRuntime::registerType({"CGColorSpace", nullptr, nullptr, nullptr, nullptr});
    return type;
}

CFTypeID contextType() {
    static const CFTypeID type = CFRuntime::registerType(
        {"CGContext", &CFRuntime::destroyBody<ContextBody>, nullptr, nullptr, nullptr});
    return type;
}

ImageBody* imageBody(CGImageRef image) {
    return CFInternal::bodyIfType<ImageBody>(image, imageType());
}

// The QImage format with the same bytes as a 32-bit Core Graphics layout.
std::optional<QImage::Format> formatOfBitmapInfo(std::uint32_t bitmapInfo) {
    switch (bitmapInfo) {
    case kCGBitmapByteOrder32Little | kCGImageAlphaNoneSkipFirst:
        return QImage::Format_RGB32;
    case kCGBitmapByteOrder32Little | kCGImageAlphaFirst:
        return QImage::Format_ARGB32;
    case kCGBitmapByteOrder32Little | kCGImageAlphaPremultipliedFirst:
        return QImage::Format_ARGB32_Premultiplied;
    case kCGBitmapByteOrder32Big | kCGImageAlphaNoneSkipLast:
        return QImage::Format_RGBX8888;
    case kCGBitmapByteOrder32Big | kCGImageAlphaLast:
        return QImage::Format_RGBA8888;
    case kCGBitmapByteOrder32Big | kCGImageAlphaPremultipliedLast:
        return QImage::Format_RGBA8888_Premultiplied;
    default:
        return std::nullopt;
    }
}

} // namespace

const CFStringRef kCGColorSpaceSRGB = CFSTR("kCGColorSpaceSRGB");

CFTypeID CGImageGetTypeID(void) {
    return imageType();
}

std::size_t CGImageGetWidth(CGImageRef image) {
    const ImageBody* body = imageBody(image);
    return body ? std::size_t(body->image.width()) : 0;
}

std::size_t CGImageGetHeight(CGImageRef image) {
    const ImageBody* body = imageBody(image);
    return body ? std::size_t(body->image.height()) : 0;
}

std::size_t CGImageGetBytesPerRow(CGImageRef image) {
    const ImageBody* body = imageBody(image);
    return body ? std::size_t(body->image.bytesPerLine()) : 0;
}

void CGImageRelease(CGImageRef image) {
    if (image)
        CFRelease(image);
}

CGColorSpaceRef CGColorSpaceCreateWithName(CFStringRef name) {
    if (!name || !CFEqual(name, kCGColorSpaceSRGB))
        return nullptr;
    return static_cast<CGColorSpaceRef>(
        const_cast<void*>(CFRuntime::create<ColorSpaceBody>(colorSpaceType())));
}

void CGColorSpaceRelease(CGColorSpaceRef space) {
    if (space)
        CFRelease(space);
}

CGContextRef CGBitmapContextCreate(void* data, std::size_t width, std::size_t height,
                                   std::size_t bitsPerComponent, std::size_t bytesPerRow,
                                   CGColorSpaceRef space, std::uint32_t bitmapInfo) {
    const auto format = formatOfBitmapInfo(bitmapInfo);
    if (!data || !CFInternal::bodyIfType<ColorSpaceBody>(space, colorSpaceType()) || !format ||
        bitsPerComponent != 8 || bytesPerRow < width * 4 || width > std::size_t(INT_MAX) ||
        height > std::size_t(INT_MAX))
        return nullptr;
    QImage target(static_cast<uchar*>(data), int(width), int(height), qsizetype(bytesPerRow), *format);
    return static_cast<CGContextRef>(
        const_cast<void*>(CFRuntime::create<ContextBody>(contextType(), target)));
}

void CGContextScaleCTM(CGContextRef context, CGFloat sx, CGFloat sy) {
    if (ContextBody* body = CFInternal::bodyIfType<ContextBody>(context, contextType())) {
        body->scaleX *= sx;
        body->scaleY *= sy;
    }
}

void CGContextDrawImage(CGContextRef context, CGRect rect, CGImageRef image) {
    ContextBody* body = CFInternal::bodyIfType<ContextBody>(context, contextType());
    const ImageBody* source = imageBody(image);
    if (!body || !source)
        return;
    // From user space, bottom-left origin, to the buffer's rows, which run top down.
    const QRectF target(rect.origin.x * body->scaleX,
                        body->target.height() - (rect.origin.y + rect.size.height) * body->scaleY,
                        rect.size.width * body->scaleX, rect.size.height * body->scaleY);
    QPainter painter(&body->target);
    painter.drawImage(target, source->image);
}

void CGContextRelease(CGContextRef context) {
    if (context)
        CFRelease(context);
}

CGImageRef CGImageCreateWithQImage(const QImage& image) {
    if (image.isNull())
        return nullptr;
    QImage copy = image.copy();
    copy.setDevicePixelRatio(1);
    return static_cast<CGImageRef>(
        const_cast<void*>(CFRuntime::create<ImageBody>(imageType(), std::move(copy))));
}
