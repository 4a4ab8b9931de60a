#include "DisplayMonitor.h"

#include "NSWorkspace.h"

#include <QCoreApplication>
#include <QDebug>
#include <QTimer>

DisplayMonitor& DisplayMonitor::instance() {
    // Never destroyed: notifications may be asked for until the process ends.
    static DisplayMonitor* const monitor = new DisplayMonitor;
    return *monitor;
}

DisplayMonitor::DisplayMonitor() : timer(new QTimer(this)) {
    timer->setInterval(pollIntervalMs);
    connect(timer, &QTimer::timeout, this, &DisplayMonitor::lookNow);
}

DisplayMonitor::~DisplayMonitor() = default;

void DisplayMonitor::setWatching(bool watching) {
    QCoreApplication* application = QCoreApplication::instance();
    if (!application) {
        qDebug().noquote() << "Note: without an application object, no display notifications are posted";
        return;
    }
    if (thread() != application->thread())
        moveToThread(application->thread());
    QMetaObject::invokeMethod(
        this, [this, watching] { watching ? start() : stop(); }, Qt::QueuedConnection);
}

void DisplayMonitor::setDisplayPowerReaderForTesting(std::function<DisplayPower()> reader) {
    testReader = std::move(reader);
}

void DisplayMonitor::start() {
    if (timer->isActive())
        return;
    connection = X11Connection::open();
    last = read();
    if (*last == DisplayPower::Unknown)
        qDebug().noquote()
            << "Note: the display's power is unknown without DPMS; no display notifications are "
               "posted until it is known";
    timer->start();
}

void DisplayMonitor::stop() {
    timer->stop();
    last.reset();
    connection.reset();
}

DisplayPower DisplayMonitor::read() {
    if (testReader)
        return testReader();
    // A server that went away took its DPMS with it.
    return readDisplayPower(connection && !connection->isLost() ? connection->display() : nullptr);
}

void DisplayMonitor::lookNow() {
    if (!last)
        return;
    const DisplayPower now = read();
    const DisplayPower before = std::exchange(*last, now);
    if (now == before || now == DisplayPower::Unknown || before == DisplayPower::Unknown)
        return;
    const NSNotificationName name = now == DisplayPower::Awake ? NSWorkspaceScreensDidWakeNotification
                                                               : NSWorkspaceScreensDidSleepNotification;
    NSWorkspace::sharedWorkspace()->notificationCenter()->postNotification(NSNotification{name, {}});
}
