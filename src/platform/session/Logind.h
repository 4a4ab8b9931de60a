#pragma once

// The user's session as systemd-logind tells it on the system bus (org.freedesktop.login1).
//
// This process's session is the one of $XDG_SESSION_ID, else the one logind finds by this
// process's id. It counts as active while it is in front on its seat (Active) and not locked
// (LockedHint): a locked session is one the user cannot work in, like one in the background.

#include "dbus/DBusCalls.h"

#include <QByteArray>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <sys/types.h>
#include <thread>

inline constexpr int logindTimeoutMs = 2000;

// The user of seat0's active session.
struct LogindConsoleUser {
    // False: logind cannot be reached.
    bool reachable = false;
    // False: the seat has no active session.
    bool present = false;
    uid_t uid = 0;
};
LogindConsoleUser logindConsoleUser();

// Watches this process's session on a thread of its own, and tells of every change of whether it
// is active, on that thread.
class LogindSessionWatch {
public:
    // Null when logind cannot be reached or knows no session of this process; the current state
    // is then unknown.
    static std::unique_ptr<LogindSessionWatch> start(std::function<void(bool active)> changed);
    ~LogindSessionWatch();
    LogindSessionWatch(const LogindSessionWatch&) = delete;
    LogindSessionWatch& operator=(const LogindSessionWatch&) = delete;

    bool isActive() const { return active; }

private:
    LogindSessionWatch() = default;
    void run();
    std::optional<bool> readActive();

    DBusConnectionPtr connection;
    QByteArray sessionPath;
    std::function<void(bool)> changed;
    std::atomic<bool> active{false};
    std::atomic<bool> stopping{false};
    std::thread thread;
};
