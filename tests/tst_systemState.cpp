// The user's session and the display: logind through a stand-in on a private system bus
// (python3-dbusmock's logind template), the display's power through a stand-in for DPMS, and
// waking the display on a private X server.

#include "liveDesktopSession.h"
#include "platformTestSupport.h"
#include "systemState.h"
#include "testSupport.h"

#include "appkit/DisplayMonitor.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

#include <memory>
#include <unistd.h>

// After Qt: Xlib defines Bool and Status.
#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>

namespace {

const QString kLogind = QStringLiteral("org.freedesktop.login1");
const QString kOwnSession = QStringLiteral("/org/freedesktop/login1/session/c1");

struct Call {
    bool value;
    bool onMainThread;
};

// What a registration's callback was called with, and where.
struct Recorder {
    QList<Call> calls;
    std::function<void(bool)> callback() {
        return [this](bool value) {
            calls.append({value, QThread::currentThread() == QCoreApplication::instance()->thread()});
        };
    }
};

} // namespace

class TestSystemState : public QObject, private LiveObjectCheck {
    Q_OBJECT

    QTemporaryDir home;
    std::vector<std::unique_ptr<QProcess>> services;
    QString systemBus;

    QProcess* startService(const QString& program, const QStringList& arguments) {
        services.push_back(std::make_unique<QProcess>());
        QProcess* service = services.back().get();
        service->start(program, arguments);
        return service->waitForStarted() ? service : nullptr;
    }

    // gdbus on the private system bus; false when the call fails.
    bool callLogind(const QString& path, const QString& method, const QStringList& arguments = {}) {
        QProcess gdbus;
        gdbus.start(QStringLiteral("gdbus"),
                    QStringList{QStringLiteral("call"), QStringLiteral("--system"), QStringLiteral("--dest"),
                                kLogind, QStringLiteral("--object-path"), path, QStringLiteral("--method"),
                                method} +
                        arguments);
        return gdbus.waitForFinished(20000) && gdbus.exitStatus() == QProcess::NormalExit &&
               gdbus.exitCode() == 0;
    }
    bool setOwnSession(const QString& properties) {
        return callLogind(kOwnSession, QStringLiteral("org.freedesktop.DBus.Mock.UpdateProperties"),
                          {QStringLiteral("org.freedesktop.login1.Session"), properties});
    }
    bool setLocked(bool locked) {
        return callLogind(kOwnSession, QStringLiteral("org.freedesktop.login1.Session.SetLockedHint"),
                          {locked ? QStringLiteral("true") : QStringLiteral("false")});
    }

