#include "NSBundle.h"

#include "DesktopEntries.h"

#include <QCoreApplication>
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

// The info dictionary of a Linux application, from its desktop entry.
QString infoOfDesktopEntry(const DesktopEntry& entry, const QString& key) {
    if (key == QLatin1String("CFBundleIdentifier"))
        return entry.id;
    if (key == QLatin1String("CFBundleName"))
        return entry.name;
    if (key == QLatin1String("CFBundleExecutable"))
        return entry.program;
    return QString();
}

} // namespace

std::unique_ptr<NSBundle> NSBundle::bundleWithPath(const QString& path) {
    const QFileInfo info(path);
    const bool application = info.isFile() && (info.isExecutable() || desktopEntryAtPath(path));
    if (path.isEmpty() || !(info.isDir() || application)) {
        return nullptr;
    }
    return std::unique_ptr<NSBundle>(new NSBundle(path));
}

NSBundle* NSBundle::mainBundle() {
    static NSBundle bundle(QCoreApplication::applicationFilePath());
    return &bundle;
}

QString NSBundle::bundleIdentifier() const {
    return objectForInfoDictionaryKey(QStringLiteral("CFBundleIdentifier"));
}

QString NSBundle::objectForInfoDictionaryKey(const QString& key) const {
    const QFileInfo info(path);
    if (info.isFile()) {
        if (const auto entry = desktopEntryAtPath(path)) {
            return infoOfDesktopEntry(*entry, key);
        }
        const QString program = info.fileName();
        const auto entry = desktopEntryForProgram(program);
        if (key == QLatin1String("CFBundleExecutable") ||
            (!entry && key == QLatin1String("CFBundleIdentifier"))) {
            return program;
        }
        return entry ? infoOfDesktopEntry(*entry, key) : QString();
    }
    const QDir dir(path);
    for (const QString& place : {QStringLiteral("Contents/Info.plist"), QStringLiteral("Info.plist")}) {
        QFile plist(dir.filePath(place));
        if (plist.open(QIODevice::ReadOnly)) {
            return topLevelString(&plist, key);
        }
    }
    return QString();
}

namespace {

// The bundle's Contents folder, where a macOS application keeps everything; a framework or a
// flat bundle keeps it at the top.
QString contentsOf(const QString& bundlePath) {
    const QDir dir(bundlePath);
    return dir.exists(QStringLiteral("Contents")) ? dir.filePath(QStringLiteral("Contents")) : bundlePath;
}

QUrl folderOfContents(const QString& bundlePath, const QString& name) {
    return QFileInfo(bundlePath).isDir() ? QUrl::fromLocalFile(QDir(contentsOf(bundlePath)).filePath(name))
                                         : QUrl();
}

} // namespace

QString NSBundle::resourcePath() const {
    if (!QFileInfo(path).isDir())
        return QString();
    const QDir contents(contentsOf(path));
    return contents.exists(QStringLiteral("Resources")) ? contents.filePath(QStringLiteral("Resources"))
                                                        : path;
}

QStringList NSBundle::localizations() const {
    const QString resources = resourcePath();
    if (resources.isEmpty())
        return {};
    QStringList names;
    for (const QString& folder : QDir(resources).entryList({QStringLiteral("*.lproj")}, QDir::Dirs))
        names.append(folder.chopped(int(qstrlen(".lproj"))));
    return names;
}

QUrl NSBundle::privateFrameworksURL() const {
    return folderOfContents(path, QStringLiteral("Frameworks"));
}

QUrl NSBundle::sharedFrameworksURL() const {
    return folderOfContents(path, QStringLiteral("SharedFrameworks"));
}

QUrl NSBundle::builtInPlugInsURL() const {
    return folderOfContents(path, QStringLiteral("PlugIns"));
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
