#pragma once

// Images under AppKit's name, as far as application icons need them. On Linux an image holds a
// QImage, read from a file or made in code.

#include <QImage>
#include <QSize>
#include <QString>

#include <memory>

class NSImage {
public:
    explicit NSImage(QImage image) : image(std::move(image)) {}

    // AppKit's initWithContentsOfFile: null when the file is missing or is no image that Qt can
    // read. The format is told by the contents, so a wrong extension does not matter.
    static std::unique_ptr<NSImage> imageWithContentsOfFile(const QString& path);

    // The image drawn into a rect of this many pixels, as AppKit draws an image into a rect:
    // scaled, smoothly, to fill the rect whatever its aspect ratio. An empty image draws nothing,
    // so its result is transparent. Null for an empty size.
    QImage drawnAtPixelSize(const QSize& pixelSize) const;

private:
    const QImage image;
};
