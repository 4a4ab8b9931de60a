#include "logCapture.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "appkit/Processes.h"
#include "osxSystemVersion.h"
#include "osxUIElementUtils.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>

namespace {

// The system version this run pretends to be on; a run of this program started by the test
// itself names another one.
const char* const systemVersionVariable = "UIET_HITTEST_MACOS_VERSION";

QJsonObject frame(int x, int y, int width, int height) {
    return {{"x", x}, {"y", y}, {"width", width}, {"height", height}};
}

// base with the keys of extras added.
QJsonObject merged(QJsonObject base, const QJsonObject& extras) {
    for (auto it = extras.begin(); it != extras.end(); ++it)
        base.insert(it.key(), it.value());
    return base;
}

QJsonObject element(const QString& id, const QString& role, const QJsonObject& rect,
                    const QJsonArray& children = {}, const QJsonObject& extras = {}) {
    QJsonObject result = merged({{"id", id}, {"role", role}}, extras);
    if (!rect.isEmpty())
        result.insert("frame", rect);
    if (!children.isEmpty())
        result.insert("children", children);
    return result;
}

QJsonObject window(const QString& id, int windowId, const QJsonObject& rect, const QJsonArray& children,
                   const QJsonObject& extras = {}) {
    return merged({{"id", id}, {"windowId", windowId}, {"frame", rect}, {"children", children}}, extras);
}

QJsonObject application(const QString& id, qint64 pid, const QString& bundleId, const QJsonArray& windows,
                        const QJsonObject& extras = {}) {
    return merged({{"id", id}, {"pid", pid}, {"bundleId", bundleId}, {"windows", windows}}, extras);
}

const QJsonObject refusesHitTests{
    {"faults", QJsonObject{{"calls", QJsonObject{{"AXUIElementCopyElementAtPosition",
                                                  "kAXErrorAttributeUnsupported"}}}}}};

// Each child that lies outside its parent's rectangle is named for it.
QJsonObject hitTestDesktop(const QJsonObject& editorExtras, int busyDelayMs) {
    const auto panel = [](const QString& id, int windowId, int y, const QString& identifier) {
        return window(id, windowId, frame(500, y, 300, 300),
                      {element(id + "Group", "AXGroup", frame(510, y + 10, 50, 50),
                               {element(id + "Button", "AXButton", frame(600, y + 100, 20, 20))}),
                       element(id + "Escapee", "AXButton", frame(820, y + 50, 20, 20))},
                      {{"attributes", QJsonObject{{"AXIdentifier", identifier}}}});
    };
    const QJsonArray editorWindows{
        window("doc", 31, frame(0, 0, 400, 300),
               {element("outerGroup", "AXGroup", frame(10, 10, 50, 50),
                        {element("stray", "AXButton", frame(100, 100, 20, 20))}),
                element("edgeButton", "AXButton", frame(200, 50, 20, 20)),
                element("frameless", "AXGroup", {},
                        {element("inFrameless", "AXButton", frame(250, 150, 20, 20))})}),
        panel("openPanel", 32, 0, "open-panel"), panel("otherPanel", 33, 400, "other-panel")};
    const QJsonArray proToolsWindows{
        window(
            "ptEdit", 41, frame(0, 400, 400, 300),
            {element("ptScroll", "AXScrollArea", frame(0, 420, 400, 280),
                     {element("ptFader", "AXSlider", frame(100, 500, 20, 60))}, {{"opaqueToHitTest", true}}),
             element("ptButton", "AXButton", frame(300, 410, 20, 10))}),
        window("ptBroken", 42, frame(0, 800, 100, 100),
               {element("ptBrokenButton", "AXButton", frame(40, 840, 20, 20))},
               {{"faults", QJsonObject{{"attributes", QJsonObject{{"AXSize", "kAXErrorCannotComplete"}}}}}})};
    const QJsonArray ownWindows{window("own", 61, frame(850, 0, 100, 100),
                                       {element("ownButton", "AXButton", frame(860, 10, 20, 20))})};
    const QJsonArray refuserWindows{
        window("refuserWindow", 71, frame(850, 200, 100, 100),
               {element("refuserGroup", "AXGroup", {},
                        {element("refuserButton", "AXButton", frame(900, 250, 20, 20))})})};
    const QJsonObject hidden =
        window("hiddenWindow", 81, frame(850, 400, 100, 100), {}, {{"accessible", false}});
    const QJsonArray busyWindows{window("busyWindow", 91, frame(850, 600, 100, 100), {})};
    return {{"applications",
             QJsonArray{application("editor", 301, "com.example.editor", editorWindows, editorExtras),
                        application("proTools", 401, "com.avid.ProTools", proToolsWindows),
                        application("self", QCoreApplication::applicationPid(), "com.velmora.uielementtool",
                                    ownWindows, refusesHitTests),
                        application("refuser", 701, "com.example.refuser", refuserWindows, refusesHitTests),
                        application("hidden", 801, "com.example.hidden", {hidden}),
                        application("busy", 901, "com.example.busy", busyWindows,
                                    {{"busy", QJsonObject{{"delayMs", busyDelayMs}}}})}}};
}

const QString fullSearchNote = "(Note: employing full search for UI element)";
const QString timeOutNote =
    "(Note: app timed out searching for a UI element, not emplying any further searching)";

} // namespace

