#pragma once

// Whether the user's session is active and the display awake, with notifications of their
// changes, and waking the display. The notifications reach their callbacks on the main thread
// (the workspace notification centre's main queue), only while the QCoreApplication's event loop
// runs.

#include "appkit/NSNotificationCenter.h"

#include <QSharedPointer>

#include <functional>

// The observers of one registration: the first for the turn to true, the second for the turn to
// false. Handed back to unregister.
struct UserSessionCallbackData {
    NSObserverToken becameActiveObserver = nullptr;
    NSObserverToken resignedActiveObserver = nullptr;
};

struct DisplaySleepCallbackData {
    NSObserverToken wokeObserver = nullptr;
    NSObserverToken sleptObserver = nullptr;
};

// callback(true) when the user's session becomes active, callback(false) when it resigns. On
// Linux a session is active while it is in front on its seat and not locked.
QSharedPointer<UserSessionCallbackData>
registerForUserSessionNotifications(std::function<void(bool)> callback);
// Nothing for null.
void unregisterForUserSessionNotifications(const QSharedPointer<UserSessionCallbackData>& data);
// Whether the user at the console is the user of this process.
bool applicationIsRunningInActiveUserSession();

// callback(true) when the display wakes, callback(false) when it goes to sleep: the argument says
// that the display is awake.
QSharedPointer<DisplaySleepCallbackData>
registerForDisplaySleepNotifications(std::function<void(bool)> callback);
// Nothing for null.
void unregisterForDisplaySleepNotifications(const QSharedPointer<DisplaySleepCallbackData>& data);

// Declares user activity: the display wakes, and the idle time starts anew.
void wakeDisplay();
