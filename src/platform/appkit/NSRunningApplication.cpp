#include "NSRunningApplication.h"
#include "NSWorkspace.h"
#include "RunningApplicationRegistry_p.h"

#include "atspi/LiveProcesses.h"
#include "ax/AccessibilityProvider.h"
#include "platformCoreFoundation.h"

#include <QCoreApplication>
#include <QHash>
#include <QMutex>
#include <QMutexLocker>

#include <memory>
#include <vector>

#include <unistd.h>

// Keeps one object per process of each provider for the life of the process, as AppKit does, so
// that the pointers handed out stay valid. A pid reused by another application gets a new object.
class RunningApplicationRegistry {
public:
    static RunningApplicationRegistry& instance() {
        static RunningApplicationRegistry registry;
        return registry;
    }

    NSRunningApplication* objectFor(quint64 providerSerial, const ApplicationInfo& info) {
        const QString key = QStringLiteral("%1/%2/%3/%4")
                                .arg(providerSerial)
                                .arg(info.pid)
                                .arg(info.bundleIdentifier, info.executablePath);
        QMutexLocker locker(&mutex);
        NSRunningApplication*& object = objects[key];
        if (!object) {
            const QUrl executable =
                info.executablePath.isEmpty() ? QUrl() : QUrl::fromLocalFile(info.executablePath);
            const QUrl bundle = info.bundlePath.isEmpty() ? QUrl() : QUrl::fromLocalFile(info.bundlePath);
            owned.emplace_back(
                new NSRunningApplication(info.pid, info.bundleIdentifier, info.name, executable, bundle,
                                         info.regular ? NSApplicationActivationPolicyRegular
                                                      : NSApplicationActivationPolicyAccessory));
            object = owned.back().get();
        }
        return object;
    }

private:
    QMutex mutex;
    QHash<QString, NSRunningApplication*> objects;
    std::vector<std::unique_ptr<NSRunningApplication>> owned;
};

NSRunningApplication* runningApplicationFor(quint64 providerSerial, const ApplicationInfo& info) {
    return RunningApplicationRegistry::instance().objectFor(providerSerial, info);
}

NSRunningApplication::NSRunningApplication(pid_t pid, const QString& bundleId, const QString& name,
                                           const QUrl& executable, const QUrl& bundle,
                                           NSApplicationActivationPolicy policy)
    : pid(pid), bundleId(bundleId), name(name), executable(executable), bundle(bundle), policy(policy) {}

// Described as the live desktop describes any process, under no provider: this process is itself
// whatever desktop it asks.
NSRunningApplication* NSRunningApplication::currentApplication() {
    static NSRunningApplication* const current =
        runningApplicationFor(0, describeLiveProcess(getpid(), QCoreApplication::applicationName()));
    return current;
}

NSRunningApplication* NSRunningApplication::runningApplicationWithProcessIdentifier(pid_t pid) {
    const auto provider = activeAccessibilityProvider();
    const auto info = provider->application(pid);
    return info ? runningApplicationFor(provider->serial(), *info) : nullptr;
}

namespace {

// The running applications that pass `wanted`, in the desktop's order.
template <class Predicate> QList<NSRunningApplication*> runningApplicationsWhere(Predicate wanted) {
    const auto provider = activeAccessibilityProvider();
    QList<NSRunningApplication*> result;
    for (const ApplicationInfo& info : provider->applications()) {
        if (wanted(info)) {
            result.append(runningApplicationFor(provider->serial(), info));
        }
    }
    return result;
}

} // namespace

QList<NSRunningApplication*>
NSRunningApplication::runningApplicationsWithBundleIdentifier(const QString& bundleIdentifier) {
    return runningApplicationsWhere(
        [&](const ApplicationInfo& info) { return info.bundleIdentifier == bundleIdentifier; });
}

NSWorkspace* NSWorkspace::sharedWorkspace() {
    static NSWorkspace workspace;
    return &workspace;
}

QList<NSRunningApplication*> NSWorkspace::runningApplications() const {
    return runningApplicationsWhere([](const ApplicationInfo&) { return true; });
}

NSRunningApplication* NSWorkspace::frontmostApplication() const {
    return runningApplicationsWhere([](const ApplicationInfo& info) { return info.active; }).value(0);
}

NSRunningApplication* NSWorkspace::menuBarOwningApplication() const {
    return frontmostApplication();
}

bool NSRunningApplication::isActive() const {
    const auto info = activeAccessibilityProvider()->application(pid);
    return info && info->active;
}

// The desktop knows no difference between bringing all windows or only the key window forward,
// nor asks other applications to give way: every activation makes the application frontmost.
bool NSRunningApplication::activateWithOptions(NSApplicationActivationOptions) {
    const auto provider = activeAccessibilityProvider();
    if (!provider->application(pid)) {
        return false;
    }
    return provider->setAttributeValue(provider->applicationElement(pid), QStringLiteral("AXFrontmost"),
                                       kCFBooleanTrue) == kAXErrorSuccess;
}
