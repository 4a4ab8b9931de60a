// What the live desktop tells about processes: desktop entries and /proc.

#include "appkit/DesktopEntries.h"
#include "atspi/LiveProcesses.h"
#include "testSupport.h"

#include <QFileInfo>

#include <unistd.h>

class TestLiveProcesses : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void desktopEntries_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("name");
        QTest::newRow("plain") << QByteArray(
                                      "[Desktop Entry]\nName=Widget Factory\nExec=gtk3-widget-factory\n")
                               << "gtk3-widget-factory"
                               << "Widget Factory";
        QTest::newRow("path and field codes")
            << QByteArray("[Desktop Entry]\nExec=/usr/bin/editor --new %U\nName=Editor\n") << "editor"
            << "Editor";
        QTest::newRow("env and assignments")
            << QByteArray("[Desktop Entry]\nExec=env LANG=C GDK_BACKEND=\"x11 wayland\" /opt/mix/mixer\n")
            << "mixer"
            << "";
        QTest::newRow("quoted path with a blank")
            << QByteArray("[Desktop Entry]\nExec=\"/opt/My App/run\" %f\n") << "run"
            << "";
        QTest::newRow("TryExec wins")
            << QByteArray("[Desktop Entry]\nTryExec=/usr/bin/real\nExec=wrapper real\n") << "real"
            << "";
        QTest::newRow("other groups do not count")
            << QByteArray("[Desktop Action new]\nExec=other\nName=New\n[Desktop Entry]\nName=Main\n") << ""
            << "Main";
        QTest::newRow("env alone") << QByteArray("[Desktop Entry]\nExec=env A=1\n") << ""
                                   << "";
        QTest::newRow("no group") << QByteArray("Exec=loose\n") << ""
                                  << "";
        QTest::newRow("CRLF and blanks")
            << QByteArray("[Desktop Entry]\r\n  Name = Spaced \r\nExec= spaced-app\r\n") << "spaced-app"
            << "Spaced";
        QTest::newRow("localized names are not the name")
            << QByteArray("[Desktop Entry]\nName[de]=Fabrik\nName=Factory\nExec=factory\n") << "factory"
            << "Factory";
    }

    void desktopEntries() {
        QFETCH(QByteArray, content);
        QFETCH(QString, program);
        QFETCH(QString, name);
        DesktopEntry entry;
        QCOMPARE(parseDesktopEntry(content, &entry), !program.isEmpty());
        QCOMPARE(entry.program, program);
        QCOMPARE(entry.name, name);
    }

    // Entries with a program that stand for no application.
    void notApplications_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("link") << QByteArray("[Desktop Entry]\nType=Link\nExec=app\nURL=http://x\n");
        QTest::newRow("hidden") << QByteArray("[Desktop Entry]\nExec=app\nHidden=true\n");
        QTest::newRow("directory") << QByteArray("[Desktop Entry]\nType=Directory\nExec=app\n");
    }

    void notApplications() {
        QFETCH(QByteArray, content);
        DesktopEntry entry;
        QVERIFY(!parseDesktopEntry(content, &entry));
        QCOMPARE(entry.program, QStringLiteral("app"));
    }

    void iconAndTextDomain() {
        DesktopEntry entry;
        QVERIFY(parseDesktopEntry("[Desktop Entry]\nExec=app\nIcon=app-icon\nX-GNOME-Gettext-Domain=app-2\n"
                                  "[Desktop Action x]\nIcon=other\n",
                                  &entry));
        QCOMPARE(entry.icon, QStringLiteral("app-icon"));
        QCOMPARE(entry.gettextDomain, QStringLiteral("app-2"));
    }

    // This test program has no desktop entry: its executable's name stands in for both.
    void aProcessWithoutEntry() {
        const ApplicationInfo info = describeLiveProcess(getpid(), QStringLiteral("given name"));
        QCOMPARE(info.pid, getpid());
        QCOMPARE(info.executablePath, QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath());
        QCOMPARE(info.bundleIdentifier, QStringLiteral("tst_liveProcesses"));
        QCOMPARE(info.name, QStringLiteral("given name"));
        QCOMPARE(describeLiveProcess(getpid(), QString()).name, QStringLiteral("tst_liveProcesses"));
    }
};

UIET_TEST_MAIN(TestLiveProcesses)
#include "tst_liveProcesses.moc"
