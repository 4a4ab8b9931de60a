// The permissions of the system on a private desktop: the desktop's accessibility switch on a
// private accessibility bus, the settings panes through a stand-in settings program, and the
// screen capture access of X11.

#include "liveTestSupport.h"
#include "osxMisc.h"
#include "platformScreenCapture.h"
#include "testSupport.h"

#include "appkit/DesktopEntries.h"
#include "appkit/Foundation.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <functional>

namespace {

const QString kPreferencesUrl = QStringLiteral("x-apple.systempreferences:com.apple.preference.security?");

// Restores a variable of this process when the test ends.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const QByteArray* value)
        : name(name), before(qgetenv(name)), had(qEnvironmentVariableIsSet(name)) {
        value ? qputenv(name, *value) : qunsetenv(name);
    }
    ~ScopedVariable() { had ? qputenv(name, before) : qunsetenv(name); }

private:
    const char* name;
    QByteArray before;
    bool had;
};

} // namespace

class TestPermissions : public QObject, private LiveDesktopTestBase {
    Q_OBJECT

    QTemporaryDir home;

    QString applicationsFolder() const { return home.filePath(QStringLiteral("data/applications")); }

    // The desktop's switch, as the settings application would set and read it.
    std::optional<QByteArray> callAccessibilityBus(const QStringList& arguments) {
        QProcess send;
        send.setProcessEnvironment(session->environment());
        send.start(QStringLiteral("dbus-send"),
                   QStringList{QStringLiteral("--session"), QStringLiteral("--print-reply"),
                               QStringLiteral("--dest=org.a11y.Bus"), QStringLiteral("/org/a11y/bus")} +
                       arguments);
        if (!send.waitForFinished(20000) || send.exitCode() != 0)
            return std::nullopt;
        return send.readAllStandardOutput();
    }
    bool setDesktopAccessibility(bool on) {
        return callAccessibilityBus(
                   {QStringLiteral("org.freedesktop.DBus.Properties.Set"),
                    QStringLiteral("string:org.a11y.Status"), QStringLiteral("string:IsEnabled"),
                    on ? QStringLiteral("variant:boolean:true") : QStringLiteral("variant:boolean:false")})
            .has_value();
    }
    bool desktopAccessibilityIsOn() {
        const auto reply = callAccessibilityBus({QStringLiteral("org.freedesktop.DBus.Properties.Get"),
                                                 QStringLiteral("string:org.a11y.Status"),
                                                 QStringLiteral("string:IsEnabled")});
        return reply && reply->contains("boolean true");
    }