Q_DECLARE_METATYPE(UIElementHitTestWay)

class tst_osxUIElementHitTesting : public QObject, protected VirtualDesktopTestBase {
    Q_OBJECT

    void load(const QJsonObject& fixture) {
        QVERIFY(desktop->load(fixture));
        resetPlatformCallCounts();
    }

    CFTypeSmartRef<AXUIElementRef> copy(const QString& id) const {
        return CFTypeSmartRef<AXUIElementRef>(desktop->copyElement(id));
    }

private slots:
    // The version is read once per process, so each run pretends to be on one system.
    void initTestCase() {
        const bool bigSur = qEnvironmentVariableIsSet(systemVersionVariable);
        setGestaltResponsesForTesting(QHash<OSType, SInt32>{{gestaltSystemVersionMajor, bigSur ? 11 : 10},
                                                            {gestaltSystemVersionMinor, bigSur ? 0 : 15},
                                                            {gestaltSystemVersionBugFix, 7}});
        QCOMPARE(isBigSurOrLater(), bigSur);
    }

    void init() {
        QVERIFY(installDesktop([](VirtualDesktop& each) { return each.load(hitTestDesktop({}, 5)); }));
    }

    // The Pro Tools search keeps what it read until the event loop comes round.
    void cleanup() {
        QCoreApplication::processEvents();
        uninstallDesktopAndCheckReferences();
    }

    void strategy_data() {
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<QString>("plain");
        QTest::addColumn<int>("plainError");
        QTest::addColumn<QString>("found");
        QTest::addColumn<UIElementHitTestWay>("way");
        QTest::addColumn<int>("applicationsMade"); // for the search of the window's application
        using Way = UIElementHitTestWay;
        QTest::newRow("platform answer")
            << QPoint(205, 55) << "edgeButton" << 0 << "edgeButton" << Way::PlatformAnswer << 0;
        QTest::newRow("Pro Tools scroll area")
            << QPoint(105, 510) << "ptScroll" << 0 << "ptFader" << Way::ProToolsSearch << 0;
        QTest::newRow("Pro Tools button")
            << QPoint(305, 415) << "ptButton" << 0 << "ptButton" << Way::PlatformAnswer << 0;
        QTest::newRow("refused, found by rectangles")
            << QPoint(905, 255) << QString() << int(kAXErrorAttributeUnsupported) << "refuserButton"
            << Way::RectangleSearch << 1;
        QTest::newRow("window unknown to the tree")
            << QPoint(855, 405) << QString() << int(kAXErrorNoValue) << QString() << Way::Nothing << 1;
        QTest::newRow("no window") << QPoint(3000, 3000) << QString() << int(kAXErrorNoValue) << QString()
                                   << Way::Nothing << 0;
        QTest::newRow("own window") << QPoint(865, 15) << QString() << int(kAXErrorAttributeUnsupported)
                                    << QString() << Way::Nothing << 0; // its own windows are not searched
    }

    // Every failure of the platform leads to the full search, which leaves the error at 0.
    void strategy() {
        QFETCH(QPoint, point);
        QFETCH(QString, plain);
        AXError error = AXError(1);
        QString found;
        QCOMPARE(logOf([&] { found = idOfCopy(copyUIElementAtPosition(point, &error)); }), QStringList());
        QCOMPARE(found, plain);
        QTEST(int(error), "plainError");
        resetPlatformCallCounts();
        UIElementHitTestWay way = UIElementHitTestWay::TimedOut;
        error = AXError(1);
        const QStringList log = logOf([&] {
            found = idOfCopy(copyUIElementAtPositionEmployingSearchIfNecessary(point, &error, &way));
        });
        QTEST(found, "found");
        QTEST(way, "way");
        QCOMPARE(int(error), 0);
        QCOMPARE(log, plain.isEmpty() ? QStringList{fullSearchNote} : QStringList());
        QTEST(int(platformCallCount(PlatformCall::AXUIElementCreateApplication)), "applicationsMade");
        QCOMPARE(idOfCopy(copyUIElementAtPositionEmployingSearchIfNecessary(point)), found);
    }

