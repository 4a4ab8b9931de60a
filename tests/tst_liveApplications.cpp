// Applications and processes on a real desktop: GTK applications on a private headless desktop
// with a window manager (openbox). Who is in front follows the window manager's active window,
// and the notifications of changes in front and of applications that start and quit come from the
// real desktop.

#include "liveTestSupport.h"
#include "testSupport.h"

#include "appkit/NSWorkspace.h"
#include "applications.h"
#include "osxProcesses.h"
#include "osxRunningApplications.h"

#include <QProcess>
#include <QScopeGuard>
#include <QStandardPaths>

namespace {

using Told = QList<QPair<QString, bool>>;

const QString factoryId = QStringLiteral("gtk3-widget-factory");
const QString demoId = QStringLiteral("gtk3-demo");
const QString browserId = QStringLiteral("gtk3-icon-browser");

// Whether the application of this identifier is in front, by the window manager's word.
bool inFront(const QString& id) {
    return applicationIdentifierOfFrontmostApp() == id;
}

} // namespace

class TestLiveApplications : public QObject, private LiveDesktopTestBase {
    Q_OBJECT

    pid_t factoryPid = 0;
    pid_t demoPid = 0;

private Q_SLOTS:
    void initTestCase() {
        for (const QString& program : {factoryId, demoId, browserId})
            if (QStandardPaths::findExecutable(program).isEmpty())
                QSKIP("the GTK 3 examples are not installed (Debian package gtk-3-examples)");
        QString problem;
        if (!openSession(&problem, LiveDesktopSession::WindowManager::Openbox))
            QSKIP(qPrintable(problem));
        QProcess* demo = session->startApplication(demoId);
        QVERIFY(demo && demo->waitForStarted());
        demoPid = pid_t(demo->processId());
        QProcess* factory = startWatchedApplication(factoryId, "AXRadioButton", "Page 1", &problem);
        QVERIFY2(factory, qPrintable(problem));
        factoryPid = pid_t(factory->processId());
        QVERIFY2(LiveDesktopSession::waitUntil([&] { return applicationIsRunning(demoId); },
                                               applicationStartTimeoutMs),
                 "gtk3-demo does not come up on the bus");
    }

    void cleanupTestCase() { closeSession(); }

    void identifiersNamesAndPaths() {
        QCOMPARE(applicationIdentifierForPid(factoryPid), factoryId);
        QCOMPARE(applicationNameForPid(factoryPid), QStringLiteral("Widget Factory"));
        QCOMPARE(pathOfRunningApplicationWithIdentifier(factoryId),
                 QStandardPaths::findExecutable(factoryId));
        const QString entry = applicationPathForIdentifier(factoryId);
        QVERIFY2(entry.endsWith(QLatin1String("/applications/gtk3-widget-factory.desktop")),
                 qPrintable(entry));
        QCOMPARE(applicationIdentifierForPath(entry), factoryId);
        QCOMPARE(applicationNameForIdentifier(factoryId, QString(), nullptr),
                 QStringLiteral("Widget Factory"));
        QCOMPARE(findApplicationByName(QStringLiteral("Widget Factory")), entry);
        // Other tests may run a widget factory of their own at the same time.
        QList<int> factories;
        getAllPIDsForProcessNameRunByCurrentUser(factories, "gtk3-widget-factory");
        QVERIFY(factories.contains(int(factoryPid)));
        QVERIFY(factories.contains(getPIDForProcessNameRunByCurrentUser("gtk3-widget-factory")));
    }

    // The front moves with the window manager's active window, and each move is told.
    void frontmostApplication() {
        Told told;
        auto data = registerForFrontAppChangedNotifications([&](const QString& id, bool state) {
            told.append({id, state});
        });
        const auto unregister = qScopeGuard([&] { unregisterForFrontAppChangedNotifications(data); });
        for (const auto& [id, other] : {std::pair{demoId, factoryId}, std::pair{factoryId, demoId}}) {
            told.clear();
            QVERIFY(activateApplication(getRunningApplicationForBundleId(id), true, true));
            QVERIFY2(LiveDesktopSession::waitUntil([&] { return inFront(id); }), qPrintable(id));
            QTRY_VERIFY2(told.contains({id, true}), qPrintable(id));
            QTRY_VERIFY2(told.contains({other, false}), qPrintable(id));
            QVERIFY(told.indexOf({other, false}) < told.indexOf({id, true}));
            const QList<int> pids = allRunningGUIApplicationsPids();
            QCOMPARE(pids.value(0), focusedApplication());
            QCOMPARE(pids.count(focusedApplication()), 1);
            QVERIFY(pids.contains(int(factoryPid)) && pids.contains(int(demoPid)));
        }
    }

    // A real application that starts and quits, told by its identifier; the process table finds
    // it by its full name, which is longer than the kernel keeps.
    void launchAndQuit() {
        Told told;
        auto data = registerForAppRunningNotifications([&](const QString& id, bool state) {
            told.append({id, state});
        });
        auto unregister = qScopeGuard([&] { unregisterForAppRunningNotifications(data); });
        QProcess* browser = session->startApplication(browserId);
        QVERIFY(browser && browser->waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(told.contains({browserId, true}), applicationStartTimeoutMs);
        QCOMPARE(getPIDForProcessNameRunByCurrentUser("gtk3-icon-browser"), int(browser->processId()));
        QVERIFY(applicationIsRunning(browserId));
        browser->terminate();
        QTRY_VERIFY_WITH_TIMEOUT(told.contains({browserId, false}), 20000);
        QVERIFY(told.indexOf({browserId, true}) < told.indexOf({browserId, false}));
        QVERIFY(!applicationIsRunning(browserId));
        unregister.dismiss();
        unregisterForAppRunningNotifications(data);
        QCOMPARE(NSWorkspace::sharedWorkspace()->notificationCenter()->observerCount(), 0);
    }
};

UIET_TEST_MAIN(TestLiveApplications)
#include "tst_liveApplications.moc"
