#include "appkit/Foundation.h"
#include "appkit/Processes.h"
#include "osxRunningApplications.h"
#include "osxSystemVersion.h"
#include "testSupport.h"
#include "virtual/VirtualDesktop.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

namespace {

void scriptGestalt(const QVersionNumber& version) {
    setGestaltResponsesForTesting(
        QHash<OSType, SInt32>{{gestaltSystemVersionMajor, version.majorVersion()},
                              {gestaltSystemVersionMinor, version.minorVersion()},
                              {gestaltSystemVersionBugFix, version.microVersion()}});
}

// sysctl becomes a shell that prints the printf format `output` when it is asked for the product
// version as sysctl would be, and "wrong.arguments" otherwise.
void scriptSysctl(const QString& output) {
    const QString script = QStringLiteral(
        "if [ \"$1 $2\" = \"-b kern.osproductversion\" ]; then printf \"$0\"; else echo wrong.arguments; fi");
    setSysctlProgramForTesting(
        ProgramInvocation{QStringLiteral("/bin/sh"), {QStringLiteral("-c"), script, output}});
}

QJsonObject application(int pid, const QString& bundleId, bool active = false) {
    return {{"pid", pid}, {"bundleId", bundleId}, {"name", bundleId.section('.', -1)}, {"active", active}};
}

} // namespace

class TestOsxSystemVersion : public QObject {
    Q_OBJECT

private slots:
    void cleanup();

    void readsVersionThroughFallBacks_data();
    void readsVersionThroughFallBacks();
    void unansweredSysctlMeansMonterey_data();
    void unansweredSysctlMeansMonterey();
    void linuxLayerAnswersItsVersion();
    void versionIsReadOnce();
    void gates_data();
    void gates();

    void choosesAmongInstances_data();
    void choosesAmongInstances();
    void listsAllInstances();
    void activatesApplication();
    void activationFailuresAreLoggedWhenVerbose_data();
    void activationFailuresAreLoggedWhenVerbose();
    void readsBundleIdOfApplicationAtPath();
    void bundleIdFailuresAreLogged();

private:
    std::shared_ptr<VirtualDesktop> installDesktop(const QJsonArray& applications);
};

void TestOsxSystemVersion::cleanup() {
    setGestaltResponsesForTesting(std::nullopt);
    setSysctlProgramForTesting(std::nullopt);
    setAccessibilityProviderForTesting(nullptr);
}

void TestOsxSystemVersion::readsVersionThroughFallBacks_data() {
    QTest::addColumn<QVersionNumber>("gestalt");
    QTest::addColumn<QString>("sysctlOutput");
    QTest::addColumn<QVersionNumber>("expected");
    QTest::addColumn<bool>("invalid");

    // sysctl would answer 99 where it must not be asked.
    QTest::newRow("before Big Sur") << QVersionNumber(10, 15, 7) << "99.0.0" << QVersionNumber(10, 15, 7)
                                    << false;
    QTest::newRow("from 11 on") << QVersionNumber(11, 6, 0) << "99.0.0" << QVersionNumber(11, 6, 0) << false;
    QTest::newRow("10.16 with newline") << QVersionNumber(10, 16, 0) << "13.4.1\\n"
                                        << QVersionNumber(13, 4, 1) << false;
    QTest::newRow("10.17") << QVersionNumber(10, 17, 0) << "12.1.0" << QVersionNumber(12, 1, 0) << false;
    QTest::newRow("zero byte") << QVersionNumber(10, 16, 0) << "13.4.1\\000" << QVersionNumber(13, 4, 1)
                               << false;
    QTest::newRow("two parts keep bugfix")
        << QVersionNumber(10, 16, 3) << "14.2" << QVersionNumber(14, 2, 3) << false;
    QTest::newRow("one part") << QVersionNumber(10, 16, 3) << "14" << QVersionNumber(14, 16, 3) << false;
    QTest::newRow("four parts") << QVersionNumber(10, 16, 0) << "13.4.1.9" << QVersionNumber(13, 4, 1)
                                << false;
    QTest::newRow("letters") << QVersionNumber(10, 16, 0) << "abc" << QVersionNumber(10, 16, 0) << true;
    QTest::newRow("bad minor") << QVersionNumber(10, 16, 0) << "13.x.1" << QVersionNumber(10, 16, 0) << true;
    QTest::newRow("nothing") << QVersionNumber(10, 16, 0) << "" << QVersionNumber(10, 16, 0) << true;
}

