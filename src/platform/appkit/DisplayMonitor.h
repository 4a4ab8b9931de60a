#pragma once

// The source of the workspace's notifications of the display on Linux. While anyone observes them
// it looks at the display's power (session/DisplayPower.h) every pollIntervalMs, the X server
// telling no changes of its own, and posts NSWorkspaceScreensDidSleepNotification when the
// display went from awake to asleep and NSWorkspaceScreensDidWakeNotification for the way back.
// The looks and the notifications happen on the thread of the QCoreApplication, the main queue,
// after a first look taken when watching starts, which tells nothing. Where the X server has no
// DPMS the display's state is unknown and nothing is posted; a note in the log says so.

#include "session/DisplayPower.h"
#include "x11/X11Connection.h"

#include <QObject>

#include <functional>
#include <memory>
#include <optional>

class QTimer;

class DisplayMonitor : public QObject {
    Q_OBJECT

public:
    static constexpr int pollIntervalMs = 1000;

    static DisplayMonitor& instance();

    // Called by the workspace's notification centre as the first observer of the display's
    // notifications comes and the last goes. Without a QCoreApplication nothing is watched.
    void setWatching(bool watching);
    // Looks now, on the calling thread, and posts what changed.
    void lookNow();
    // Reads the display's power from this function instead of the X server; empty goes back.
    void setDisplayPowerReaderForTesting(std::function<DisplayPower()> reader);

private:
    DisplayMonitor();
    ~DisplayMonitor() override;
    void start();
    void stop();
    DisplayPower read();

    QTimer* timer;
    std::unique_ptr<X11Connection> connection;
    std::function<DisplayPower()> testReader;
    std::optional<DisplayPower> last;
};