    static void expectCall(const Recorder& recorder, int count, bool value) {
        QTRY_COMPARE_WITH_TIMEOUT(recorder.calls.size(), count, 20000);
        QCOMPARE(recorder.calls.last().value, value);
        QVERIFY(recorder.calls.last().onMainThread);
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(home.isValid());
        qputenv("HOME", home.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", home.filePath(QStringLiteral("config")).toUtf8());
        if (!QFile::exists(QStringLiteral("/usr/bin/python3")) ||
            QStandardPaths::findExecutable(QStringLiteral("gdbus")).isEmpty())
            QSKIP("python3-dbusmock and gdbus are needed (Debian packages python3-dbusmock, libglib2.0-bin)");
        QProcess* bus = startService(QStringLiteral("dbus-daemon"),
                                     {QStringLiteral("--session"), QStringLiteral("--nofork"),
                                      QStringLiteral("--print-address=1"),
                                      QStringLiteral("--address=unix:dir=") + home.path()});
        QVERIFY(bus);
        QTRY_VERIFY_WITH_TIMEOUT(bus->canReadLine(), 20000);
        systemBus = QString::fromUtf8(bus->readLine().trimmed());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", systemBus.toUtf8());
        QVERIFY(startService(QStringLiteral("/usr/bin/python3"),
                             {QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--template"),
                              QStringLiteral("logind")}));
        // The mock answers once it owns the name; until then AddSession fails. (The condition is
        // evaluated once more after it held: the session is added once.)
        bool added = false;
        QTRY_VERIFY_WITH_TIMEOUT(
            added ||
                (added = callLogind(QStringLiteral("/org/freedesktop/login1"),
                                    QStringLiteral("org.freedesktop.DBus.Mock.AddSession"),
                                    {QStringLiteral("c1"), QStringLiteral("seat0"), QString::number(getuid()),
                                     QStringLiteral("me"), QStringLiteral("true")})),
            20000);
        qputenv("XDG_SESSION_ID", "c1");
    }

    void cleanupTestCase() {
        for (auto it = services.rbegin(); it != services.rend(); ++it) {
            (*it)->kill();
            (*it)->waitForFinished();
        }
    }

    void init() { noteLiveObjects(); }
    void cleanup() { checkLiveObjects(); }

    void sessionChangesReachTheCallback() {
        Recorder first;
        const auto registration = registerForUserSessionNotifications(first.callback());
        QVERIFY(setLocked(true));
        expectCall(first, 1, false);
        QVERIFY(setLocked(false));
        expectCall(first, 2, true);
        // Another session comes in front on the seat.
        QVERIFY(callLogind(QStringLiteral("/org/freedesktop/login1"),
                           QStringLiteral("org.freedesktop.DBus.Mock.AddSession"),
                           {QStringLiteral("c2"), QStringLiteral("seat0"), QStringLiteral("4242"),
                            QStringLiteral("other"), QStringLiteral("true")}));
        QVERIFY(setOwnSession(QStringLiteral("{'Active': <false>}")));
        expectCall(first, 3, false);
        QVERIFY(setOwnSession(QStringLiteral("{'Active': <true>}")));
        expectCall(first, 4, true);

        // After unregistering nothing more comes: a later registration sees the next change alone.
        unregisterForUserSessionNotifications(registration);
        QVERIFY(setLocked(true));
        Recorder second;
        const auto again = registerForUserSessionNotifications(second.callback());
        QVERIFY(setLocked(false));
        expectCall(second, 1, true);
        QCOMPARE(first.calls.size(), 4);
        unregisterForUserSessionNotifications(again);
        unregisterForUserSessionNotifications(nullptr);
    }

    void consoleUser_data() {
        QTest::addColumn<QString>("activeSession");
        QTest::addColumn<bool>("ours");
        QTest::newRow("this user's session")
            << "('c1', objectpath '/org/freedesktop/login1/session/c1')" << true;
        QTest::newRow("another user's session")
            << "('c2', objectpath '/org/freedesktop/login1/session/c2')" << false;
        QTest::newRow("no active session") << "('', objectpath '/')" << false;
    }
    void consoleUser() {
        QFETCH(QString, activeSession);
        QFETCH(bool, ours);
        QVERIFY(callLogind(QStringLiteral("/org/freedesktop/login1/seat/seat0"),
                           QStringLiteral("org.freedesktop.DBus.Properties.Set"),
                           {QStringLiteral("org.freedesktop.login1.Seat"), QStringLiteral("ActiveSession"),
                            QStringLiteral("<%1>").arg(activeSession)}));
        QCOMPARE(applicationIsRunningInActiveUserSession(), ours);
    }

    void withoutLogindTheSessionIsActive() {
        const QByteArray bus = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + home.filePath(QStringLiteral("no-bus")).toUtf8());
        QTest::ignoreMessage(QtDebugMsg,
                             "Note: systemd-logind cannot be reached; the user of this process counts as "
                             "the console user");
        QVERIFY(applicationIsRunningInActiveUserSession());
        QTest::ignoreMessage(QtDebugMsg,
                             "Note: systemd-logind knows no session of this process; the user's session "
                             "counts as active, and no session notifications are posted");
        Recorder recorder;
        unregisterForUserSessionNotifications(registerForUserSessionNotifications(recorder.callback()));
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus);
    }

    // DPMS through a stand-in: Xvfb has none, and an X server with it is not at hand.
    void displayPowerReachesTheCallback() {
        DisplayPower power = DisplayPower::Awake;
        DisplayMonitor& monitor = DisplayMonitor::instance();
        monitor.setDisplayPowerReaderForTesting([&power] { return power; });
        Recorder recorder;
        const auto registration = registerForDisplaySleepNotifications(recorder.callback());
        QCoreApplication::processEvents();
        const struct {
            DisplayPower power;
            int calls;
            bool awake;
        } steps[] = {{DisplayPower::Asleep, 1, false}, {DisplayPower::Asleep, 1, false},
                     {DisplayPower::Awake, 2, true},   {DisplayPower::Unknown, 2, true},
                     {DisplayPower::Awake, 2, true},   {DisplayPower::Asleep, 3, false}};
        for (const auto& step : steps) {
            power = step.power;
            monitor.lookNow();
            QCOMPARE(recorder.calls.size(), step.calls);
            QCOMPARE(recorder.calls.last().value, step.awake);
            QVERIFY(recorder.calls.last().onMainThread);
        }
        unregisterForDisplaySleepNotifications(registration);
        QCoreApplication::processEvents();
        power = DisplayPower::Awake;
        monitor.lookNow();
        QCOMPARE(recorder.calls.size(), 3);
        monitor.setDisplayPowerReaderForTesting({});
    }

    void wakeDisplayResetsTheIdleTime() {
        LiveDesktopSession session;
        if (!session.isReady())
            QSKIP(qPrintable(session.skipReason()));
        session.applyToThisProcess();
        Display* display = XOpenDisplay(nullptr);
        QVERIFY(display);
        QCOMPARE(readDisplayPower(display), DisplayPower::Unknown);
        XScreenSaverInfo* info = XScreenSaverAllocInfo();
        const auto idleMs = [&] {
            XScreenSaverQueryInfo(display, DefaultRootWindow(display), info);
            return info->idle;
        };
        QTRY_VERIFY_WITH_TIMEOUT(idleMs() >= 500, 20000);
        const unsigned long before = idleMs();
        wakeDisplay();
        QVERIFY(idleMs() < before);
        XFree(info);
        XCloseDisplay(display);
    }
};

UIET_TEST_MAIN(TestSystemState)
#include "tst_systemState.moc"
