#include "NSWorkspace.h"

#include "DesktopEntries.h"
#include "DisplayMonitor.h"
#include "Foundation.h"
#include "SessionMonitor.h"
#include "WorkspaceMonitor.h"

#include <QDebug>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QProcess>
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

const QString kPreferencesScheme = QStringLiteral("x-apple.systempreferences:");
const QString kSecurityPane = QStringLiteral("/System/Library/PreferencePanes/Security.prefPane");

struct SettingsApplication {
    const char* desktopEntryId;
    QStringList arguments;
};

// The accessibility settings of the desktops, by the desktop entry that shows they are installed
// and the arguments that open the right page.
const QList<SettingsApplication>& accessibilitySettings() {
    static const QList<SettingsApplication> settings{
        {"gnome-universal-access-panel", {QStringLiteral("universal-access")}},
        {"org.gnome.Settings", {QStringLiteral("universal-access")}},
        {"gnome-control-center", {QStringLiteral("universal-access")}},
        {"kcm_access", {QStringLiteral("kcm_access")}},
        {"systemsettings", {QStringLiteral("kcm_access")}},
        {"xfce4-accessibility-settings", {}},
    };
    return settings;
}

bool startSystemProgram(const QString& program, const QStringList& arguments) {
    const ProgramInvocation invocation = systemProgramInvocation(program, arguments);
    return QProcess::startDetached(invocation.program, invocation.arguments);
}

bool noSettingsApplication(const QString& what) {
    qInfo().noquote()
        << QStringLiteral("Note: no settings application of this desktop opens \"%1\"").arg(what);
    return false;
}

bool openAccessibilitySettings(const QString& what) {
    for (const SettingsApplication& settings : accessibilitySettings()) {
        if (const auto entry = desktopEntryWithId(QLatin1String(settings.desktopEntryId)))
            return startSystemProgram(entry->program, settings.arguments);
    }
    return noSettingsApplication(what);
}

} // namespace

bool NSWorkspace::openURL(const QString& url) const {
    if (!url.startsWith(kPreferencesScheme))
        return startSystemProgram(QStringLiteral("xdg-open"), {url});
    const QString anchor = url.section(u'?', 1);
    if (anchor == QLatin1String("Privacy_Accessibility") || anchor == QLatin1String("Privacy_Automation"))
        return openAccessibilitySettings(url);
    return noSettingsApplication(url);
}

bool NSWorkspace::openFile(const QString& path) const {
    if (path == kSecurityPane)
        return openAccessibilitySettings(path);
    return startSystemProgram(QStringLiteral("xdg-open"), {path});
}

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

// Each source of notifications runs only while its notifications are observed.
NSNotificationCenter* NSWorkspace::notificationCenter() const {
    static NSNotificationCenter* const center = [] {
        auto* workspaceCenter = new NSNotificationCenter;
        workspaceCenter->watchObservers(
            {NSWorkspaceDidLaunchApplicationNotification, NSWorkspaceDidTerminateApplicationNotification,
             NSWorkspaceDidActivateApplicationNotification, NSWorkspaceDidDeactivateApplicationNotification},
            [](bool anyObservers) { WorkspaceMonitor::instance().setWatching(anyObservers); });
        workspaceCenter->watchObservers(
            {NSWorkspaceSessionDidBecomeActiveNotification, NSWorkspaceSessionDidResignActiveNotification},
            [](bool anyObservers) { SessionMonitor::instance().setWatching(anyObservers); });
        workspaceCenter->watchObservers(
            {NSWorkspaceScreensDidSleepNotification, NSWorkspaceScreensDidWakeNotification},
            [](bool anyObservers) { DisplayMonitor::instance().setWatching(anyObservers); });
        return workspaceCenter;
    }();
    return center;
}
