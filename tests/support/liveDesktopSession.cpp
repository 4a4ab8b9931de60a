#include "liveDesktopSession.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QTest>
#include <QThread>

// Xlib defines macros (None, Bool, Status...) that collide with Qt's names: after every Qt header.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <algorithm>
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kStartTimeoutMs = 30000;
constexpr int kStopTimeoutMs = 5000;
const char* const kBusLauncher = "/usr/libexec/at-spi-bus-launcher";

// Focus goes to new windows and stays where it is put, not under the pointer; one desktop. No
// autostart: openbox runs none of it unless started through openbox-session.
const char* const kOpenboxConfig = R"(<?xml version="1.0" encoding="UTF-8"?>
<openbox_config xmlns="http://openbox.org/3.4/rc">
  <focus><focusNew>yes</focusNew><followMouse>no</followMouse></focus>
  <desktops><number>1</number></desktops>
  <margins><top>0</top><bottom>0</bottom><left>0</left><right>0</right></margins>
</openbox_config>
)";

// The first line that a starting process prints once it is ready; empty when it ends or times
// out first.
QByteArray readFirstLine(QProcess* process) {
    const QDeadlineTimer deadline(kStartTimeoutMs);
    while (!process->canReadLine() && process->state() == QProcess::Running && !deadline.hasExpired())
        process->waitForReadyRead(int(deadline.remainingTime()));
    return process->canReadLine() ? process->readLine().trimmed() : QByteArray();
}

// What a process that failed to come up said last.
QString diagnosis(QProcess* process) {
    const QString state = process->state() == QProcess::NotRunning ? QStringLiteral("it ended")
                                                                   : QStringLiteral("no answer in time");
    return state + QStringLiteral("; ") +
           QString::fromLocal8Bit(process->readAllStandardError().trimmed().split('\n').last());
}

// Whether a window manager has announced itself on the root window. The check window itself is not
// read: this connection has no error handler, and a window that vanished would end the process.
bool windowManagerAnnounced(Display* display) {
    Atom type = None;
    int format = 0;
    unsigned long count = 0, bytesAfter = 0;
    unsigned char* data = nullptr;
    XGetWindowProperty(display, DefaultRootWindow(display),
                       XInternAtom(display, "_NET_SUPPORTING_WM_CHECK", False), 0, 1, False, XA_WINDOW, &type,
                       &format, &count, &bytesAfter, &data);
    if (data)
        XFree(data);
    return type == XA_WINDOW && count == 1;
}

// Whether the window manager manages windows mapped from now on. Openbox announces itself before
// it has finished starting, and a window mapped in between is never managed: the request to map it
// is dropped, and the window stays unmapped. So probe windows of this connection's own are mapped,
// one after the other, until the manager puts one into a frame of its own.
bool windowManagerManages(Display* display) {
    constexpr int probeTimeoutMs = 1000;
    const Window root = DefaultRootWindow(display);
    return LiveDesktopSession::waitUntil(
        [&] {
            const Window probe = XCreateSimpleWindow(display, root, 0, 0, 1, 1, 0, 0, 0);
            XMapWindow(display, probe);
            XSync(display, False);
            const bool managed = LiveDesktopSession::waitUntil(
                [&] {
                    Window rootReturn = None, parent = None, *children = nullptr;
                    unsigned int count = 0;
                    XQueryTree(display, probe, &rootReturn, &parent, &children, &count);
                    if (children)
                        XFree(children);
                    return parent != None && parent != root;
                },
                probeTimeoutMs);
            XDestroyWindow(display, probe);
            XSync(display, False);
            return managed;
        },
        kStartTimeoutMs);
}

} // namespace

