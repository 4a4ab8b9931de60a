#include "osxApplicationIcons.h"

#include "appkit/NSBundle.h"
#include "generalUtilities.h"

#include <QDebug>
#include <QMutex>
#include <QMutexLocker>
#include <QPixmap>

namespace {

QMutex bundlePathMutex;
std::optional<QString> scriptedBundlePath;

// A pixmap made without a GUI application aborts the process, and the tool runs without one.
bool pixmapsCanBeMade() {
    if (guiApplicationIsRunning()) {
        return true;
    }
    qDebug().noquote() << "Error: icons cannot be made without a GUI; the icon is left empty.";
    return false;
}

QIcon transparentPixelIcon() {
    QPixmap pixel(1, 1);
    pixel.fill(Qt::transparent);
    return QIcon(pixel);
}

} // namespace

QIcon convertNSImageToQIcon(const NSImage* image, const QList<int>& sizes) {
    if (!image || !pixmapsCanBeMade()) {
        return QIcon();
    }
    QIcon icon;
    for (const int size : sizes) {
        if (size < 1 || size > kLargestIconSize) {
            qDebug().noquote() << "Warning: icon size out of range, skipped:" << size;
            continue;
        }
        for (const int scale : {1, 2}) {
            const QSize pixels(size * scale, size * scale);
            QPixmap pixmap = QPixmap::fromImage(image->drawnAtPixelSize(pixels))
                                 .scaled(pixels, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
            pixmap.setDevicePixelRatio(scale);
            icon.addPixmap(pixmap);
        }
    }
    return icon;
}

QIcon retrieveMacOSGenericIconWithName(const QString& name, const QList<int>& sizes) {
    if (!pixmapsCanBeMade()) {
        return QIcon();
    }
    const auto bundle = NSBundle::bundleWithPath(genericIconBundlePath());
    const auto image = bundle ? bundle->imageForResource(name) : nullptr;
    return image ? convertNSImageToQIcon(image.get(), sizes) : transparentPixelIcon();
}

QString genericIconBundlePath() {
    QMutexLocker locker(&bundlePathMutex);
    return scriptedBundlePath.value_or(QStringLiteral("/System/Library/CoreServices/CoreTypes.bundle"));
}

void setGenericIconBundlePathForTesting(std::optional<QString> path) {
    QMutexLocker locker(&bundlePathMutex);
    scriptedBundlePath = std::move(path);
}