void TestOsxSystemVersion::readsVersionThroughFallBacks() {
    QFETCH(QVersionNumber, gestalt);
    QFETCH(QString, sysctlOutput);
    QFETCH(QVersionNumber, expected);
    QFETCH(bool, invalid);
    scriptGestalt(gestalt);
    scriptSysctl(sysctlOutput);
    if (invalid) {
        QTest::ignoreMessage(QtDebugMsg,
                             QRegularExpression("^Error: invalid system version returned by sysctl:"));
    }
    QCOMPARE(readMacOSVersion(), expected);
}

void TestOsxSystemVersion::unansweredSysctlMeansMonterey_data() {
    QTest::addColumn<ProgramInvocation>("sysctl");
    QTest::newRow("hangs") << ProgramInvocation{"/bin/sh", {"-c", "exec sleep 30"}};
    QTest::newRow("cannot start") << ProgramInvocation{QDir::temp().filePath("no-such-sysctl"), {}};
}

void TestOsxSystemVersion::unansweredSysctlMeansMonterey() {
    QFETCH(ProgramInvocation, sysctl);
    scriptGestalt(QVersionNumber(10, 16, 0));
    setSysctlProgramForTesting(sysctl);
    QTest::ignoreMessage(QtDebugMsg, "Error: could not get macOS version using sysctl, assuming macOS 12");
    QCOMPARE(readMacOSVersion(), QVersionNumber(12, 0, 0));
}

void TestOsxSystemVersion::linuxLayerAnswersItsVersion() {
    QCOMPARE(readMacOSVersion(), QVersionNumber(kLinuxLayerMacOSVersion[0], kLinuxLayerMacOSVersion[1],
                                                kLinuxLayerMacOSVersion[2]));
}

// The only test that asks for the kept version.
void TestOsxSystemVersion::versionIsReadOnce() {
    scriptGestalt(QVersionNumber(11, 6, 2));
    QCOMPARE(getMacOSVersion(), QVersionNumber(11, 6, 2));
    scriptGestalt(QVersionNumber(13, 1, 0));
    QCOMPARE(getMacOSMajorVersionNumber(), 11);
    QCOMPARE(getMacOSMinorVersionNumber(), 6);
    QCOMPARE(getMacOSBugfixVersionNumber(), 2);
    QVERIFY(isBigSurOrLater());
    QVERIFY(!isMontereyOrLater());
    QVERIFY(!isVenturaOrLater());
}

void TestOsxSystemVersion::gates_data() {
    QTest::addColumn<QVersionNumber>("version");
    QTest::addColumn<bool>("bigSur");
    QTest::addColumn<bool>("monterey");
    QTest::addColumn<bool>("ventura");
    QTest::newRow("10.15.7") << QVersionNumber(10, 15, 7) << false << false << false;
    QTest::newRow("10.16.0") << QVersionNumber(10, 16, 0) << true << false << false;
    QTest::newRow("11.7.10") << QVersionNumber(11, 7, 10) << true << false << false;
    QTest::newRow("12.0.0") << QVersionNumber(12, 0, 0) << true << true << false;
    QTest::newRow("12.7.6") << QVersionNumber(12, 7, 6) << true << true << false;
    QTest::newRow("13.0.0") << QVersionNumber(13, 0, 0) << true << true << true;
    QTest::newRow("14.2.1") << QVersionNumber(14, 2, 1) << true << true << true;
}