LiveDesktopSession::LiveDesktopSession(Bus bus, WindowManager windowManager)
    : workingDirectory(QDir::tempPath()), env(QProcessEnvironment::systemEnvironment()) {
    // Bus daemons start their services through a helper that leaves them orphans: they come to
    // this process instead of to init, which reaps nothing in some containers.
    int subreaper = 0;
    wasSubreaper = prctl(PR_GET_CHILD_SUBREAPER, &subreaper) == 0 && subreaper != 0;
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    // The session bus and the accessibility bus put their sockets here, and toolkits their state.
    const QString runtimeDirectory = workingDirectory + QStringLiteral("/xdg-runtime");
    QDir().mkpath(runtimeDirectory);
    QFile::setPermissions(runtimeDirectory, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    setVariable(QStringLiteral("XDG_RUNTIME_DIR"), runtimeDirectory);
    // Without these, toolkits would reach the user's own desktop and its accessibility bus.
    for (const char* name :
         {"QT_QPA_PLATFORM", "WAYLAND_DISPLAY", "AT_SPI_BUS_ADDRESS", "DBUS_SESSION_BUS_ADDRESS"})
        setVariable(QLatin1String(name), std::nullopt);
    setVariable(QStringLiteral("GDK_BACKEND"), QStringLiteral("x11"));
    setVariable(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));
    setVariable(QStringLiteral("NO_AT_BRIDGE"), QStringLiteral("0"));
    setVariable(QStringLiteral("GTK_A11Y"), QStringLiteral("atspi"));
    setVariable(QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"), QStringLiteral("1"));
    setVariable(QStringLiteral("QT_ACCESSIBILITY"), QStringLiteral("1"));

    if (!startXServer())
        return;
    if (windowManager == WindowManager::Openbox && !startOpenbox())
        return;
    if (bus == Bus::Accessibility)
        startBuses();
}

LiveDesktopSession::~LiveDesktopSession() {
    for (auto child = children.rbegin(); child != children.rend(); ++child) {
        QProcess* process = child->process.get();
        if (process->state() == QProcess::NotRunning)
            continue;
        // The process alone first, so that it can end and reap what it started (the bus launcher
        // its bus daemon); then whatever is left of its group.
        process->terminate();
        if (!process->waitForFinished(kStopTimeoutMs))
            process->kill();
        process->waitForFinished(-1);
        if (child->group > 0) // a group of 0 would be the test program's own
            ::kill(pid_t(-child->group), SIGKILL);
    }
    reapOrphans();
    if (!wasSubreaper)
        prctl(PR_SET_CHILD_SUBREAPER, 0);
    for (const auto& [name, value] : savedVariables) {
        if (value)
            qputenv(name.constData(), *value);
        else
            qunsetenv(name.constData());
    }
}

void LiveDesktopSession::applyToThisProcess() {
    for (const QString& name : std::as_const(variables)) {
        const QByteArray key = name.toLocal8Bit();
        const bool saved = std::any_of(savedVariables.cbegin(), savedVariables.cend(),
                                       [&key](const auto& entry) { return entry.first == key; });
        if (!saved)
            savedVariables.append({key, qEnvironmentVariableIsSet(key.constData())
                                            ? std::optional<QByteArray>(qgetenv(key.constData()))
                                            : std::nullopt});
        if (env.contains(name))
            qputenv(key.constData(), env.value(name).toLocal8Bit());
        else
            qunsetenv(key.constData());
    }
}

QProcess* LiveDesktopSession::startApplication(const QString& program, const QStringList& arguments,
                                               const QProcessEnvironment& extra) {
    return start(program, arguments, SIGKILL, extra);
}

bool LiveDesktopSession::waitUntil(const std::function<bool()>& condition, int timeoutMs) {
    const QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QTest::qWait(50);
    }
    return true;
}

QProcess* LiveDesktopSession::start(const QString& program, const QStringList& arguments, int deathSignal,
                                    const QProcessEnvironment& extra) {
    children.push_back({std::make_unique<QProcess>(), 0});
    QProcess* process = children.back().process.get();
    QProcessEnvironment environment = env;
    environment.insert(extra);
    process->setProcessEnvironment(environment);
    process->setWorkingDirectory(workingDirectory);
    const pid_t parent = getpid();
    process->setChildProcessModifier([parent, deathSignal] {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, deathSignal);
        if (getppid() != parent) // the test program died before the line above
            _exit(127);
    });
    process->start(program, arguments);
    if (process->waitForStarted(kStartTimeoutMs))
        children.back().group = process->processId();
    return process;
}

