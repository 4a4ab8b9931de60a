#pragma once

// The source of the workspace's notifications of running applications on desktops that post
// none of their own. While anyone observes them, it looks at the active provider's applications
// whenever the provider says that they may have changed (AccessibilityProvider::
// watchApplications) and every pollIntervalMs besides, and compares them with the last look:
//
// - an application that was not there: NSWorkspaceDidLaunchApplicationNotification;
// - another application in front: NSWorkspaceDidDeactivateApplicationNotification for the one
//   before, while it still runs, then NSWorkspaceDidActivateApplicationNotification;
// - an application that is no longer there: NSWorkspaceDidTerminateApplicationNotification.
//
// in this order, each with its NSRunningApplication under NSWorkspaceApplicationKey. The looks
// and the notifications happen on the thread of the QCoreApplication, the main queue, after a
// first look taken when watching starts, which tells nothing. A change of the active provider
// starts from a new first look.

#include <QObject>

#include <memory>

class QTimer;

class WorkspaceMonitor : public QObject {
    Q_OBJECT

public:
    static constexpr int pollIntervalMs = 250;

    static WorkspaceMonitor& instance();

    // Called by the workspace's notification centre as its first observer comes and its last
    // goes. Without a QCoreApplication nothing is watched.
    void setWatching(bool watching);
    // Looks now, on the calling thread, and posts what changed.
    void lookNow();

private:
    WorkspaceMonitor();
    ~WorkspaceMonitor() override;
    void startOnMainThread();
    void stopOnMainThread();

    struct State;
    std::unique_ptr<State> state;
    QTimer* timer;
    std::unique_ptr<QObject> desktopWatch;
};
