#include "NSWorkspace.h"

#include "DesktopEntries.h"
#include "WorkspaceMonitor.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>

namespace {

// An executable file of this name on PATH; empty for none, and for a name that is a path.
QString executableOnPath(const QString& name) {
    if (name.isEmpty() || name.contains(u'/'))
        return QString();
    return QStandardPaths::findExecutable(name);
}

// The file of an icon named in a desktop entry: the largest of the "hicolor" theme's sizes that
// has it, else a file in /usr/share/pixmaps.
QString iconFileNamed(const QString& name) {
    if (QFileInfo(name).isAbsolute())
        return QFileInfo(name).isFile() ? name : QString();
    if (name.contains(u'/'))
        return QString();
    QList<QPair<int, QString>> found;
    for (const QString& dataDirectory :
         QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation)) {
        const QDir theme(dataDirectory + QStringLiteral("/icons/hicolor"));
        for (const QString& size : theme.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            const QString file =
                theme.filePath(size + QStringLiteral("/apps/") + name + QStringLiteral(".png"));
            if (QFileInfo(file).isFile())
                found.append({size.section(u'x', 0, 0).toInt(), file});
        }
    }
    if (!found.isEmpty())
        return std::max_element(found.cbegin(), found.cend())->second;
    for (const char* extension : {".png", ".xpm"}) {
        const QString file = QStringLiteral("/usr/share/pixmaps/") + name + QLatin1String(extension);
        if (QFileInfo(file).isFile())
            return file;
    }
    return QString();
}

} // namespace

QString NSWorkspace::fullPathForApplication(const QString& appName) const {
    if (const auto entry = desktopEntryNamed(appName))
        return entry->path;
    return executableOnPath(appName);
}

QString NSWorkspace::absolutePathForAppBundleWithIdentifier(const QString& bundleIdentifier) const {
    if (const auto entry = desktopEntryWithId(bundleIdentifier))
        return entry->path;
    return executableOnPath(bundleIdentifier);
}

std::unique_ptr<NSImage> NSWorkspace::iconForFile(const QString& path) const {
    auto entry = desktopEntryAtPath(path);
    if (!entry && QFileInfo(path).isExecutable())
        entry = desktopEntryForProgram(QFileInfo(path).fileName());
    const QString file = entry && !entry->icon.isEmpty() ? iconFileNamed(entry->icon) : QString();
    return file.isEmpty() ? nullptr : NSImage::imageWithContentsOfFile(file);
}

NSNotificationCenter* NSWorkspace::notificationCenter() const {
    static NSNotificationCenter* const center = new NSNotificationCenter(
        [](bool anyObservers) { WorkspaceMonitor::instance().setWatching(anyObservers); });
    return center;
}