// Null, with the reason noted, when the program cannot be started.
QProcess* LiveDesktopSession::startService(const QString& name, const QString& program,
                                           const QStringList& arguments) {
    if (QStandardPaths::findExecutable(program).isEmpty()) {
        fail(QStringLiteral("%1 is not installed (%2 not found)").arg(name, program));
        return nullptr;
    }
    // Terminated, not killed, when the test program dies: the bus launcher then ends its bus.
    QProcess* process = start(program, arguments, SIGTERM);
    if (process->state() == QProcess::Running)
        return process;
    fail(QStringLiteral("%1 cannot be started: %2").arg(name, process->errorString()));
    return nullptr;
}

bool LiveDesktopSession::startXServer() {
    // -noreset: the server keeps what a test set (a keymap, the root's cursor) when its last
    // client goes, and does not refuse connections while it resets.
    QProcess* server = startService(
        QStringLiteral("Xvfb"), QStringLiteral("Xvfb"),
        {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"), QStringLiteral("0"),
         QStringLiteral("1280x1024x24"), QStringLiteral("-nolisten"), QStringLiteral("tcp"),
         QStringLiteral("-noreset")});
    if (!server)
        return false;
    const QByteArray number = readFirstLine(server);
    bool isNumber = false;
    number.toUInt(&isNumber);
    if (!isNumber)
        return fail(QStringLiteral("Xvfb did not report its display: ") + diagnosis(server));
    displayName = QStringLiteral(":") + QString::fromLatin1(number);
    setVariable(QStringLiteral("DISPLAY"), displayName);
    return true;
}

bool LiveDesktopSession::startOpenbox() {
    const QString configFile = workingDirectory + QStringLiteral("/openbox-rc.xml");
    QFile config(configFile);
    if (!config.open(QIODevice::WriteOnly) || config.write(kOpenboxConfig) < 0)
        return fail(QStringLiteral("the openbox configuration cannot be written to ") + configFile);
    config.close();
    QProcess* openbox =
        startService(QStringLiteral("openbox"), QStringLiteral("openbox"),
                     {QStringLiteral("--config-file"), configFile, QStringLiteral("--sm-disable")});
    if (!openbox)
        return false;
    Display* display = XOpenDisplay(qPrintable(displayName));
    if (!display)
        return fail(QStringLiteral("the display %1 cannot be reached").arg(displayName));
    const bool announced =
        waitUntil([&] { return openbox->state() != QProcess::Running || windowManagerAnnounced(display); },
                  kStartTimeoutMs) &&
        openbox->state() == QProcess::Running && windowManagerManages(display);
    XCloseDisplay(display);
    if (!announced)
        return fail(QStringLiteral("openbox did not take the display: ") + diagnosis(openbox));
    return true;
}

