#include "NSBundle.h"

#include "atspi/LiveProcesses.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QXmlStreamReader>

namespace {

// The string value of a key of the property list's top dictionary; empty when there is none.
QString topLevelString(QIODevice* plist, const QString& key) {
    QXmlStreamReader xml(plist);
    if (!xml.readNextStartElement() || xml.name() != QLatin1String("plist") || !xml.readNextStartElement() ||
        xml.name() != QLatin1String("dict")) {
        return QString();
    }
    // The dictionary's children alternate: a key, then its value.
    while (xml.readNextStartElement()) {
        const bool matched = xml.name() == QLatin1String("key") && xml.readElementText() == key;
        if (!xml.readNextStartElement()) {
            break;
        }
        if (matched) {
            return xml.name() == QLatin1String("string") ? xml.readElementText() : QString();
        }
        xml.skipCurrentElement();
    }
    return QString();
}

} // namespace

std::unique_ptr<NSBundle> NSBundle::bundleWithPath(const QString& path) {
    const QFileInfo info(path);
    if (path.isEmpty() || !(info.isDir() || (info.isFile() && info.isExecutable()))) {
        return nullptr;
    }
    return std::unique_ptr<NSBundle>(new NSBundle(path));
}

QString NSBundle::bundleIdentifier() const {
    const QFileInfo info(path);
    if (info.isFile()) {
        const QString id = desktopEntryForProgram(info.fileName()).id;
        return id.isEmpty() ? info.fileName() : id;
    }
    const QDir dir(path);
    for (const QString& place : {QStringLiteral("Contents/Info.plist"), QStringLiteral("Info.plist")}) {
        QFile plist(dir.filePath(place));
        if (plist.open(QIODevice::ReadOnly)) {
            return topLevelString(&plist, QStringLiteral("CFBundleIdentifier"));
        }
    }
    return QString();
}

std::unique_ptr<NSImage> NSBundle::imageForResource(const QString& name) const {
    if (name.isEmpty() || name.contains(QLatin1Char('/'))) {
        return nullptr;
    }
    QStringList candidates{name, name + QStringLiteral(".png")};
    for (const QByteArray& format : QImageReader::supportedImageFormats()) {
        candidates.append(name + QLatin1Char('.') + QString::fromLatin1(format));
    }
    const QDir dir(path);
    for (const QString& place : {QStringLiteral("Contents/Resources/"), QString()}) {
        for (const QString& candidate : std::as_const(candidates)) {
            const QString file = dir.filePath(place + candidate);
            if (QFileInfo(file).isFile()) {
                return NSImage::imageWithContentsOfFile(file);
            }
        }
    }
    return nullptr;
}
