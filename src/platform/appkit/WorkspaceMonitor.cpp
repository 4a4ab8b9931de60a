#include "WorkspaceMonitor.h"

#include "NSWorkspace.h"
#include "RunningApplicationRegistry_p.h"

#include <QCoreApplication>
#include <QDebug>
#include <QMutex>
#include <QMutexLocker>
#include <QTimer>

struct WorkspaceMonitor::State {
    QMutex mutex;
    bool watching = false;
    // The provider of the last look, 0 before the first.
    quint64 serial = 0;
    QList<NSRunningApplication*> running;
    NSRunningApplication* front = nullptr;
};

namespace {

struct Look {
    quint64 serial = 0;
    QList<NSRunningApplication*> running;
    NSRunningApplication* front = nullptr;
};

Look lookAtDesktop() {
    const auto provider = activeAccessibilityProvider();
    Look look;
    look.serial = provider->serial();
    for (const ApplicationInfo& info : provider->applications()) {
        NSRunningApplication* application = runningApplicationFor(look.serial, info);
        look.running.append(application);
        if (info.active && !look.front)
            look.front = application;
    }
    return look;
}

void post(const NSNotificationName& name, NSRunningApplication* application) {
    NSNotification notification{name, {{NSWorkspaceApplicationKey, application}}};
    NSWorkspace::sharedWorkspace()->notificationCenter()->postNotification(notification);
}

} // namespace

WorkspaceMonitor& WorkspaceMonitor::instance() {
    // Never destroyed: notifications may be asked for until the process ends.
    static WorkspaceMonitor* const monitor = new WorkspaceMonitor;
    return *monitor;
}

WorkspaceMonitor::WorkspaceMonitor() : state(std::make_unique<State>()), timer(new QTimer(this)) {
    timer->setInterval(pollIntervalMs);
    connect(timer, &QTimer::timeout, this, &WorkspaceMonitor::lookNow);
}

WorkspaceMonitor::~WorkspaceMonitor() = default;

void WorkspaceMonitor::setWatching(bool watching) {
    QCoreApplication* application = QCoreApplication::instance();
    if (!application) {
        qDebug().noquote() << "Note: without an application object, no workspace notifications are posted";
        return;
    }
    if (watching) {
        // The first look is taken now, so that an application that starts right after an
        // observer was added is told of even before the event loop runs.
        const Look look = lookAtDesktop();
        QMutexLocker locker(&state->mutex);
        state->watching = true;
        state->serial = look.serial;
        state->running = look.running;
        state->front = look.front;
    } else {
        QMutexLocker locker(&state->mutex);
        state->watching = false;
    }
    if (thread() != application->thread())
        moveToThread(application->thread());
    QMetaObject::invokeMethod(
        this, [this, watching] { watching ? startOnMainThread() : stopOnMainThread(); },
        Qt::QueuedConnection);
}

void WorkspaceMonitor::startOnMainThread() {
    {
        QMutexLocker locker(&state->mutex);
        if (!state->watching)
            return;
    }
    timer->start();
    if (!desktopWatch)
        desktopWatch = activeAccessibilityProvider()->watchApplications([this] { lookNow(); });
    // What changed between the first look and the start of the watch is told now.
    lookNow();
}

void WorkspaceMonitor::stopOnMainThread() {
    {
        QMutexLocker locker(&state->mutex);
        if (state->watching)
            return;
    }
    timer->stop();
    desktopWatch.reset();
}

void WorkspaceMonitor::lookNow() {
    const Look look = lookAtDesktop();
    QList<NSRunningApplication*> launched, terminated;
    NSRunningApplication* deactivated = nullptr;
    NSRunningApplication* activated = nullptr;
    {
        QMutexLocker locker(&state->mutex);
        if (!state->watching)
            return;
        if (look.serial == state->serial) {
            for (NSRunningApplication* application : look.running) {
                if (!state->running.contains(application))
                    launched.append(application);
            }
            for (NSRunningApplication* application : std::as_const(state->running)) {
                if (!look.running.contains(application))
                    terminated.append(application);
            }
            if (look.front != state->front) {
                if (state->front && look.running.contains(state->front))
                    deactivated = state->front;
                activated = look.front;
            }
        }
        state->serial = look.serial;
        state->running = look.running;
        state->front = look.front;
    }
    for (NSRunningApplication* application : std::as_const(launched))
        post(NSWorkspaceDidLaunchApplicationNotification, application);
    if (deactivated)
        post(NSWorkspaceDidDeactivateApplicationNotification, deactivated);
    if (activated)
        post(NSWorkspaceDidActivateApplicationNotification, activated);
    for (NSRunningApplication* application : std::as_const(terminated))
        post(NSWorkspaceDidTerminateApplicationNotification, application);
}
