#pragma once

// A private headless desktop for the tests of the live desktop: an X server (Xvfb) on a display
// of its own choosing and, when asked for, a window manager (openbox, with a configuration of the
// session's own) and a session bus with the accessibility bus on it. The
// test's applications run there, and so can the test's own Xlib and accessibility calls, without
// ever meeting the desktop of the user who runs the tests.
//
// Every process of the session runs in the test's private temporary directory, in a process
// group of its own, and dies with the test program. The destructor ends them in reverse order of
// their start, together with what they started in turn, and reaps them.

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QProcess;

class LiveDesktopSession {
public:
    enum class Bus { None, Accessibility };
    // Openbox: a small window manager that follows the EWMH standard runs on the display.
    enum class WindowManager { None, Openbox };

    // Starts everything at once; see isReady(). A window manager that is not installed, or that
    // has not announced itself on the root window in time, makes the session not ready.
    explicit LiveDesktopSession(Bus bus = Bus::None, WindowManager windowManager = WindowManager::None);
    ~LiveDesktopSession();
    LiveDesktopSession(const LiveDesktopSession&) = delete;
    LiveDesktopSession& operator=(const LiveDesktopSession&) = delete;

    // False when a part could not be started; skipReason() then says which and why, for QSKIP.
    bool isReady() const { return failure.isEmpty(); }
    const QString& skipReason() const { return failure; }

    // The X display, ":<number>".
    const QString& display() const { return displayName; }
    // For the applications of the session: its display and buses, accessibility turned on, and
    // nothing that would lead a toolkit to the user's own desktop (Wayland, another bus).
    QProcessEnvironment environment() const { return env; }
    // Puts environment() into this process, for libatspi and Xlib calls made by the test itself;
    // the destructor restores what was there before.
    void applyToThisProcess();

    // Started with environment() and the variables of `extra` over it; ended by the destructor.
    // The caller checks that it started.
    QProcess* startApplication(const QString& program, const QStringList& arguments = {},
                               const QProcessEnvironment& extra = {});

    // Polls the condition, processing events in between; false when it is still false after the
    // time-out.
    static bool waitUntil(const std::function<bool()>& condition, int timeoutMs = 20000);

private:
    struct Child {
        std::unique_ptr<QProcess> process;
        qint64 group = 0; // its pid, which is also the id of its process group; 0 when it did not start
    };

    QProcess* start(const QString& program, const QStringList& arguments, int deathSignal,
                    const QProcessEnvironment& extra = {});
    QProcess* startService(const QString& name, const QString& program, const QStringList& arguments);
    bool startXServer();
    bool startOpenbox();
    bool startBuses();
    // dbus-send on the session bus, or on the bus at busAddress.
    std::optional<QByteArray> callSessionBus(const QStringList& arguments,
                                             const QString& busAddress = {}) const;
    void reapOrphans();
    bool fail(const QString& reason);
    void setVariable(const QString& name, const std::optional<QString>& value);

    QString workingDirectory;
    QString displayName;
    QString failure;
    QProcessEnvironment env;
    QStringList variables; // set or removed in env, compared with this process's environment
    QList<QPair<QByteArray, std::optional<QByteArray>>> savedVariables;
    std::vector<Child> children; // in order of start
    bool wasSubreaper = false;
};
