#include "applications.h"

#include "appkit/NSApplication.h"
#include "appkit/NSBundle.h"
#include "appkit/NSNotificationCenter.h"
#include "appkit/NSWorkspace.h"
#include "osxApplicationIcons.h"
#include "osxRunningApplications.h"
#include "osxUIElementUtils.h"
#include "timeUtils.h"

#include <QDebug>
#include <QFileInfo>
#include <QMap>
#include <QMutex>
#include <QMutexLocker>

#include <utility>

#include <unistd.h>

namespace {

QString identifierOf(NSRunningApplication* application) {
    return application ? application->bundleIdentifier() : QString();
}

QString lastPathComponent(const QUrl& url) {
    return url.isEmpty() ? QString() : QFileInfo(url.path()).fileName();
}

const QList<int> kApplicationIconSizes{16, 32, 64, 256, 1024};

} // namespace

QString applicationIdentifierForPid(int pid) {
    if (pid == 0)
        return QString();
    return identifierOf(NSRunningApplication::runningApplicationWithProcessIdentifier(pid));
}

QString applicationIdentifierForPath(const QString& path) {
    const auto bundle = NSBundle::bundleWithPath(path);
    return bundle ? bundle->bundleIdentifier() : QString();
}

QString applicationIdentifierForAppName(const QString& name) {
    const QString path = findApplicationByName(name);
    return path.isEmpty() ? QString() : applicationIdentifierForPath(path);
}

QString findApplicationByName(QString name) {
    return NSWorkspace::sharedWorkspace()->fullPathForApplication(name);
}

QString applicationPathForIdentifier(const QString& id) {
    if (id == QLatin1String("com.apple.finder"))
        return QStringLiteral("/System/Library/CoreServices/Finder.app");
    return NSWorkspace::sharedWorkspace()->absolutePathForAppBundleWithIdentifier(id);
}

QString cachedApplicationPathForIdentifier(const QString& id) {
    struct CacheEntry {
        QString path;
        double time = -1.0;
    };
    static QMap<QString, CacheEntry> cache;
    static QMutex mutex;
    QMutexLocker locker(&mutex);
    const double now = milliseconds();
    CacheEntry& entry = cache[id];
    if (!entry.path.isEmpty() && now - entry.time <= cachedApplicationPathLifetimeMs)
        return entry.path;
    entry.path = applicationPathForIdentifier(id);
    entry.time = now;
    return entry.path;
}

bool cachedApplicationWithIdentifierExists(const QString& id) {
    return !cachedApplicationPathForIdentifier(id).isEmpty();
}

QString applicationNameForPid(int pid) {
    NSRunningApplication* application = NSRunningApplication::runningApplicationWithProcessIdentifier(pid);
    if (!application)
        return QString();
    if (!application->localizedName().isEmpty())
        return application->localizedName();
    const QString bundleName = lastPathComponent(application->bundleURL());
    return bundleName.isEmpty() ? lastPathComponent(application->executableURL()) : bundleName;
}

QString applicationNameForIdentifier(const QString& id, const QString& fallback, bool* found) {
    const QString path = applicationPathForIdentifier(id);
    const auto bundle = path.isEmpty() ? nullptr : NSBundle::bundleWithPath(path);
    if (found)
        *found = bundle != nullptr;
    if (!bundle)
        return fallback;
    // "Bundle display name" stands so, with blanks.
    for (const char* key : {"Bundle display name", "CFBundleName", "CFBundleExecutable"}) {
        const QString name = bundle->objectForInfoDictionaryKey(QLatin1String(key));
        if (!name.isEmpty())
            return name;
    }
    return id;
}

QString applicationIdentifierOfFrontmostApp() {
    return identifierOf(NSWorkspace::sharedWorkspace()->frontmostApplication());
}

int focusedApplication() {
    NSRunningApplication* front = NSWorkspace::sharedWorkspace()->frontmostApplication();
    return front ? front->processIdentifier() : 0;
}

int applicationUnderScreenPosition(QPoint position) {
    return pidOfWindowContainingPoint(position.x(), position.y());
}

bool applicationIsRunning(const QString& id) {
    return !NSRunningApplication::runningApplicationsWithBundleIdentifier(id).isEmpty();
}

QString pathOfRunningApplicationWithIdentifier(const QString& id) {
    const auto running = NSRunningApplication::runningApplicationsWithBundleIdentifier(id);
    return running.isEmpty() ? QString() : running.first()->executableURL().path();
}

QList<int> allRunningGUIApplicationsPids() {
    NSWorkspace* workspace = NSWorkspace::sharedWorkspace();
    QList<int> pids;
    NSRunningApplication* front = workspace->frontmostApplication();
    const int frontPid = front ? front->processIdentifier() : 0;
    if (front)
        pids.append(frontPid);
    for (NSRunningApplication* application : workspace->runningApplications()) {
        if (application->activationPolicy() == NSApplicationActivationPolicyRegular &&
            application->processIdentifier() != frontPid)
            pids.append(application->processIdentifier());
    }
    return pids;
}

