#include "SessionMonitor.h"

#include "NSWorkspace.h"
#include "session/Logind.h"

#include <QCoreApplication>
#include <QDebug>
#include <QMutexLocker>

namespace {

void postOnMainQueue(const NSNotificationName& name) {
    QCoreApplication* application = QCoreApplication::instance();
    if (!application)
        return;
    QMetaObject::invokeMethod(
        application,
        [name] {
            NSWorkspace::sharedWorkspace()->notificationCenter()->postNotification(NSNotification{name, {}});
        },
        Qt::QueuedConnection);
}

} // namespace

SessionMonitor& SessionMonitor::instance() {
    // Never destroyed: notifications may be asked for until the process ends.
    static SessionMonitor* const monitor = new SessionMonitor;
    return *monitor;
}

SessionMonitor::SessionMonitor() = default;
SessionMonitor::~SessionMonitor() = default;

void SessionMonitor::setWatching(bool watching) {
    std::unique_ptr<LogindSessionWatch> ended;
    QMutexLocker locker(&mutex);
    if (!watching) {
        // Joined outside the lock.
        ended = std::move(watch);
        locker.unlock();
        return;
    }
    if (!QCoreApplication::instance()) {
        qDebug().noquote() << "Note: without an application object, no session notifications are posted";
        return;
    }
    watch = LogindSessionWatch::start([](bool active) {
        postOnMainQueue(active ? NSWorkspaceSessionDidBecomeActiveNotification
                               : NSWorkspaceSessionDidResignActiveNotification);
    });
    if (!watch)
        qDebug().noquote()
            << "Note: systemd-logind knows no session of this process; the user's session counts "
               "as active, and no session notifications are posted";
}
