// Applications by identifier, path and name over installed desktop entries in a private data
// directory; running applications, the frontmost one and the notifications of their changes on
// the virtual desktop.

#include "appkit/DesktopEntries.h"
#include "appkit/NSWorkspace.h"
#include "appkit/WorkspaceMonitor.h"
#include "applications.h"
#include "platformTestSupport.h"
#include "platformTime.h"
#include "testSupport.h"
#include "virtual/VirtualDesktop.h"

#include <QDir>
#include <QFile>
#include <QImage>

namespace {

void writeFile(const QString& path, const QByteArray& content, bool executable = false) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(content);
    file.close();
    if (executable)
        file.setPermissions(file.permissions() | QFile::ExeOwner);
}

QByteArray application(int pid, const char* bundleId, bool active = false, bool accessory = false,
                       const char* name = "App") {
    return QStringLiteral(R"({"pid": %1, "bundleId": "%2", "name": "%3", "executable": "/opt/%2/bin/run",
                              "active": %4, "accessory": %5})")
        .arg(pid)
        .arg(QLatin1String(bundleId), QLatin1String(name), QLatin1String(active ? "true" : "false"),
             QLatin1String(accessory ? "true" : "false"))
        .toUtf8();
}

QByteArray desktopOf(const QList<QByteArray>& applications) {
    QByteArray json = R"({"applications": [)";
    for (qsizetype i = 0; i < applications.size(); ++i)
        json += (i ? "," : "") + applications[i];
    return json + "]}";
}

// Every (identifier, state) a callback was told, in order.
using Told = QList<QPair<QString, bool>>;

} // namespace

class TestApplications : public QObject, VirtualDesktopTestBase {
    Q_OBJECT

    QString data, system, bin;

    QString installed(const QString& relative) const {
        return data + QStringLiteral("/applications/") + relative;
    }

private Q_SLOTS:
    void initTestCase() {
        const QString root = QDir::tempPath();
        data = root + QStringLiteral("/data");
        system = root + QStringLiteral("/system");
        bin = root + QStringLiteral("/bin");
        qputenv("XDG_DATA_HOME", data.toLocal8Bit());
        qputenv("XDG_DATA_DIRS", system.toLocal8Bit());
        qputenv("PATH", (bin + QStringLiteral(":/usr/bin:/bin")).toLocal8Bit());
        writeFile(installed("mixer.desktop"), "[Desktop Entry]\nName=Mixer\nExec=/opt/mix/mixer %U\n");
        writeFile(system + "/applications/mixer.desktop", "[Desktop Entry]\nName=Old Mixer\nExec=oldmixer\n");
        writeFile(installed("kde/editor.desktop"), "[Desktop Entry]\nName=Editor\nExec=env A=1 editor\n");
        writeFile(installed("nameless.desktop"), "[Desktop Entry]\nExec=nameless-run\n");
        writeFile(installed("removed.desktop"), "[Desktop Entry]\nName=Removed\nExec=removed\nHidden=true\n");
        writeFile(system + "/applications/removed.desktop", "[Desktop Entry]\nName=Removed\nExec=removed\n");
        writeFile(bin + "/plain-tool", "#!/bin/sh\n", true);
        writeFile(bin + "/mixer", "#!/bin/sh\n", true);
        rescanDesktopEntriesForTesting();
    }

    void cleanup() { setMachAbsoluteTimeForTesting({}); }