    void timeOut_data() {
        QTest::addColumn<int>("delayMs");
        QTest::newRow("5 ms") << 5;
        QTest::newRow("99 ms") << 99;
        QTest::newRow("100 ms") << 100;
    }

    // A time-out ends all work: one question to the platform, no window lookup, no search.
    void timeOut() {
        QFETCH(int, delayMs);
        load(hitTestDesktop({}, delayMs));
        AXError error = kAXErrorSuccess;
        UIElementHitTestWay way = UIElementHitTestWay::PlatformAnswer;
        QString found = "unset";
        QCOMPARE(logOf([&] {
                     found = idOfCopy(
                         copyUIElementAtPositionEmployingSearchIfNecessary(QPoint(855, 605), &error, &way));
                 }),
                 QStringList{timeOutNote});
        QCOMPARE(found, QString());
        QCOMPARE(int(error), int(kAXErrorCannotComplete));
        QCOMPARE(way, UIElementHitTestWay::TimedOut);
        const QMap<QString, quint64> counts = platformCallCounts();
        QMap<QString, quint64> oneQuestion;
        for (auto it = counts.begin(); it != counts.end(); ++it)
            oneQuestion.insert(it.key(), 0);
        oneQuestion["AXUIElementCreateSystemWide"] = 1;
        oneQuestion["AXUIElementCopyElementAtPosition"] = 1;
        QCOMPARE(counts, oneQuestion);
        QVERIFY(!copyUIElementAtPosition(QPoint(855, 605), &error));
        QCOMPARE(int(error), int(kAXErrorCannotComplete));
    }

    void rectangleSearch_data() {
        QTest::addColumn<QString>("start");
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<bool>("prune");
        QTest::addColumn<QString>("beforeBigSur");
        QTest::addColumn<QString>("fromBigSur");
        const auto row = [](const char* name, const char* start, QPoint point, bool prune, const char* before,
                            const char* from) {
            QTest::newRow(name) << QString(start) << point << prune << QString(before) << QString(from);
        };
        row("child outside its group", "doc", {105, 105}, false, "stray", "stray");
        row("child outside its group, pruned", "doc", {105, 105}, true, "doc", "doc");
        row("from the application", "editor", {105, 105}, false, "stray", "stray");
        row("from the application, pruned", "editor", {105, 105}, true, "doc", "doc");
        row("right edge pixel", "doc", {219, 69}, false, "edgeButton", "edgeButton");
        row("right edge pixel, pruned", "doc", {219, 69}, true, "edgeButton", "edgeButton");
        row("one pixel further", "doc", {220, 69}, false, "doc", "doc");
        row("one below", "doc", {219, 70}, true, "doc", "doc");
        row("container without rectangle", "doc", {255, 155}, false, "inFrameless", "inFrameless");
        row("container without rectangle, pruned", "doc", {255, 155}, true, "doc", "doc");
        row("open panel", "openPanel", {605, 105}, false, "openPanelButton", "openPanel");
        row("other panel", "otherPanel", {605, 505}, false, "otherPanelButton", "otherPanelButton");
        row("window without the point", "otherPanel", {825, 455}, false, "", "");
        row("window without the point, pruned", "otherPanel", {825, 455}, true, "", "");
        row("open panel without the point", "openPanel", {825, 55}, false, "", "");
        row("nothing there", "doc", {390, 290}, false, "doc", "doc");
        row("null element", "", {105, 105}, false, "", "");
    }

    void rectangleSearch() {
        QFETCH(QString, start);
        QFETCH(QPoint, point);
        QFETCH(bool, prune);
        const auto element = copy(start);
        QCOMPARE(element.isNull(), start.isEmpty());
        QString found;
        QCOMPARE(logOf([&] {
                     found = idOfCopy(
                         recursivelySearchChildrenForLeafElementContainingPoint(element, point, prune, 0));
                 }),
                 QStringList());
        QTEST(found, isBigSurOrLater() ? "fromBigSur" : "beforeBigSur");
    }

