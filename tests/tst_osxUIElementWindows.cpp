#include "logCapture.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "osxUIElementUtils.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QJsonObject windowsFixture() {
    QFile file(QStringLiteral(UIET_FIXTURES_DIR "/desktop-windows.json"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

// The fixture with extras merged into the application, window or element of the id; the objects
// "attributes" and "faults" are merged key by key.
QJsonValue patched(const QJsonValue& value, const QString& id, const QJsonObject& extras) {
    if (value.isArray()) {
        QJsonArray array;
        for (const QJsonValue& each : value.toArray())
            array.append(patched(each, id, extras));
        return array;
    }
    if (!value.isObject())
        return value;
    QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it)
        it.value() = patched(it.value(), id, extras);
    if (object.value("id").toString() != id)
        return object;
    for (auto it = extras.begin(); it != extras.end(); ++it) {
        QJsonObject merged = object.value(it.key()).toObject();
        if (it.value().isObject() && !merged.isEmpty()) {
            const QJsonObject added = it.value().toObject();
            for (auto each = added.begin(); each != added.end(); ++each)
                merged.insert(each.key(), each.value());
            object.insert(it.key(), merged);
        } else {
            object.insert(it.key(), it.value());
        }
    }
    return object;
}

struct Patch {
    QString id;
    QJsonObject extras;
};

const QString noWindowLine = "Error: couldn't get target CGWindowID from AXUIElementRef. Error code: -25212";
const QString desktopNoteLine =
    "Note: this is normal if the AXUIElementRef refers to an element on the deskop, "
    "as the desktop has no window";
const QString otherPidLine =
    "Warning: copyUIElementWindow failed due to getting element with different pid than starting element";

} // namespace

Q_DECLARE_METATYPE(QList<Patch>)

class tst_osxUIElementWindows : public QObject, protected VirtualDesktopTestBase {
    Q_OBJECT

    CFTypeSmartRef<AXUIElementRef> copy(const QString& id) const {
        return CFTypeSmartRef<AXUIElementRef>(desktop->copyElement(id));
    }

    // The fixture id of a window: the one of the fixture element that is CFEqual to it.
    void loadPatched(const QList<Patch>& patches) {
        QJsonValue fixture = windowsFixture();
        for (const Patch& patch : patches)
            fixture = patched(fixture, patch.id, patch.extras);
        QVERIFY(desktop->load(fixture.toObject()));
    }

private slots:
    void init() {
        QVERIFY(installDesktop([](VirtualDesktop& desktop) { return desktop.load(windowsFixture()); }));
    }

    void cleanup() { uninstallDesktopAndCheckReferences(); }

    void windowOfElement_data() {
        QTest::addColumn<QString>("element");
        QTest::addColumn<QString>("window");
        QTest::addColumn<QString>("windowOrSheet");
        QTest::addColumn<QString>("robustWindow");
        QTest::addColumn<QStringList>("robustLog");
        const auto row = [](const char* name, const char* element, const char* window,
                            const char* windowOrSheet, const char* robustWindow,
                            const QStringList& robustLog = {}) {
            QTest::newRow(name) << QString(element) << QString(window) << QString(windowOrSheet)
                                << QString(robustWindow) << robustLog;
        };
        row("the window itself", "doc", "doc", "doc", "doc");
        row("in a sheet", "sheetButton", "doc", "sheet", "doc");
        row("in a nested window", "innerText", "doc", "inner", "doc");
        row("outermost by climbing", "innerSelfText", "doc", "innerSelf", "doc");
        row("AXWindow is itself", "selfWindowed", "doc", "doc", "doc");
        row("role unreadable, found by window id", "roleless", "", "doc", "doc");
        row("parent in another process", "strayButton", "", "stray", "stray", {otherPidLine});
        row("on the desktop", "desktopIconA", "", "", "", {noWindowLine, desktopNoteLine});
        row("window not in AXWindows", "hiddenChild", "", "hidden", "",
            {"Note: copyUIElementWindowUsingPrivateAPI failed. Searched matching app's list of windows, but "
             "none "
             "had the same window ID!"});
    }

    // The robust lookup logs what the walk logs and then what the lookup by window id logs.
    void windowOfElement() {
        QFETCH(QString, element);
        const auto handle = copy(element);
        QVERIFY(handle);
        QString window;
        logOf([&] { window = idOfCopy(copyUIElementWindow(handle)); });
        QTEST(window, "window");
        QCOMPARE(logOf([&] { window = idOfCopy(copyUIElementWindowOrSheet(handle)); }), QStringList());
        QTEST(window, "windowOrSheet");
        QTEST(logOf([&] { window = idOfCopy(copyUIElementWindowRobustly(handle)); }), "robustLog");
        QTEST(window, "robustWindow");
    }