void TestOsxSystemVersion::gates() {
    QFETCH(QVersionNumber, version);
    QFETCH(bool, bigSur);
    QFETCH(bool, monterey);
    QFETCH(bool, ventura);
    QCOMPARE(passesVersionGate(version, kBigSurVersion), bigSur);
    QCOMPARE(passesVersionGate(version, kMontereyVersion), monterey);
    QCOMPARE(passesVersionGate(version, kVenturaVersion), ventura);
}

std::shared_ptr<VirtualDesktop> TestOsxSystemVersion::installDesktop(const QJsonArray& applications) {
    auto desktop = std::make_shared<VirtualDesktop>();
    if (!desktop->load(QJsonObject{{"applications", applications}})) {
        return nullptr;
    }
    setAccessibilityProviderForTesting(desktop);
    return desktop;
}

void TestOsxSystemVersion::choosesAmongInstances_data() {
    QTest::addColumn<QString>("bundleId");
    QTest::addColumn<int>("pid");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("warned");
    QTest::newRow("none") << "com.example.none" << 0 << QString() << false;
    QTest::newRow("one, inactive") << "com.example.single" << 100 << "single" << false;
    QTest::newRow("active among several") << "com.example.multi" << 201 << "multi" << false;
    QTest::newRow("none active") << "com.example.idle" << 300 << "idle" << true;
}

void TestOsxSystemVersion::choosesAmongInstances() {
    QFETCH(QString, bundleId);
    QFETCH(int, pid);
    QFETCH(QString, name);
    QFETCH(bool, warned);
    QVERIFY(
        installDesktop({application(100, "com.example.single"), application(200, "com.example.multi"),
                        application(201, "com.example.multi", true), application(202, "com.example.multi"),
                        application(300, "com.example.idle"), application(301, "com.example.idle")}));
    if (warned) {
        QTest::ignoreMessage(QtInfoMsg,
                             qPrintable(QString("Warning: there is more than one instance of the "
                                                "application '%1', and none of them are frontmost. "
                                                "One will be picked arbitrarily.")
                                            .arg(bundleId)));
    }
    NSRunningApplication* chosen = getRunningApplicationForBundleId(bundleId);
    QCOMPARE(chosen, NSRunningApplication::runningApplicationWithProcessIdentifier(pid));
    if (warned) {
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression("^Warning: there is more than one instance"));
    }
    QCOMPARE(applicationPidForBundleId(bundleId), pid);
    if (warned) {
        QTest::ignoreMessage(QtInfoMsg, QRegularExpression("^Warning: there is more than one instance"));
    }
    QCOMPARE(applicationNameForBundleId(bundleId), name);
}

void TestOsxSystemVersion::listsAllInstances() {
    QVERIFY(installDesktop({application(200, "com.example.multi"), application(100, "com.example.other"),
                            application(201, "com.example.multi")}));
    QCOMPARE(applicationPidsForBundleId("com.example.multi"), QList<int>({200, 201}));
    QCOMPARE(applicationPidsForBundleId("com.example.none"), QList<int>());
}

void TestOsxSystemVersion::activatesApplication() {
    QVERIFY(installDesktop({application(100, "com.example.a", true), application(200, "com.example.b")}));
    NSRunningApplication* b = getRunningApplicationForBundleId("com.example.b");
    QVERIFY(activateApplication(b, false, true));
    QVERIFY(b->isActive());
    QVERIFY(!NSRunningApplication::runningApplicationWithProcessIdentifier(100)->isActive());
}

void TestOsxSystemVersion::activationFailuresAreLoggedWhenVerbose_data() {
    QTest::addColumn<bool>("quit");
    QTest::addColumn<QString>("failure");
    QTest::newRow("quit") << true
                          << "Error: alternative method didn't work; couldn't get psn. Status code: -600";
    QTest::newRow("refuses") << false << "Error: alternative method didn't work. Error code: -600";
}