int getCurrentPid() {
    return getpid();
}

bool bringAppToFront() {
    return activateApplication(NSRunningApplication::currentApplication(), true, true);
}

bool isApplicationBackgroundOnly() {
    return NSApplication::sharedApplication()->activationPolicy() == NSApplicationActivationPolicyAccessory;
}

void setApplicationBackgroundOnly(bool background) {
    NSApplication* application = NSApplication::sharedApplication();
    const NSApplicationActivationPolicy policy = application->activationPolicy();
    if (background) {
        if (policy == NSApplicationActivationPolicyAccessory)
            return;
    } else {
        if (policy == NSApplicationActivationPolicyRegular)
            return;
        NSRunningApplication* current = NSRunningApplication::currentApplication();
        NSRunningApplication* menuBarOwner = NSWorkspace::sharedWorkspace()->menuBarOwningApplication();
        // A change of policy while in front would leave the application without its menu bar.
        if (current->isActive() && current != menuBarOwner) {
            activateApplication(menuBarOwner, false, true);
            for (int i = 0; i < 25 && current->isActive(); ++i)
                usleep(40000);
        }
    }
    application->setActivationPolicy(background ? NSApplicationActivationPolicyAccessory
                                                : NSApplicationActivationPolicyRegular);
}

QIcon currentApplicationIcon() {
    const auto image = NSWorkspace::sharedWorkspace()->iconForFile(NSBundle::mainBundle()->bundlePath());
    if (image)
        return convertNSImageToQIcon(image.get(), kApplicationIconSizes);
    qWarning().noquote() << "Error: failed to get an icon for this application";
    return retrieveMacOSGenericIconWithName(QStringLiteral("GenericApplicationIcon"), kApplicationIconSizes);
}

// Each observer's token has a slot of its own, and unregistering removes every one of them.
struct FrontAppChangedCallbackData {
    NSObserverToken activationObserver = nullptr;
    NSObserverToken deactivationObserver = nullptr;
    NSObserverToken terminationObserver = nullptr;
};

struct AppRunningChangedCallbackData {
    NSObserverToken launchObserver = nullptr;
    NSObserverToken terminationObserver = nullptr;
};

namespace {

// An observer of the workspace's notifications of this name, on the main queue, that tells the
// callback (its own copy) the application's identifier and `state`.
NSObserverToken observeApplications(const NSNotificationName& name, const ApplicationStateCallback& callback,
                                    bool state) {
    return NSWorkspace::sharedWorkspace()->notificationCenter()->addObserverForName(
        name, nullptr, NSOperationQueue::mainQueue(), [callback, state](const NSNotification& notification) {
            callback(identifierOf(notification.userInfo.value(NSWorkspaceApplicationKey)), state);
        });
}

// Empties the slots too, so that unregistering twice removes nothing the second time.
void removeObservers(std::initializer_list<NSObserverToken*> tokens) {
    for (NSObserverToken* slot : tokens)
        NSWorkspace::sharedWorkspace()->notificationCenter()->removeObserver(std::exchange(*slot, nullptr));
}

} // namespace

QSharedPointer<FrontAppChangedCallbackData>
registerForFrontAppChangedNotifications(ApplicationStateCallback callback) {
    auto data = QSharedPointer<FrontAppChangedCallbackData>::create();
    data->activationObserver =
        observeApplications(NSWorkspaceDidActivateApplicationNotification, callback, true);
    data->deactivationObserver =
        observeApplications(NSWorkspaceDidDeactivateApplicationNotification, callback, false);
    data->terminationObserver =
        observeApplications(NSWorkspaceDidTerminateApplicationNotification, callback, false);
    return data;
}

void unregisterForFrontAppChangedNotifications(QSharedPointer<FrontAppChangedCallbackData> data) {
    if (!data)
        return;
    removeObservers({&data->activationObserver, &data->deactivationObserver, &data->terminationObserver});
}

QSharedPointer<AppRunningChangedCallbackData>
registerForAppRunningNotifications(ApplicationStateCallback callback) {
    auto data = QSharedPointer<AppRunningChangedCallbackData>::create();
    data->launchObserver = observeApplications(NSWorkspaceDidLaunchApplicationNotification, callback, true);
    data->terminationObserver =
        observeApplications(NSWorkspaceDidTerminateApplicationNotification, callback, false);
    return data;
}

void unregisterForAppRunningNotifications(QSharedPointer<AppRunningChangedCallbackData> data) {
    if (!data)
        return;
    removeObservers({&data->launchObserver, &data->terminationObserver});
}
