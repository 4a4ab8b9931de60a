// The live desktop provider against a Qt Widgets application of our own (liveFixtureApp), which
// the test changes while it reads: titles and texts, what is shown, window stacking, windows
// raised, minimized and closed. The window actions run twice: on the bare X server, and again in
// a second run of this program with a window manager (openbox), chosen by
// UIET_LIVE_WINDOW_MANAGER.

#include "liveTestSupport.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "atspi/X11Desktop.h"

#include <QCoreApplication>
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

    // The position of the first window with this title in the window server's stacking order,
    // frontmost first, and whether it is on screen; -1 when there is none.
    std::pair<int, bool> stackingOf(const QString& title) {
        QList<WindowInfo> windows;
        activeAccessibilityProvider()->windowList(&windows);
        for (int i = 0; i < windows.size(); ++i)
            if (windows[i].title == title)
                return {i, windows[i].onScreen};
        return {-1, false};
    }

    bool isInFrontOf(const QString& front, const QString& back) {
        const auto [frontIndex, frontShown] = stackingOf(front);
        const auto [backIndex, backShown] = stackingOf(back);
        return frontShown && backShown && frontIndex < backIndex;
    }

    AXError setBoolean(AXUIElementRef element, const char* attribute, bool value) {
        Ref<CFStringRef> name(createAXName(attribute));
        return AXUIElementSetAttributeValue(element, name, value ? kCFBooleanTrue : kCFBooleanFalse);
    }

    AXError perform(AXUIElementRef element, const char* action) {
        Ref<CFStringRef> name(createAXName(action));
        return AXUIElementPerformAction(element, name);
    }

    // The titles of the windows that the accessibility layer's two lookups at a point find: through
    // the element there, and through the window server.
    QString windowLookupsAt(const QPoint& point) {
        Ref<AXUIElementRef> byElement(copyWindowContainingPoint(point));
        Ref<AXUIElementRef> byWindowServer(copyWindowContainingPointUsingPrivateAPIs(point));
        return UIElementTitle(byElement) + QStringLiteral(", ") + UIElementTitle(byWindowServer);
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
        session =
            std::make_unique<LiveDesktopSession>(LiveDesktopSession::Bus::Accessibility, liveWindowManager());
        if (!session->isReady())
            QSKIP(qPrintable(session->skipReason()));
        QString problem;
        fixture = session->startApplication(UIET_LIVE_FIXTURE_APP);
        QVERIFY(fixture && fixture->waitForStarted());
        QVERIFY(LiveDesktopSession::waitUntil([&] { return fixture->canReadLine(); }));
        QCOMPARE(fixture->readLine().trimmed(), QByteArray("ready"));
        QVERIFY2(watchApplication(pid_t(fixture->processId()), &problem), qPrintable(problem));
        const std::unique_ptr<X11Desktop> display = X11Desktop::open();
        QVERIFY(display && display->hasWindowManager() == underOpenbox());
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
    // A batch of reads answers what the reads one by one answer, with a toolkit that has no
    // Collection and no accessible id.
    void aBatchOfReadsAnswersAsSingleReads() {
        const QStringList single = describeTree(application, false);
        QVERIFY(single.size() > 10);
        QCOMPARE(describeTree(application, true), single);
    }

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

    // What the user cannot see is not among the children: the items of a closed menu, the page
    // of an unselected tab, a hidden widget. Each appears when it is shown and leaves again.
    void onlyWhatIsShownIsListed_data() {
        QTest::addColumn<QString>("role");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("show");
        QTest::addColumn<QString>("hide");
        QTest::newRow("menu item") << "AXMenuItem"
                                   << "Open"
                                   << "menu open"
                                   << "menu close";
        QTest::newRow("tab page") << "AXButton"
                                  << "Second Page Button"
                                  << "tab 1"
                                  << "tab 0";
        QTest::newRow("hidden widget") << "AXButton"
                                       << "Reset"
                                       << "show reset"
                                       << "hide reset";
    }

    void onlyWhatIsShownIsListed() {
        QFETCH(QString, role);
        QFETCH(QString, title);
        QFETCH(QString, show);
        QFETCH(QString, hide);
        const auto shown = [&] {
            Ref<AXUIElementRef> element(find(role, title));
            if (!element)
                return false;
            // Its parent counts it among the children it lists.
            Ref<CFTypeRef> parent(copyAttributeNamed(element, "AXParent"));
            Ref<CFArrayRef> siblings(static_cast<CFArrayRef>(
                parent ? copyAttributeNamed(static_cast<AXUIElementRef>(CFTypeRef(parent)), "AXChildren")
                       : nullptr));
            return siblings &&
                   CFArrayContainsValue(siblings, CFRangeMake(0, CFArrayGetCount(siblings)), element) &&
                   UIElementChildrenCount(static_cast<AXUIElementRef>(CFTypeRef(parent))) ==
                       CFArrayGetCount(siblings);
        };
        QVERIFY(command(hide));
        QVERIFY(LiveDesktopSession::waitUntil([&] { return !shown(); }));
        QVERIFY(command(show));
        QVERIFY(LiveDesktopSession::waitUntil(shown));
        QVERIFY(command(hide));
        QVERIFY(LiveDesktopSession::waitUntil([&] { return !shown(); }));
    }

    // The main window spans 100..500 x 100..400, the tool window 300..600 x 250..450: the window
    // server's stacking decides the overlap.
    void theFrontWindowWinsWhereWindowsOverlap() {
        const CGPoint overlap{400, 300};
        QCOMPARE(windowTitleAt(overlap), QString("Fixture Tool"));
        QCOMPARE(windowLookupsAt(QPoint(400, 300)), QString("Fixture Tool, Fixture Tool"));
        QVERIFY(command("raise main"));
        QVERIFY(LiveDesktopSession::waitUntil([&] { return windowTitleAt(overlap) == "Fixture Main"; }));
        QCOMPARE(windowLookupsAt(QPoint(400, 300)), QString("Fixture Main, Fixture Main"));
        QCOMPARE(windowTitleAt(CGPoint{550, 420}), QString("Fixture Tool"));
        QCOMPARE(windowLookupsAt(QPoint(550, 420)), QString("Fixture Tool, Fixture Tool"));
        QVERIFY(command("raise tool"));
        QVERIFY(LiveDesktopSession::waitUntil([&] { return windowTitleAt(overlap) == "Fixture Tool"; }));
        QCOMPARE(windowTitleAt(CGPoint{1000, 900}), QString("error %1").arg(kAXErrorNoValue));
    }

    // "AXRaise" brings a window to the front of the window server's stacking and activates it.
    void raiseBringsAWindowToTheFront() {
        Ref<AXUIElementRef> main(find("AXWindow", "Fixture Main"));
        Ref<AXUIElementRef> tool(find("AXWindow", "Fixture Tool"));
        QVERIFY(main && tool);
        QVERIFY(UIElementActionNames(main).contains("AXRaise"));
        QCOMPARE(perform(main, "AXRaise"), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            return isInFrontOf("Fixture Main", "Fixture Tool") &&
                   UIElementAttributeValue(main, "AXMain") == QVariant(true);
        }));
        QCOMPARE(perform(tool, "AXRaise"), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            return isInFrontOf("Fixture Tool", "Fixture Main") &&
                   UIElementAttributeValue(tool, "AXMain") == QVariant(true);
        }));
    }

    // "AXMinimized" takes the window off the screen and brings it back.
    void minimizingAndRestoring() {
        Ref<AXUIElementRef> tool(find("AXWindow", "Fixture Tool"));
        QVERIFY(tool);
        Ref<CFStringRef> minimized(createAXName("AXMinimized"));
        Boolean settable = false;
        QCOMPARE(AXUIElementIsAttributeSettable(tool, minimized, &settable), kAXErrorSuccess);
        QVERIFY(settable);
        QCOMPARE(setBoolean(tool, "AXMinimized", true), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return !stackingOf("Fixture Tool").second; }));
        QCOMPARE(setBoolean(tool, "AXMinimized", false), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            return stackingOf("Fixture Tool").second &&
                   UIElementAttributeValue(tool, "AXMinimized") == QVariant(false);
        }));
        Ref<CFStringRef> text(CFStringCreateWithQString("yes"));
        QCOMPARE(AXUIElementSetAttributeValue(tool, minimized, text), kAXErrorIllegalArgument);
    }

    // Setting "AXFrontmost" activates the application's frontmost window on screen; nothing sends an
    // application to the back.
    void theApplicationComesToTheFront() {
        Ref<AXUIElementRef> main(find("AXWindow", "Fixture Main"));
        Ref<AXUIElementRef> tool(find("AXWindow", "Fixture Tool"));
        QVERIFY(main && tool);
        QCOMPARE(setBoolean(application, "AXFrontmost", false), kAXErrorIllegalArgument);
        QCOMPARE(perform(main, "AXRaise"), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return isInFrontOf("Fixture Main", "Fixture Tool"); }));
        QCOMPARE(setBoolean(main, "AXMinimized", true), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return !stackingOf("Fixture Main").second; }));
        QCOMPARE(setBoolean(application, "AXFrontmost", true), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            return UIElementAttributeValue(tool, "AXMain") == QVariant(true) &&
                   UIElementAttributeValue(application, "AXFrontmost") == QVariant(true);
        }));
        QCOMPARE(setBoolean(main, "AXMinimized", false), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return stackingOf("Fixture Main").second; }));
    }

    // The window manager's zoom button maximizes the window and restores it; without a window
    // manager nothing could hold it maximized, and it refuses.
    void zoomingThroughTheZoomButton() {
        Ref<AXUIElementRef> tool(find("AXWindow", "Fixture Tool"));
        QVERIFY(tool);
        Ref<CFTypeRef> zoom(copyAttributeNamed(tool, "AXZoomButton"));
        QVERIFY(zoom);
        const auto zoomElement = static_cast<AXUIElementRef>(CFTypeRef(zoom));
        QCOMPARE(UIElementActionNames(zoomElement), QStringList({"AXPress", "AXZoomWindow"}));
        const QRect before = UIElementRect(tool);
        if (!underOpenbox()) {
            QCOMPARE(perform(zoomElement, "AXZoomWindow"), kAXErrorCannotComplete);
            QCOMPARE(UIElementRect(tool), before);
            return;
        }
        QCOMPARE(perform(zoomElement, "AXZoomWindow"), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            const QRect zoomed = UIElementRect(tool);
            return zoomed.width() > before.width() && zoomed.height() > before.height();
        }));
        QCOMPARE(perform(zoomElement, "AXPress"), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] { return UIElementRect(tool).size() == before.size(); }));
    }

    // A Qt window has no title-bar buttons of its own: the window manager's stand for them,
    // outside the window's children, and act through the window server.
    void aWindowClosesThroughItsCloseButton() {
        QVERIFY(command("show extra"));
        Ref<AXUIElementRef> extra;
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            *extra.out() = find("AXWindow", "Fixture Extra");
            return extra != nullptr && stackingOf("Fixture Extra").second;
        }));
        Ref<CFTypeRef> button(copyAttributeNamed(extra, "AXCloseButton"));
        QVERIFY(button);
        const auto buttonElement = static_cast<AXUIElementRef>(CFTypeRef(button));
        QCOMPARE(UIElementRole(buttonElement), QString("AXButton"));
        QCOMPARE(UIElementGetStringAttribute(buttonElement, CFSTR("AXSubrole")), QString("AXCloseButton"));
        Ref<CFTypeRef> parent(copyAttributeNamed(buttonElement, "AXParent"));
        QVERIFY(parent && CFEqual(parent, extra));
        Ref<CFArrayRef> children(static_cast<CFArrayRef>(copyAttributeNamed(extra, "AXChildren")));
        QVERIFY(children &&
                !CFArrayContainsValue(children, CFRangeMake(0, CFArrayGetCount(children)), button));
        QCOMPARE(UIElementRect(buttonElement), QRect());
        Ref<CFTypeRef> again(copyAttributeNamed(extra, "AXCloseButton"));
        QVERIFY(again && CFEqual(again, button));
        Ref<CFTypeRef> minimize(copyAttributeNamed(extra, "AXMinimizeButton"));
        QVERIFY(minimize && !CFEqual(minimize, button));
        QCOMPARE(perform(buttonElement, "AXPress"), kAXErrorSuccess);
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            Ref<AXUIElementRef> remaining(find("AXWindow", "Fixture Extra"));
            return remaining == nullptr;
        }));
    }

    // The window actions again, with a window manager, in a second run of this program.
    void withAWindowManager() {
        runAgainWithAWindowManager(
            {QStringLiteral("raiseBringsAWindowToTheFront"), QStringLiteral("minimizingAndRestoring"),
             QStringLiteral("theApplicationComesToTheFront"), QStringLiteral("zoomingThroughTheZoomButton"),
             QStringLiteral("aWindowClosesThroughItsCloseButton")});
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
