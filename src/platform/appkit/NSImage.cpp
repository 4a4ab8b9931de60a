#include "NSImage.h"

#include <QImageReader>

std::unique_ptr<NSImage> NSImage::imageWithContentsOfFile(const QString& path) {
    QImageReader reader(path);
    reader.setDecideFormatFromContent(true);
    QImage read = reader.read();
    if (read.isNull()) {
        return nullptr;
    }
    return std::make_unique<NSImage>(std::move(read));
}

QImage NSImage::drawnAtPixelSize(const QSize& pixelSize) const {
    if (pixelSize.isEmpty()) {
        return QImage();
    }
    if (image.isNull()) {
        QImage nothing(pixelSize, QImage::Format_ARGB32_Premultiplied);
        nothing.fill(Qt::transparent);
        return nothing;
    }
    return image.scaled(pixelSize, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}