    void pathsForIdentifiers_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("path");
        QTest::newRow("entry of the first data directory") << "mixer" << installed("mixer.desktop");
        QTest::newRow("entry in a subfolder") << "kde-editor" << installed("kde/editor.desktop");
        QTest::newRow("executable on PATH") << "plain-tool" << bin + "/plain-tool";
        QTest::newRow("hidden in the first directory") << "removed"
                                                       << "";
        QTest::newRow("unknown") << "org.example.None"
                                 << "";
        QTest::newRow("Finder") << "com.apple.finder"
                                << "/System/Library/CoreServices/Finder.app";
        QTest::newRow("Finder in other case") << "com.apple.Finder"
                                              << "";
        QTest::newRow("a path is no identifier") << "/bin/sh"
                                                 << "";
    }

    void pathsForIdentifiers() {
        QFETCH(QString, id);
        QFETCH(QString, path);
        QCOMPARE(applicationPathForIdentifier(id), path);
        QCOMPARE(cachedApplicationWithIdentifierExists(id), !path.isEmpty());
    }

    void identifiersForPaths_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("id");
        QTest::newRow("installed entry") << installed("kde/editor.desktop") << "kde-editor";
        QTest::newRow("executable of an entry's program") << bin + "/mixer"
                                                          << "mixer";
        QTest::newRow("executable without entry") << bin + "/plain-tool"
                                                  << "plain-tool";
        QTest::newRow("missing file") << bin + "/none"
                                      << "";
        QTest::newRow("a file that is no application") << data + "/applications"
                                                       << "";
    }

    void identifiersForPaths() {
        QFETCH(QString, path);
        QFETCH(QString, id);
        QCOMPARE(applicationIdentifierForPath(path), id);
    }

    void byName_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("id");
        QTest::newRow("Name") << "Editor" << installed("kde/editor.desktop") << "kde-editor";
        QTest::newRow("Name in other case") << "MIXER" << installed("mixer.desktop") << "mixer";
        QTest::newRow("id with .desktop")
            << "kde-editor.desktop" << installed("kde/editor.desktop") << "kde-editor";
        QTest::newRow("executable") << "plain-tool" << bin + "/plain-tool"
                                    << "plain-tool";
        QTest::newRow("shadowed Name") << "Old Mixer"
                                       << ""
                                       << "";
        QTest::newRow("empty") << ""
                               << ""
                               << "";
    }

    void byName() {
        QFETCH(QString, name);
        QFETCH(QString, path);
        QFETCH(QString, id);
        QCOMPARE(findApplicationByName(name), path);
        QCOMPARE(applicationIdentifierForAppName(name), id);
    }

    void namesForIdentifiers_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("found");
        QTest::newRow("Name") << "mixer"
                              << "Mixer" << true;
        QTest::newRow("no Name: the program") << "nameless"
                                              << "nameless-run" << true;
        QTest::newRow("executable: its name") << "plain-tool"
                                              << "plain-tool" << true;
        QTest::newRow("unknown: the fallback") << "org.example.None"
                                               << "fallback" << false;
    }

    void namesForIdentifiers() {
        QFETCH(QString, id);
        QFETCH(QString, name);
        QFETCH(bool, found);
        bool told = !found;
        QCOMPARE(applicationNameForIdentifier(id, QStringLiteral("fallback"), &told), name);
        QCOMPARE(told, found);
        QCOMPARE(applicationNameForIdentifier(id, QStringLiteral("fallback"), nullptr), name);
    }

    // A path is trusted for a minute from its lookup, to the nanosecond; an empty answer is asked
    // for again at once.
    void pathCache() {
        quint64 now = 1000000000000;
        setMachAbsoluteTimeForTesting([&] { return now; });
        const QString entry = installed("late.desktop");
        QCOMPARE(cachedApplicationPathForIdentifier("late"), QString());
        writeFile(entry, "[Desktop Entry]\nName=Late\nExec=late\n");
        rescanDesktopEntriesForTesting();
        QCOMPARE(cachedApplicationPathForIdentifier("late"), entry);
        QVERIFY(QFile::remove(entry));
        rescanDesktopEntriesForTesting();
        now += 60000ull * 1000000;
        QCOMPARE(cachedApplicationPathForIdentifier("late"), entry);
        now += 1;
        QCOMPARE(cachedApplicationPathForIdentifier("late"), QString());
        QVERIFY(!cachedApplicationWithIdentifierExists("late"));
    }

    // The installed entries are looked at again when their folders change.
    void newlyInstalled() {
        QCOMPARE(applicationPathForIdentifier("fresh"), QString());
        writeFile(installed("fresh.desktop"), "[Desktop Entry]\nName=Fresh\nExec=fresh\n");
        rescanDesktopEntriesForTesting();
        QCOMPARE(applicationPathForIdentifier("fresh"), installed("fresh.desktop"));
        QCOMPARE(applicationNameForIdentifier("fresh", QString(), nullptr), QStringLiteral("Fresh"));
    }

    void runningApplications_data() {
        QTest::addColumn<QByteArray>("desktop");
        QTest::addColumn<QList<int>>("pids");
        QTest::addColumn<int>("front");
        QTest::newRow("front first") << desktopOf({application(11, "a"), application(12, "b", true),
                                                   application(13, "c")})
                                     << QList<int>{12, 11, 13} << 12;
        QTest::newRow("accessories left out")
            << desktopOf({application(11, "a", false, true), application(12, "b")}) << QList<int>{12} << 0;
        QTest::newRow("an accessory in front stays first")
            << desktopOf({application(11, "a"), application(12, "b", true, true)}) << QList<int>{12, 11}
            << 12;
        QTest::newRow("none") << desktopOf({}) << QList<int>{} << 0;
    }

    void runningApplications() {
        QFETCH(QByteArray, desktop);
        QFETCH(QList<int>, pids);
        QFETCH(int, front);
        QVERIFY(installDesktop([&](VirtualDesktop& d) { return d.load(desktop); }));
        QCOMPARE(allRunningGUIApplicationsPids(), pids);
        QCOMPARE(focusedApplication(), front);
        QCOMPARE(applicationIdentifierOfFrontmostApp(),
                 front ? applicationIdentifierForPid(front) : QString());
        uninstallDesktopAndCheckReferences();
    }

    void runningApplicationDetails() {
        QVERIFY(installDesktop([](VirtualDesktop& d) {
            return d.load(desktopOf({application(21, "org.example.one", false, false, ""),
                                     application(22, "org.example.two", false, false, "Two")}));
        }));
        QCOMPARE(applicationIdentifierForPid(22), QStringLiteral("org.example.two"));
        QCOMPARE(applicationIdentifierForPid(0), QString());
        QCOMPARE(applicationIdentifierForPid(99), QString());
        QCOMPARE(applicationNameForPid(22), QStringLiteral("Two"));
        // Without a name or a bundle: the executable's file name.
        QCOMPARE(applicationNameForPid(21), QStringLiteral("run"));
        QCOMPARE(applicationNameForPid(99), QString());
        QVERIFY(applicationIsRunning("org.example.one"));
        QVERIFY(!applicationIsRunning("org.example.three"));
        QCOMPARE(pathOfRunningApplicationWithIdentifier("org.example.two"),
                 QStringLiteral("/opt/org.example.two/bin/run"));
        QCOMPARE(pathOfRunningApplicationWithIdentifier("org.example.three"), QString());
        uninstallDesktopAndCheckReferences();
    }

    void notifications() {
        QVERIFY(installDesktop([](VirtualDesktop& d) {
            return d.load(
                desktopOf({application(31, "a", true), application(32, "b"), application(33, "c")}));
        }));
        Told front, running;
        auto frontData = registerForFrontAppChangedNotifications([&](const QString& id, bool state) {
            front.append({id, state});
        });
        auto runningData = registerForAppRunningNotifications([&](const QString& id, bool state) {
            running.append({id, state});
        });

        // Another one in front; c quits and d starts.
        QVERIFY(desktop->load(
            desktopOf({application(31, "a"), application(32, "b", true), application(34, "d")})));
        WorkspaceMonitor::instance().lookNow();
        QCOMPARE(front, (Told{{"a", false}, {"b", true}, {"c", false}}));
        QCOMPARE(running, (Told{{"d", true}, {"c", false}}));

        // The one in front quits: no deactivation of an application that is gone.
        front.clear();
        running.clear();
        QVERIFY(desktop->load(desktopOf({application(31, "a", true), application(34, "d")})));
        WorkspaceMonitor::instance().lookNow();
        QCOMPARE(front, (Told{{"a", true}, {"b", false}}));
        QCOMPARE(running, (Told{{"b", false}}));

        // Unregistered, nothing more is told, the deactivations neither.
        front.clear();
        running.clear();
        unregisterForFrontAppChangedNotifications(frontData);
        unregisterForFrontAppChangedNotifications(frontData);
        unregisterForFrontAppChangedNotifications({});
        QVERIFY(desktop->load(desktopOf({application(31, "a"), application(34, "d", true)})));
        WorkspaceMonitor::instance().lookNow();
        QCOMPARE(front, Told{});
        unregisterForAppRunningNotifications(runningData);
        QCOMPARE(NSWorkspace::sharedWorkspace()->notificationCenter()->observerCount(), 0);
        uninstallDesktopAndCheckReferences();
    }

    // Without being asked to look, the main thread's event loop tells of a change.
    void notificationsFromTheEventLoop() {
        QVERIFY(installDesktop([](VirtualDesktop& d) { return d.load(desktopOf({application(41, "a")})); }));
        Told running;
        auto data = registerForAppRunningNotifications([&](const QString& id, bool state) {
            running.append({id, state});
        });
        QVERIFY(desktop->load(desktopOf({application(41, "a"), application(42, "b")})));
        QTRY_COMPARE(running, (Told{{"b", true}}));
        unregisterForAppRunningNotifications(data);
        uninstallDesktopAndCheckReferences();
    }

    void backgroundOnly() {
        QVERIFY(!isApplicationBackgroundOnly());
        setApplicationBackgroundOnly(true);
        QVERIFY(isApplicationBackgroundOnly());
        setApplicationBackgroundOnly(true);
        QVERIFY(isApplicationBackgroundOnly());
        setApplicationBackgroundOnly(false);
        QVERIFY(!isApplicationBackgroundOnly());
        QCOMPARE(getCurrentPid(), int(QCoreApplication::applicationPid()));
    }

    // The icon of this program's own desktop entry; without one, the generic icon and a warning.
    void applicationIcon() {
        QTest::ignoreMessage(QtWarningMsg, "Error: failed to get an icon for this application");
        QVERIFY(!currentApplicationIcon().availableSizes().contains(QSize(64, 64)));

        QImage image(8, 8, QImage::Format_ARGB32);
        image.fill(Qt::red);
        const QString iconFile = QDir::tempPath() + QStringLiteral("/own-icon.png");
        QVERIFY(image.save(iconFile));
        writeFile(installed("own.desktop"),
                  "[Desktop Entry]\nName=Own\nExec=tst_applications\nIcon=" + iconFile.toUtf8() + "\n");
        rescanDesktopEntriesForTesting();
        const QIcon icon = currentApplicationIcon();
        const QList<QSize> sizes = icon.availableSizes();
        for (int size : {16, 32, 64, 256, 1024})
            QVERIFY2(sizes.contains(QSize(size, size)), qPrintable(QString::number(size)));
        QCOMPARE(icon.pixmap(QSize(16, 16)).toImage().pixelColor(4, 4), QColor(Qt::red));
    }
};

UIET_GUI_TEST_MAIN(TestApplications)
#include "tst_applications.moc"