    void installSettingsEntry(const QString& id, const QString& exec) {
        QVERIFY(QDir().mkpath(applicationsFolder()));
        QFile entry(applicationsFolder() + u'/' + id + QStringLiteral(".desktop"));
        QVERIFY(entry.open(QIODevice::WriteOnly));
        entry.write(
            QStringLiteral("[Desktop Entry]\nType=Application\nName=Settings\nExec=%1\n").arg(exec).toUtf8());
    }

private Q_SLOTS:
    void initTestCase() {
        QString problem;
        if (!openSession(&problem))
            QSKIP(qPrintable(problem));
        session->applyToThisProcess();
        QVERIFY(home.isValid());
        qputenv("HOME", home.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", home.filePath(QStringLiteral("config")).toUtf8());
        qputenv("XDG_DATA_HOME", home.filePath(QStringLiteral("data")).toUtf8());
        qputenv("XDG_DATA_DIRS", home.filePath(QStringLiteral("system-data")).toUtf8());
        const std::shared_ptr<AtspiProvider> provider = AtspiProvider::create(&problem);
        QVERIFY2(provider, qPrintable(problem));
        setAccessibilityProviderForTesting(provider);
    }

    void cleanupTestCase() { setAccessibilityProviderForTesting(nullptr); }

    void init() { noteLiveObjects(); }

    void cleanup() {
        checkLiveObjects();
        QDir(applicationsFolder()).removeRecursively();
        rescanDesktopEntriesForTesting();
    }

    // First: the functions are kept once they are found.
    void screenRecordingCheckWithoutTheFunctions_data() {
        QTest::addColumn<QByteArray>("hidden");
        QTest::addColumn<QString>("message");
        QTest::newRow("no framework")
            << QByteArray(kCoreGraphicsFrameworkPath)
            << QStringLiteral("Error: could not open CoreGraphics framework. Cannot detect "
                              "whether Tavelboard has screen recording permissions.");
        QTest::newRow("no request function")
            << QByteArray("CGRequestScreenCaptureAccess")
            << QStringLiteral("Error: could not load functions for determining whether Tavelboard has screen "
                              "recording permissions.");
    }
    void screenRecordingCheckWithoutTheFunctions() {
        QFETCH(QByteArray, hidden);
        QFETCH(QString, message);
        const QByteArray wayland("wayland-0");
        const ScopedVariable noScreen("WAYLAND_DISPLAY", &wayland);
        hideFrameworkNameForTesting(hidden.constData(), true);
        QTest::ignoreMessage(QtDebugMsg, qPrintable(message));
        // Permission is assumed, although this session's screen cannot be read.
        QVERIFY(hasScreenRecordingPermission());
        hideFrameworkNameForTesting(hidden.constData(), false);
    }

    void screenRecordingPermission_data() {
        QTest::addColumn<QByteArray>("variable");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<bool>("granted");
        QTest::newRow("X11") << QByteArray("XDG_SESSION_TYPE") << QByteArray("x11") << true;
        QTest::newRow("Wayland by its socket")
            << QByteArray("WAYLAND_DISPLAY") << QByteArray("wayland-0") << false;
        QTest::newRow("Wayland by the session type")
            << QByteArray("XDG_SESSION_TYPE") << QByteArray("wayland") << false;
        QTest::newRow("no X display") << QByteArray("DISPLAY") << QByteArray(":9999") << false;
    }
    void screenRecordingPermission() {
        QFETCH(QByteArray, variable);
        QFETCH(QByteArray, value);
        QFETCH(bool, granted);
        const ScopedVariable setting(variable.constData(), &value);
        QCOMPARE(hasScreenRecordingPermission(), granted);
    }

    void accessibilityFollowsTheDesktopSwitch() {
        QVERIFY(setDesktopAccessibility(false));
        QVERIFY(!accessibilityAvailable());
        enableAccessibilityInterface();
        QVERIFY(desktopAccessibilityIsOn());
        QVERIFY(accessibilityAvailable());
    }

    void legacyEnablingRunsTheScript() {
        QVERIFY(setDesktopAccessibility(false));
        QTest::ignoreMessage(QtInfoMsg, "Enabling Access for Assisitive Devices...");
        QTest::ignoreMessage(QtInfoMsg, "...done.");
        enableAccessibilityInterfaceLegacy();
        QVERIFY(desktopAccessibilityIsOn());

        QVERIFY(setDesktopAccessibility(false));
        QVERIFY(enableAccessForAssistiveDevices());
        QVERIFY(desktopAccessibilityIsOn());
    }

    void preferencePanes_data() {
        QTest::addColumn<QString>("pane");
        QTest::addColumn<QString>("entry");
        QTest::addColumn<QString>("exec");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("note");
        const QString gnome = QStringLiteral("gnome-universal-access-panel");
        const QString gnomeExec = QStringLiteral("gnome-control-center universal-access");
        const QStringList gnomeArguments{QStringLiteral("universal-access")};
        QTest::newRow("accessibility, GNOME")
            << "accessibility" << gnome << gnomeExec << gnomeArguments << QString();
        QTest::newRow("accessibility, KDE")
            << "accessibility" << QStringLiteral("kcm_access") << QStringLiteral("systemsettings kcm_access")
            << QStringList{QStringLiteral("kcm_access")} << QString();
        QTest::newRow("automation") << "automation" << gnome << gnomeExec << gnomeArguments << QString();
        QTest::newRow("accessibility, no settings")
            << "accessibility" << QString() << QString() << QStringList()
            << kPreferencesUrl + QStringLiteral("Privacy_Accessibility");
        QTest::newRow("screen recording") << "screen recording" << gnome << gnomeExec << QStringList()
                                          << kPreferencesUrl + QStringLiteral("Privacy_ScreenCapture");
    }
    void preferencePanes() {
        QFETCH(QString, pane);
        QFETCH(QString, entry);
        QFETCH(QString, exec);
        QFETCH(QStringList, arguments);
        QFETCH(QString, note);
        const QString record = home.filePath(QStringLiteral("arguments"));
        QFile::remove(record);
        // The settings program writes its arguments, one a line, and ends.
        const ProgramInvocation recorder{
            QStringLiteral("/bin/sh"),
            {QStringLiteral("-c"),
             QStringLiteral("printf '%s\\n' \"$@\" > \"$0.part\" && mv \"$0.part\" \"$0\""), record}};
        for (const char* program : {"gnome-control-center", "systemsettings"})
            replaceSystemProgramForTesting(QLatin1String(program), recorder);
        if (!entry.isEmpty())
            installSettingsEntry(entry, exec);
        rescanDesktopEntriesForTesting();
        if (!note.isEmpty())
            QTest::ignoreMessage(
                QtInfoMsg,
                qPrintable(
                    QStringLiteral("Note: no settings application of this desktop opens \"%1\"").arg(note)));

        const QHash<QString, std::function<void()>> open{
            {QStringLiteral("accessibility"), openAccessibilityPreferences},
            {QStringLiteral("automation"), openAutomationPreferences},
            {QStringLiteral("screen recording"), openScreenRecordingPreferences}};
        open.value(pane)();

        if (!arguments.isEmpty()) {
            QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(record), 20000);
            QFile written(record);
            QVERIFY(written.open(QIODevice::ReadOnly));
            QCOMPARE(QString::fromUtf8(written.readAll()).split(u'\n', Qt::SkipEmptyParts), arguments);
        }
        for (const char* program : {"gnome-control-center", "systemsettings"})
            replaceSystemProgramForTesting(QLatin1String(program), std::nullopt);
    }

    // Toolkits told by their own settings to expose their trees do so whatever the switch says.
    void applicationsOnTheBusMeanAccess() {
        QVERIFY(setDesktopAccessibility(false));
        QVERIFY(!accessibilityAvailable());
        QProcessEnvironment alwaysOn;
        alwaysOn.insert(QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"), QStringLiteral("1"));
        QProcess* application =
            session->startApplication(QStringLiteral(UIET_LIVE_FIXTURE_APP), {}, alwaysOn);
        QVERIFY(application && application->waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(accessibilityAvailable(), applicationStartTimeoutMs);
        application->kill();
        application->waitForFinished();
        QVERIFY(setDesktopAccessibility(true));
    }
};

UIET_TEST_MAIN(TestPermissions)
#include "tst_permissions.moc"
