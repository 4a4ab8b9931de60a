#include "systemState.h"

#include "CFTypeSmartRef.h"
#include "platformSystemState.h"

#include "appkit/NSWorkspace.h"

#include <unistd.h>

namespace {

// The observers of a pair of notifications: trueName gives callback(true), falseName
// callback(false).
std::pair<NSObserverToken, NSObserverToken> observePair(const NSNotificationName& trueName,
                                                        const NSNotificationName& falseName,
                                                        const std::function<void(bool)>& callback) {
    NSNotificationCenter* center = NSWorkspace::sharedWorkspace()->notificationCenter();
    NSOperationQueue* mainQueue = NSOperationQueue::mainQueue();
    return {center->addObserverForName(trueName, nullptr, mainQueue,
                                       [callback](const NSNotification&) { callback(true); }),
            center->addObserverForName(falseName, nullptr, mainQueue,
                                       [callback](const NSNotification&) { callback(false); })};
}

void removePair(NSObserverToken first, NSObserverToken second) {
    NSNotificationCenter* center = NSWorkspace::sharedWorkspace()->notificationCenter();
    center->removeObserver(first);
    center->removeObserver(second);
}

} // namespace

QSharedPointer<UserSessionCallbackData>
registerForUserSessionNotifications(std::function<void(bool)> callback) {
    auto data = QSharedPointer<UserSessionCallbackData>::create();
    std::tie(data->becameActiveObserver, data->resignedActiveObserver) =
        observePair(NSWorkspaceSessionDidBecomeActiveNotification,
                    NSWorkspaceSessionDidResignActiveNotification, callback);
    return data;
}

void unregisterForUserSessionNotifications(const QSharedPointer<UserSessionCallbackData>& data) {
    if (data)
        removePair(data->becameActiveObserver, data->resignedActiveObserver);
}

bool applicationIsRunningInActiveUserSession() {
    uid_t uid = 0;
    const CFTypeSmartRef<CFStringRef> user(SCDynamicStoreCopyConsoleUser(nullptr, &uid, nullptr));
    return user && uid == getuid();
}

QSharedPointer<DisplaySleepCallbackData>
registerForDisplaySleepNotifications(std::function<void(bool)> callback) {
    auto data = QSharedPointer<DisplaySleepCallbackData>::create();
    std::tie(data->wokeObserver, data->sleptObserver) =
        observePair(NSWorkspaceScreensDidWakeNotification, NSWorkspaceScreensDidSleepNotification, callback);
    return data;
}

void unregisterForDisplaySleepNotifications(const QSharedPointer<DisplaySleepCallbackData>& data) {
    if (data)
        removePair(data->wokeObserver, data->sleptObserver);
}

void wakeDisplay() {
    IOPMAssertionID assertion = 0;
    IOPMAssertionDeclareUserActivity(CFSTR(""), kIOPMUserActiveLocal, &assertion);
}