    // The tests whose rows depend on the system, once more in a run that is on Big Sur.
    void rectangleSearchOnBigSur() {
        if (qEnvironmentVariableIsSet(systemVersionVariable))
            QSKIP("this run is the one on Big Sur");
        QProcess run;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(systemVersionVariable, "11.0.7");
        run.setProcessEnvironment(environment);
        run.setProcessChannelMode(QProcess::ForwardedChannels);
        run.start(QCoreApplication::applicationFilePath(),
                  {"strategy", "rectangleSearch", "searchOfApplication"});
        QVERIFY(run.waitForFinished(300000));
        QCOMPARE(run.exitStatus(), QProcess::NormalExit);
        QCOMPARE(run.exitCode(), 0);
    }

    void searchOfApplication_data() {
        QTest::addColumn<QString>("application");
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<QString>("found");
        QTest::newRow("not Pro Tools: not pruned") << "editor" << QPoint(105, 105) << "stray";
        QTest::newRow("Pro Tools: pruned") << "proTools" << QPoint(105, 510) << "ptFader";
        QTest::newRow("Pro Tools window with null rectangle") << "proTools" << QPoint(45, 845) << QString();
    }

    void searchOfApplication() {
        QFETCH(QString, application);
        QFETCH(QPoint, point);
        QTEST(idOfCopy(copyUIElementAtPositionBySearchingApplication(copy(application), point)), "found");
    }

    void focus_data() {
        QTest::addColumn<QJsonObject>("editor");
        QTest::addColumn<QString>("focused");
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("application");
        QTest::addColumn<int>("pid");
        const auto focusing = [](const QJsonValue& value) {
            return QJsonObject{{"active", true}, {"attributes", QJsonObject{{"AXFocusedUIElement", value}}}};
        };
        QTest::newRow("focused element")
            << focusing(QJsonObject{{"element", "edgeButton"}}) << "edgeButton" << 0 << "editor" << 301;
        QTest::newRow("focus is no element") << focusing("edgeButton") << QString() << 0 << "editor" << 0;
        QTest::newRow("nothing focused")
            << QJsonObject{{"active", true}} << QString() << int(kAXErrorNoValue) << "editor" << 0;
        QTest::newRow("no active application")
            << QJsonObject() << QString() << int(kAXErrorNoValue) << QString() << 0;
    }

    void focus() {
        QFETCH(QJsonObject, editor);
        load(hitTestDesktop(editor, 5));
        AXError error = AXError(1);
        QTEST(idOfCopy(copyFocusedUIElement(&error)), "focused");
        QTEST(int(error), "error");
        QTEST(idOfCopy(copyFocusedApplication()), "application");
        QTEST(pidOfFocusedApplication(), "pid");
    }

    void focusWithoutAccess() {
        QJsonObject fixture = hitTestDesktop({{"active", true}}, 5);
        fixture.insert("trusted", false);
        load(fixture);
        AXError error = kAXErrorSuccess;
        QVERIFY(!copyFocusedUIElement(&error));
        QCOMPARE(int(error), int(kAXErrorAPIDisabled));
        QVERIFY(!copyFocusedApplication());
        QCOMPARE(pidOfFocusedApplication(), 0);
    }

    void ancestorAtPosition_data() {
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("ofType");
        QTest::addColumn<QString>("role");
        QTest::addColumn<QString>("withRole");
        QTest::newRow("window of a button") << QPoint(205, 55) << "window"
                                            << "doc"
                                            << "AXWindow"
                                            << "doc";
        QTest::newRow("the hit itself") << QPoint(205, 55) << "window"
                                        << "doc"
                                        << "AXButton"
                                        << "edgeButton";
        QTest::newRow("no such ancestor")
            << QPoint(205, 55) << "menu item" << QString() << "AXSheet" << QString();
        // The platform refuses, and these never search.
        QTest::newRow("no search") << QPoint(905, 255) << "window" << QString() << "AXButton" << QString();
    }

    void ancestorAtPosition() {
        QFETCH(QPoint, point);
        QFETCH(QString, type);
        QFETCH(QString, role);
        QString ofType;
        QString withRole;
        QCOMPARE(logOf([&] {
                     ofType = idOfCopy(copyUIElementOfTypeAtPosition(point, type));
                     withRole = idOfCopy(copyUIElementWithRoleAtPosition(point, role));
                 }),
                 QStringList());
        QTEST(ofType, "ofType");
        QTEST(withRole, "withRole");
    }
};

UIET_TEST_MAIN(tst_osxUIElementHitTesting)
#include "tst_osxUIElementHitTesting.moc"
