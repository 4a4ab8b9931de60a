// The live desktop provider against a Qt Widgets application of our own (liveFixtureApp), which
// the test changes while it reads: titles and texts, window stacking, a window that closes.

#include "liveTestSupport.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include <QProcess>

class TestLiveQtApplication : public QObject, private LiveDesktopTestBase {
    Q_OBJECT

    QProcess* fixture = nullptr;

    // Sends one command to the fixture and waits until it has carried it out.
    bool command(const QString& line) {
        fixture->readAllStandardOutput();
        fixture->write((line + QLatin1Char('\n')).toUtf8());
        QByteArray output;
        return LiveDesktopSession::waitUntil([&] {
            output += fixture->readAllStandardOutput();
            return output.contains("done");
        });
    }

    // The title of the window that holds the element at the point, or why there is none.
    QString windowTitleAt(CGPoint point) {
        Ref<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
        Ref<AXUIElementRef> hit;
        const AXError error =
            AXUIElementCopyElementAtPosition(systemWide, float(point.x), float(point.y), hit.out());
        if (error != kAXErrorSuccess)
            return QStringLiteral("error %1").arg(error);
        Ref<CFTypeRef> window(copyAttributeNamed(hit, "AXWindow"));
        if (!window && UIElementRole(hit) == QLatin1String("AXWindow"))
            return UIElementTitle(hit);
        return window ? UIElementTitle(static_cast<AXUIElementRef>(CFTypeRef(window)))
                      : QStringLiteral("no window");
    }

private Q_SLOTS:
    void initTestCase() {
        QString problem;
        if (!openSession(&problem))
            QSKIP(qPrintable(problem));
        fixture = session->startApplication(UIET_LIVE_FIXTURE_APP);
        QVERIFY(fixture && fixture->waitForStarted());
        QVERIFY(LiveDesktopSession::waitUntil([&] { return fixture->canReadLine(); }));
        QCOMPARE(fixture->readLine().trimmed(), QByteArray("ready"));
        QVERIFY2(watchApplication(pid_t(fixture->processId()), &problem), qPrintable(problem));
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            Ref<AXUIElementRef> tool(find("AXButton", "Tool Button"));
            return tool != nullptr;
        }));
    }

    void cleanupTestCase() { closeSession(); }
    void init() { noteLiveObjects(); }
    void cleanup() { checkLiveObjects(); }

    void widgets_data() {
        QTest::addColumn<QString>("role");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QVariant>("value");
        QTest::newRow("main window") << "AXWindow"
                                     << "Fixture Main" << QVariant();
        QTest::newRow("tool window") << "AXWindow"
                                     << "Fixture Tool" << QVariant();
        QTest::newRow("push button") << "AXButton"
                                     << "Apply" << QVariant();
        QTest::newRow("check box") << "AXCheckBox"
                                   << "Loop" << QVariant(0);
        QTest::newRow("line edit") << "AXTextField"
                                   << "Name" << QVariant("draft");
        QTest::newRow("slider") << "AXSlider"
                                << "Volume" << QVariant(40.0);
        QTest::newRow("label") << "AXStaticText"
                               << "Status: idle" << QVariant();
        QTest::newRow("menu bar") << "AXMenuBar"
                                  << "" << QVariant();
    }

    void widgets() {
        QFETCH(QString, role);
        QFETCH(QString, title);
        QFETCH(QVariant, value);
        Ref<AXUIElementRef> element(find(role, title));
        QVERIFY(element);
        if (value.isValid())
            QCOMPARE(UIElementAttributeValue(element, "AXValue"), value);
    }

    // What changes in the application is what the next read says.
    void changesAreReadAtOnce() {
        Ref<AXUIElementRef> window(find("AXWindow", "Fixture Main"));
        Ref<AXUIElementRef> label(find("AXStaticText", "Status: idle"));
        QVERIFY(window && label);
        QVERIFY(command("title Renamed Main"));
        QCOMPARE(UIElementTitle(window), QString("Renamed Main"));
        QVERIFY(command("label Status: busy"));
        QCOMPARE(UIElementTitle(label), QString("Status: busy"));
        QVERIFY(command("title Fixture Main"));
        QCOMPARE(UIElementTitle(window), QString("Fixture Main"));
    }

    void pressingTheCheckBoxChecksIt() {
        Ref<AXUIElementRef> loop(find("AXCheckBox", "Loop"));
        QVERIFY(loop);
        Ref<CFStringRef> press(createAXName("AXPress"));
        QCOMPARE(AXUIElementPerformAction(loop, press), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil(
            [&] { return UIElementAttributeValue(loop, "AXValue").toInt() == 1; }));
    }

    void focusIsFound() {
        QVERIFY(command("focus name"));
        Ref<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            Ref<CFTypeRef> focused(copyAttributeNamed(systemWide, "AXFocusedUIElement"));
            return focused && UIElementTitle(static_cast<AXUIElementRef>(CFTypeRef(focused))) == "Name";
        }));
        Ref<CFTypeRef> focusedApplication(copyAttributeNamed(systemWide, "AXFocusedApplication"));
        QVERIFY(focusedApplication && CFEqual(focusedApplication, application));
        Ref<CFTypeRef> focusedWindow(copyAttributeNamed(application, "AXFocusedWindow"));
        QVERIFY(focusedWindow);
        QCOMPARE(UIElementTitle(static_cast<AXUIElementRef>(CFTypeRef(focusedWindow))),
                 QString("Fixture Main"));
        QCOMPARE(UIElementAttributeValue(application, "AXFrontmost"), QVariant(true));
        QCOMPARE(UIElementAttributeValue(static_cast<AXUIElementRef>(CFTypeRef(focusedWindow)), "AXMain"),
                 QVariant(true));
    }

    // The main window spans 100..500 x 100..400, the tool window 300..600 x 250..450: the window
    // server's stacking decides the overlap.
    void theFrontWindowWinsWhereWindowsOverlap() {
        const CGPoint overlap{400, 300};
        QCOMPARE(windowTitleAt(overlap), QString("Fixture Tool"));
        QVERIFY(command("raise main"));
        QVERIFY(LiveDesktopSession::waitUntil([&] { return windowTitleAt(overlap) == "Fixture Main"; }));
        QCOMPARE(windowTitleAt(CGPoint{550, 420}), QString("Fixture Tool"));
        QVERIFY(command("raise tool"));
        QVERIFY(LiveDesktopSession::waitUntil([&] { return windowTitleAt(overlap) == "Fixture Tool"; }));
        QCOMPARE(windowTitleAt(CGPoint{1000, 900}), QString("error %1").arg(kAXErrorNoValue));
    }

    // Last: a window closes, and its elements are gone with it.
    void aClosedWindowIsGone() {
        Ref<AXUIElementRef> button(find("AXButton", "Tool Button"));
        QVERIFY(button);
        QVERIFY(command("close tool"));
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            Ref<CFTypeRef> windows(copyAttributeNamed(application, "AXWindows"));
            return windows && CFArrayGetCount(static_cast<CFArrayRef>(CFTypeRef(windows))) == 1;
        }));
        Ref<AXUIElementRef> remaining(find("AXWindow", "Fixture Tool"));
        QVERIFY(!remaining);
        QCOMPARE(windowTitleAt(CGPoint{550, 420}), QString("error %1").arg(kAXErrorNoValue));
    }
};

UIET_TEST_MAIN(TestLiveQtApplication)
#include "tst_liveQtApplication.moc"
