#pragma once

// The source of the workspace's notifications of the user's session on Linux. While anyone
// observes them it watches this process's session in systemd-logind (session/Logind.h) and posts
// NSWorkspaceSessionDidBecomeActiveNotification when the session becomes active (in front on its
// seat and unlocked) and NSWorkspaceSessionDidResignActiveNotification when it stops being so:
// switched away from, or locked. They are posted on the main queue, the thread of the
// QCoreApplication. Without logind (a container, CI) the session counts as active and nothing is
// posted; a note in the log says so.

#include <QMutex>

#include <memory>

class LogindSessionWatch;

class SessionMonitor {
public:
    static SessionMonitor& instance();

    // Called by the workspace's notification centre as the first observer of the session's
    // notifications comes and the last goes.
    void setWatching(bool watching);

private:
    SessionMonitor();
    ~SessionMonitor();

    QMutex mutex;
    std::unique_ptr<LogindSessionWatch> watch;
};