    void windowByProcessAndID_data() {
        QTest::addColumn<int>("pid");
        QTest::addColumn<uint>("windowID");
        QTest::addColumn<QString>("window");
        QTest::addColumn<QStringList>("log");
        const QString zeroLine = "Error: couldn't get CGWindowID from AXUIElementRef. Error code: 0";
        QTest::newRow("back window") << 101 << 12u << "palette" << QStringList();
        QTest::newRow("id 0 logs once per window")
            << 101 << 0u << QString() << QStringList{zeroLine, zeroLine};
        QTest::newRow("id of another application") << 101 << 21u << QString() << QStringList();
        QTest::newRow("no such process")
            << 999 << 11u << QString()
            << QStringList{
                   "Error: failed to get windows for application AXUIElement. App pid: 999 , error code: "
                   "-25204"};
        QTest::newRow("pid 0") << 0 << 11u << QString()
                               << QStringList{
                                      "Error: failed to create AXUIElement for application with pid: 0"};
    }

    void windowByProcessAndID() {
        QFETCH(int, pid);
        QFETCH(uint, windowID);
        QFETCH(QStringList, log);
        QString window;
        QCOMPARE(logOf([&] { window = idOfCopy(copyWindowWithPIDAndWindowID(pid, windowID)); }), log);
        QTEST(window, "window");
    }

    void sameWindow_data() {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("logLines");
        QTest::newRow("sheet and nested window") << "sheetButton"
                                                 << "innerText" << 1 << 0;
        QTest::newRow("different windows") << "sheetButton"
                                           << "paletteButton" << 0 << 0;
        QTest::newRow("found by window id") << "roleless"
                                            << "selfWindowed" << 1 << 0;
        QTest::newRow("both on the desktop") << "desktopIconA"
                                             << "desktopIconB" << 2 << 4;
        QTest::newRow("one on the desktop") << "sheetButton"
                                            << "desktopIconB" << 2 << 2;
    }

    void sameWindow() {
        QFETCH(QString, a);
        QFETCH(QString, b);
        int result = -1;
        const QStringList log = logOf([&] { result = UIElementsHaveSameWindow(copy(a), copy(b)); });
        QTEST(result, "result");
        QTEST(int(log.size()), "logLines");
    }

    void windowAtPoint_data() {
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<QString>("window");
        QTest::addColumn<int>("pid");
        QTest::addColumn<QRect>("rect");
        QTest::newRow("front of two overlapping")
            << QPoint(150, 150) << "doc" << 101 << QRect(0, 0, 400, 300);
        QTest::newRow("back one outside the front")
            << QPoint(450, 350) << "palette" << 101 << QRect(100, 100, 400, 300);
        QTest::newRow("in a nested window") << QPoint(262, 162) << "doc" << 101 << QRect(0, 0, 400, 300);
        // Size truncated by itself: right is 10 + 100 - 1, not the truncated far edge 111.6.
        QTest::newRow("fractional frame")
            << QPoint(20, 810) << "fractional" << 404 << QRect(10, 800, 100, 50);
        QTest::newRow("truncated toward zero")
            << QPoint(-15, 905) << "negative" << 404 << QRect(-20, 900, 10, 10);
        QTest::newRow("no window") << QPoint(3000, 3000) << QString() << 0 << QRect();
    }

    void windowAtPoint() {
        QFETCH(QPoint, point);
        QFETCH(QString, window);
        QFETCH(QRect, rect);
        QString found;
        logOf([&] { found = idOfCopy(copyWindowContainingPoint(point)); });
        QCOMPARE(found, window);
        QCOMPARE(idOfCopy(copyWindowContainingPointUsingPrivateAPIs(point)), window);
        QRect screenRect(1, 2, 3, 4);
        QTEST(pidAndScreenRectOfWindowContainingPoint(point.x(), point.y(), screenRect), "pid");
        QCOMPARE(screenRect, rect);
        QTEST(pidOfWindowContainingPoint(point.x(), point.y()), "pid");
        int pid = -1;
        CGWindowID windowID = 99;
        QCOMPARE(pidAndWindowIDOfWindowContainingPoint(point.x(), point.y(), pid, windowID), kCGErrorSuccess);
        QTEST(pid, "pid");
        QCOMPARE(windowID == kCGNullWindowID, rect.isNull());
        QCOMPARE(rectOfWindowContainingPoint(point.x(), point.y()), rect);
    }

    void robustWindowAtPoint_data() {
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<QString>("window");
        QTest::addColumn<bool>("fellBack");
        QTest::newRow("accessible window") << QPoint(650, 350) << "viewer" << false;
        QTest::newRow("window the tree does not know") << QPoint(650, 650) << QString() << true;
        QTest::newRow("no window") << QPoint(3000, 3000) << QString() << true;
    }

    void robustWindowAtPoint() {
        QFETCH(QPoint, point);
        QFETCH(bool, fellBack);
        QString window;
        const QStringList log = logOf([&] { window = idOfCopy(copyWindowContainingPointRobustly(point)); });
        QTEST(window, "window");
        QCOMPARE(log, fellBack ? QStringList{"Note: normal method of finding window at point failed, using "
                                             "CGWindowID method"}
                               : QStringList());
    }

