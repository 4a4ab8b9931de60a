#pragma once

// Applications and the running program itself, over the platform's workspace: from a bundle
// identifier to a path or a name and back, who is in front, who runs, and notification of changes.
// On Linux an application bundle is a desktop entry (docs/platform-services.md).

#include <QIcon>
#include <QList>
#include <QPoint>
#include <QSharedPointer>
#include <QString>

#include <functional>

// Identifiers, paths and names. Empty strings stand for "none".
QString applicationIdentifierForPid(int pid);
QString applicationIdentifierForPath(const QString& path);
QString applicationIdentifierForAppName(const QString& name);
QString findApplicationByName(QString name);
// "com.apple.finder" gives the Finder's path without asking the workspace.
QString applicationPathForIdentifier(const QString& id);
// A path found is trusted for cachedApplicationPathLifetimeMs; an empty answer is not kept.
// Safe from several threads.
inline constexpr double cachedApplicationPathLifetimeMs = 60000;
QString cachedApplicationPathForIdentifier(const QString& id);
bool cachedApplicationWithIdentifierExists(const QString& id);
QString applicationNameForPid(int pid);
// The name in the application's bundle; fallback, and false through found, when there is no
// bundle of this identifier; the identifier itself when the bundle holds no name.
QString applicationNameForIdentifier(const QString& id, const QString& fallback, bool* found);
QString applicationIdentifierOfFrontmostApp();
// The pid of the frontmost application; 0 when there is none.
int focusedApplication();
// The pid of the application whose window is frontmost at the point; 0 for none.
int applicationUnderScreenPosition(QPoint position);
bool applicationIsRunning(const QString& id);
// The executable, not the bundle, of the first running application with this identifier.
QString pathOfRunningApplicationWithIdentifier(const QString& id);
// The frontmost application first, then every other application that has a place among those
// the user switches between, in the desktop's order.
QList<int> allRunningGUIApplicationsPids();
int getCurrentPid();

// The application itself.
bool bringAppToFront();
bool isApplicationBackgroundOnly();
// Moving back to the foreground first hands the front to the menu bar's owner and waits up to a
// second for this application to give it up.
void setApplicationBackgroundOnly(bool background);
QIcon currentApplicationIcon();

// Notifications, on the main thread: the callback gets the application's bundle identifier, with
// true when it came to the front (or started) and false when it left the front (or quit). Each
// registration holds its observers until it is unregistered; a null registration is ignored.
using ApplicationStateCallback = std::function<void(const QString& bundleIdentifier, bool state)>;
struct FrontAppChangedCallbackData;
struct AppRunningChangedCallbackData;
QSharedPointer<FrontAppChangedCallbackData>
registerForFrontAppChangedNotifications(ApplicationStateCallback callback);
void unregisterForFrontAppChangedNotifications(QSharedPointer<FrontAppChangedCallbackData> data);
QSharedPointer<AppRunningChangedCallbackData>
registerForAppRunningNotifications(ApplicationStateCallback callback);
void unregisterForAppRunningNotifications(QSharedPointer<AppRunningChangedCallbackData> data);