void TestOsxSystemVersion::activationFailuresAreLoggedWhenVerbose() {
    QFETCH(bool, quit);
    QFETCH(QString, failure);
    QJsonObject refusing = application(200, "com.example.b");
    refusing["faults"] = QJsonObject{{"calls", QJsonObject{{"AXUIElementSetAttributeValue", -25204}}}};
    auto desktop = installDesktop({application(100, "com.example.a", true), refusing});
    QVERIFY(desktop);
    NSRunningApplication* b = getRunningApplicationForBundleId("com.example.b");
    if (quit) {
        QVERIFY(desktop->load(
            QJsonObject{{"applications", QJsonArray{application(100, "com.example.a", true)}}}));
    }
    QVERIFY(!activateApplication(b, true, false));
    QTest::ignoreMessage(
        QtDebugMsg,
        "Note: normal method of activating an application didn't work, trying alternative method");
    QTest::ignoreMessage(QtDebugMsg, qPrintable(failure));
    QVERIFY(!activateApplication(b, true, true));
}

void TestOsxSystemVersion::readsBundleIdOfApplicationAtPath() {
    QTemporaryDir dir;
    const QString plist = "Contents/Info.plist";
    QVERIFY(QDir(dir.path()).mkpath("App.app/Contents"));
    QFile file(QDir(dir.path()).filePath("App.app/" + plist));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
  <key>CFBundleDocumentTypes</key><array><dict><key>CFBundleIdentifier</key><string>nested</string></dict></array>
  <key>CFBundleIdentifier</key><string>com.example.app</string>
</dict></plist>)");
    file.close();
    QCOMPARE(bundleIdForApplicationAtPath(QDir(dir.path()).filePath("App.app")), "com.example.app");

    // A Linux executable: its desktop entry's id, else its own name. The entries are read once
    // per process, at the first question, which this is.
    QVERIFY(QDir(dir.path()).mkpath("share/applications/studio"));
    QFile entry(QDir(dir.path()).filePath("share/applications/studio/mixer.desktop"));
    QVERIFY(entry.open(QIODevice::WriteOnly));
    entry.write("[Desktop Entry]\nName=Mixer\nExec=env LANG=C mixing-desk --full\n");
    entry.close();
    qputenv("XDG_DATA_HOME", QFile::encodeName(QDir(dir.path()).filePath("share")));
    for (const QString name : {"mixing-desk", "plain-tool"}) {
        QFile tool(QDir(dir.path()).filePath(name));
        QVERIFY(tool.open(QIODevice::WriteOnly));
        tool.close();
        QTest::ignoreMessage(
            QtWarningMsg, qPrintable("Warning: failed to get NSBundle for application: " + tool.fileName()));
        QCOMPARE(bundleIdForApplicationAtPath(tool.fileName()), QString());
        QVERIFY(tool.setPermissions(tool.permissions() | QFileDevice::ExeOwner));
    }
    QCOMPARE(bundleIdForApplicationAtPath(QDir(dir.path()).filePath("mixing-desk")), "studio-mixer");
    QCOMPARE(bundleIdForApplicationAtPath(QDir(dir.path()).filePath("plain-tool")), "plain-tool");
    qunsetenv("XDG_DATA_HOME");
}

void TestOsxSystemVersion::bundleIdFailuresAreLogged() {
    QTemporaryDir dir;
    const QString missing = QDir(dir.path()).filePath("Missing.app");
    QTest::ignoreMessage(QtWarningMsg,
                         qPrintable("Warning: failed to get NSBundle for application: " + missing));
    QCOMPARE(bundleIdForApplicationAtPath(missing), QString());
    QTest::ignoreMessage(
        QtCriticalMsg,
        qPrintable("Error: failed to get bundle ID of NSBundle for application: " + dir.path()));
    QCOMPARE(bundleIdForApplicationAtPath(dir.path()), QString());
}

UIET_TEST_MAIN(TestOsxSystemVersion)
#include "tst_osxSystemVersion.moc"
