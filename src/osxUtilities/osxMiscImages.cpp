// Images of osxMisc: between Core Graphics images and Qt's.

#include "osxMisc.h"

QImage CGImageToQImage(CGImageRef image) {
    const std::size_t width = CGImageGetWidth(image);
    const std::size_t height = CGImageGetHeight(image);
    QImage result(int(width), int(height), QImage::Format_ARGB32_Premultiplied);
    if (result.isNull())
        return result;
    result.fill(Qt::transparent);
    CGColorSpaceRef colorSpace = CGColorSpaceCreateWithName(kCGColorSpaceSRGB);
    CGContextRef context =
        CGBitmapContextCreate(result.bits(), width, height, 8, std::size_t(result.bytesPerLine()), colorSpace,
                              CGBitmapInfoForQImage(result));
    CGColorSpaceRelease(colorSpace);
    if (!context)
        return result;
    CGContextScaleCTM(context, result.devicePixelRatio(), result.devicePixelRatio());
    CGContextDrawImage(context, CGRectMake(0, 0, CGFloat(width), CGFloat(height)), image);
    CGContextRelease(context);
    return result;
}

uint32_t CGBitmapInfoForQImage(const QImage& image) {
    switch (image.format()) {
    case QImage::Format_RGB32:
        return kCGBitmapByteOrder32Little | kCGImageAlphaNoneSkipFirst;
    case QImage::Format_ARGB32:
        return kCGBitmapByteOrder32Little | kCGImageAlphaFirst;
    case QImage::Format_ARGB32_Premultiplied:
        return kCGBitmapByteOrder32Little | kCGImageAlphaPremultipliedFirst;
    case QImage::Format_RGBX8888:
        return kCGBitmapByteOrder32Big | kCGImageAlphaNoneSkipLast;
    case QImage::Format_RGBA8888:
        return kCGBitmapByteOrder32Big | kCGImageAlphaLast;
    case QImage::Format_RGBA8888_Premultiplied:
        return kCGBitmapByteOrder32Big | kCGImageAlphaPremultipliedLast;
    default:
        return 0;
    }
}

CGImageRef QPixmapToCGImageRef(const QPixmap& pixmap) {
#ifdef __APPLE__
    return pixmap.toImage().toCGImage();
#else
    // As QImage::toCGImage: an image whose format has no Core Graphics layout gives none.
    const QImage image = pixmap.toImage();
    return CGBitmapInfoForQImage(image) ? CGImageCreateWithQImage(image) : nullptr;
#endif
}