    void focusedWindow_data() {
        QTest::addColumn<QList<Patch>>("patches");
        QTest::addColumn<QString>("window");
        QTest::addColumn<QStringList>("log");
        const QJsonObject noFocusedWindow{
            {"faults", QJsonObject{{"attributes", QJsonObject{{"AXFocusedWindow", "kAXErrorNoValue"}}}}}};
        QTest::newRow("frontmost application's focused window") << QList<Patch>() << "doc" << QStringList();
        QTest::newRow("window of the focused element")
            << QList<Patch>{{"editor",
                             {{"attributes", QJsonObject{{"AXFocusedUIElement",
                                                          QJsonObject{{"element", "paletteButton"}}}}}}}}
            << "palette" << QStringList();
        QTest::newRow("focused element without window")
            << QList<Patch>{{"editor",
                             {{"attributes", QJsonObject{{"AXFocusedUIElement",
                                                          QJsonObject{{"element", "desktopIconA"}}}}}}}}
            << "doc" << QStringList{noWindowLine, desktopNoteLine};
        QTest::newRow("main window")
            << QList<Patch>{{"editor", noFocusedWindow},
                            {"doc", {{"attributes", QJsonObject{{"AXMain", false}}}}},
                            {"palette", {{"attributes", QJsonObject{{"AXMain", true}}}}}}
            << "palette" << QStringList();
        QTest::newRow("no main window")
            << QList<Patch>{{"editor", noFocusedWindow},
                            {"doc", {{"attributes", QJsonObject{{"AXMain", false}}}}}}
            << QString() << QStringList();
        QTest::newRow("no active application")
            << QList<Patch>{{"editor", {{"active", false}}}} << QString() << QStringList();
    }

    void focusedWindow() {
        QFETCH(QList<Patch>, patches);
        QFETCH(QString, window);
        QFETCH(QStringList, log);
        loadPatched(patches);
        QString focused;
        QCOMPARE(logOf([&] { focused = idOfCopy(copyFocusedWindow()); }), log);
        QCOMPARE(focused, window);
        if (!window.isEmpty())
            QVERIFY(isWindowFocused(copy(window)));
        QVERIFY(!isWindowFocused(copy("viewer")));
        QVERIFY(!isWindowFocused(nullptr));
    }

    void activateWindow_data() {
        QTest::addColumn<QString>("window");
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("pid");
        QTest::addColumn<QStringList>("log");
        QTest::newRow("already focused") << "doc" << 2 << -1 << QStringList{"Window already focused"};
        QTest::newRow("back window of the active application") << "palette" << 0 << 101 << QStringList();
        QTest::newRow("System Settings refusing AXRaise")
            << "settings" << 0 << 202
            << QStringList{
                   "Note: ignoring kAXErrorAttributeUnsupported error when activating window in System "
                   "Settings and assuming it worked"};
        QTest::newRow("another application refusing AXRaise")
            << "viewer" << 1 << -1
            << QStringList{"Error: cannot activate window; unable to send activate command to window. Error "
                           "code: -25205"};
        QTest::newRow("application refusing activation")
            << "stubborn" << 1 << -1
            << QStringList{
                   "Note: normal method of activating an application didn't work, trying alternative method",
                   "Error: alternative method didn't work. Error code: -600",
                   "Error: cannot activate window; unable to activate application"};
    }

    void activateWindow() {
        QFETCH(QString, window);
        QFETCH(int, result);
        int pid = -1;
        int activated = -1;
        QTEST(logOf([&] { activated = ::activateWindow(copy(window), pid); }), "log");
        QCOMPARE(activated, result);
        QTEST(pid, "pid");
        if (result == 0)
            QVERIFY(isWindowFocused(copy(window)));
    }

    void activateWindowContainingPoint() {
        int pid = -1;
        QCOMPARE(::activateWindowContainingPoint(QPoint(450, 350), pid), 0);
        QCOMPARE(pid, 101);
        QVERIFY(isWindowFocused(copy("palette")));
        pid = -1;
        QCOMPARE(
            logOf([&] { QCOMPARE(::activateWindowContainingPoint(QPoint(3000, 3000), pid), 1); }),
            QStringList({"Note: normal method of finding window at point failed, using CGWindowID method",
                         "Error: cannot activate window; unable to get window from UI element at position: "
                         "QPoint(3000,3000)"}));
        QCOMPARE(pid, -1);
    }

    void makeElementApplicationFrontmost() {
        ::makeElementApplicationFrontmost(copy("paletteButton"));
        QVERIFY(UIElementAttributeValue(copy("editor"), CFSTR("AXFrontmost")).toBool());
        ::makeElementApplicationFrontmost(copy("viewer"));
        QVERIFY(!UIElementAttributeValue(copy("editor"), CFSTR("AXFrontmost")).toBool());
        QCOMPARE(idOfCopy(copyFocusedWindow()), "viewer");
        const Ref<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
        ::makeElementApplicationFrontmost(systemWide);
        QCOMPARE(platformCallCount("AXUIElementSetAttributeValue"), 2);
    }
};

UIET_TEST_MAIN(tst_osxUIElementWindows)
#include "tst_osxUIElementWindows.moc"
