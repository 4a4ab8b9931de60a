#pragma once

// Notifications under Foundation's names, as far as the workspace's notifications need them: a
// centre, observers added with a block and removed by the token they were given, and the main
// operation queue on which the blocks run. On Linux the blocks run on the thread of the
// QCoreApplication, from its event loop; without an application object nothing is delivered.

#include <QHash>
#include <QList>
#include <QString>

#include <functional>
#include <memory>

class NSRunningApplication;

using NSNotificationName = QString;

struct NSNotification {
    NSNotificationName name;
    // The workspace's notifications carry the application under NSWorkspaceApplicationKey.
    QHash<QString, NSRunningApplication*> userInfo;
};

// Opaque; null stands for no observer.
typedef struct NSObserver* NSObserverToken;

class NSOperationQueue {
public:
    static NSOperationQueue* mainQueue();

private:
    NSOperationQueue() = default;
};

class NSNotificationCenter {
public:
    // observersChanged: told, outside the centre's lock, when the first observer comes and when
    // the last one goes (true while there is any), so that a source of notifications runs only
    // while someone listens.
    explicit NSNotificationCenter(std::function<void(bool anyObservers)> observersChanged = {});
    ~NSNotificationCenter();
    NSNotificationCenter(const NSNotificationCenter&) = delete;
    NSNotificationCenter& operator=(const NSNotificationCenter&) = delete;

    // block is called with every notification of this name posted from now on, on queue (only the
    // main queue is offered). The token stays valid until it is removed.
    NSObserverToken addObserverForName(const NSNotificationName& name, const void* object,
                                       NSOperationQueue* queue,
                                       std::function<void(const NSNotification&)> block);
    // Nothing for null or a token already removed. A block that is running may finish.
    void removeObserver(NSObserverToken observer);
    // Calls the blocks of the observers of this name, in the order they were added, on the
    // calling thread.
    void postNotification(const NSNotification& notification);

    int observerCount() const;

    // Like observersChanged, for the observers of these names only: told, outside the lock, when
    // the first of them comes and when the last goes, so that each source of notifications runs
    // only while someone listens to what it posts.
    void watchObservers(const QList<NSNotificationName>& names,
                        std::function<void(bool anyObservers)> changed);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

inline const NSNotificationName NSWorkspaceDidLaunchApplicationNotification =
    QStringLiteral("NSWorkspaceDidLaunchApplicationNotification");
inline const NSNotificationName NSWorkspaceDidTerminateApplicationNotification =
    QStringLiteral("NSWorkspaceDidTerminateApplicationNotification");
inline const NSNotificationName NSWorkspaceDidActivateApplicationNotification =
    QStringLiteral("NSWorkspaceDidActivateApplicationNotification");
inline const NSNotificationName NSWorkspaceDidDeactivateApplicationNotification =
    QStringLiteral("NSWorkspaceDidDeactivateApplicationNotification");
// The user's session became active (in front on its seat, and unlocked) or stopped being so.
inline const NSNotificationName NSWorkspaceSessionDidBecomeActiveNotification =
    QStringLiteral("NSWorkspaceSessionDidBecomeActiveNotification");
inline const NSNotificationName NSWorkspaceSessionDidResignActiveNotification =
    QStringLiteral("NSWorkspaceSessionDidResignActiveNotification");
// The displays went to sleep or woke up.
inline const NSNotificationName NSWorkspaceScreensDidSleepNotification =
    QStringLiteral("NSWorkspaceScreensDidSleepNotification");
inline const NSNotificationName NSWorkspaceScreensDidWakeNotification =
    QStringLiteral("NSWorkspaceScreensDidWakeNotification");
inline const QString NSWorkspaceApplicationKey = QStringLiteral("NSWorkspaceApplicationKey");