bool LiveDesktopSession::startBuses() {
    QProcess* daemon =
        startService(QStringLiteral("dbus-daemon"), QStringLiteral("dbus-daemon"),
                     {QStringLiteral("--config-file=/usr/share/dbus-1/session.conf"),
                      QStringLiteral("--address=unix:dir=") + env.value(QStringLiteral("XDG_RUNTIME_DIR")),
                      QStringLiteral("--print-address=1"), QStringLiteral("--nofork")});
    if (!daemon)
        return false;
    const QByteArray address = readFirstLine(daemon);
    if (address.isEmpty())
        return fail(QStringLiteral("dbus-daemon did not report the session bus address: ") +
                    diagnosis(daemon));
    setVariable(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromLocal8Bit(address));

    if (QStandardPaths::findExecutable(QStringLiteral("dbus-send")).isEmpty())
        return fail(QStringLiteral("dbus-send is not installed"));
    QProcess* launcher = startService(QStringLiteral("at-spi-bus-launcher"), QLatin1String(kBusLauncher),
                                      {QStringLiteral("--launch-immediately")});
    if (!launcher)
        return false;

    // Asking org.a11y.Bus before the launcher owns it would start a second launcher through bus
    // activation: wait for the owner first.
    const QRegularExpression someAddress(QStringLiteral("string \"([^\"]+)\""));
    QString accessibilityBus;
    const bool reachable = waitUntil(
        [&] {
            const auto owned = callSessionBus(
                {QStringLiteral("--dest=org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                 QStringLiteral("org.freedesktop.DBus.NameHasOwner"), QStringLiteral("string:org.a11y.Bus")});
            if (!owned || !owned->contains("boolean true"))
                return false;
            const auto busAddress =
                callSessionBus({QStringLiteral("--dest=org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                                QStringLiteral("org.a11y.Bus.GetAddress")});
            const QRegularExpressionMatch match =
                busAddress ? someAddress.match(QString::fromUtf8(*busAddress)) : QRegularExpressionMatch();
            accessibilityBus = match.captured(1);
            return match.hasMatch();
        },
        kStartTimeoutMs);
    if (!reachable)
        return fail(launcher->state() == QProcess::Running
                        ? QStringLiteral("the accessibility bus was not reachable within %1 s")
                              .arg(kStartTimeoutMs / 1000)
                        : QStringLiteral("at-spi-bus-launcher ended: ") + diagnosis(launcher));
    // Accessibility on, as a user of the desktop turns it on: toolkits that read the switch then
    // expose their trees without being told by their own settings.
    if (!callSessionBus({QStringLiteral("--dest=org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                         QStringLiteral("org.freedesktop.DBus.Properties.Set"),
                         QStringLiteral("string:org.a11y.Status"), QStringLiteral("string:IsEnabled"),
                         QStringLiteral("variant:boolean:true")}))
        return fail(QStringLiteral("the accessibility of the session could not be turned on"));
    // The registry starts when it is first asked for. An application that asks first while the
    // machine is busy may give up on accessibility for good when the registry is slow to come:
    // it is asked here, before any application starts.
    const bool registryUp = waitUntil(
        [&] {
            return callSessionBus({QStringLiteral("--dest=org.a11y.atspi.Registry"),
                                   QStringLiteral("/org/a11y/atspi/accessible/root"),
                                   QStringLiteral("org.freedesktop.DBus.Peer.Ping")},
                                  accessibilityBus)
                .has_value();
        },
        kStartTimeoutMs);
    if (!registryUp)
        return fail(QStringLiteral("the accessibility registry did not answer within %1 s")
                        .arg(kStartTimeoutMs / 1000));
    return true;
}

// Reaps what the ended groups left to this process; waits a little for those still on their way.
void LiveDesktopSession::reapOrphans() {
    QSet<qint64> groups;
    for (const Child& child : children) {
        if (child.group > 0)
            groups.insert(child.group);
    }
    const QDeadlineTimer deadline(kStopTimeoutMs);
    for (bool pending = true; pending && !deadline.hasExpired();) {
        pending = false;
        for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
            QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
            if (entry.toInt() <= 0 || !stat.open(QIODevice::ReadOnly))
                continue;
            // "pid (name) state ppid pgrp ...", where the name may hold anything, ")" too.
            const QByteArray line = stat.readAll();
            const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
            if (fields.size() < 3 || !groups.contains(fields[2].toLongLong()))
                continue;
            if (fields[1].toInt() == getpid())
                waitpid(entry.toInt(), nullptr, 0); // killed above: it is dead or dying
            else
                pending = true;
        }
        if (pending)
            QThread::msleep(20);
    }
}

// The reply, or nothing when the call fails.
std::optional<QByteArray> LiveDesktopSession::callSessionBus(const QStringList& arguments,
                                                             const QString& busAddress) const {
    QProcess send;
    send.setProcessEnvironment(env);
    send.setWorkingDirectory(workingDirectory);
    const QString bus =
        busAddress.isEmpty() ? QStringLiteral("--session") : QStringLiteral("--bus=") + busAddress;
    send.start(QStringLiteral("dbus-send"),
               QStringList{bus, QStringLiteral("--print-reply"), QStringLiteral("--reply-timeout=5000")} +
                   arguments);
    if (!send.waitForFinished(kStartTimeoutMs)) {
        send.kill();
        send.waitForFinished(-1);
        return std::nullopt;
    }
    if (send.exitStatus() != QProcess::NormalExit || send.exitCode() != 0)
        return std::nullopt;
    return send.readAllStandardOutput();
}

bool LiveDesktopSession::fail(const QString& reason) {
    failure = reason;
    return false;
}

void LiveDesktopSession::setVariable(const QString& name, const std::optional<QString>& value) {
    if (value)
        env.insert(name, *value);
    else
        env.remove(name);
    if (!variables.contains(name))
        variables.append(name);
}
