#include "logCapture.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include "NativeUIElement.h"
#include "osxUIElementUtils.h"
#include "windows.h"

#include <QCursor>
#include <QFile>
#include <QSemaphore>
#include <QThread>

#include <thread>
#include <vector>

namespace {

QByteArray windowsFixture() {
    QFile file(QStringLiteral(UIET_FIXTURES_DIR "/desktop-windows.json"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

using WindowAction = void (*)(const NativeUIElement&);

// An editor window with a toolbar (which has an action) holding a label (which has none), and
// a busy application that answers its next busyCalls calls with a time-out after busyDelayMs.
QByteArray queryDesktop(int busyCalls = 0, int busyDelayMs = 0) {
    return QStringLiteral(R"({"applications": [
      {"pid": 101, "bundleId": "com.example.editor", "windows": [
        {"id": "doc", "windowId": 11, "title": "Document", "frame": {"x": 0, "y": 0, "width": 400, "height": 300},
         "children": [
           {"id": "toolbar", "role": "AXToolbar", "frame": {"x": 10, "y": 10, "width": 200, "height": 50},
            "actions": [{"name": "AXShowMenu"}],
            "children": [{"id": "label", "role": "AXStaticText", "title": "Play",
                          "frame": {"x": 20, "y": 20, "width": 30, "height": 10},
                          "attributes": {"AXRoleDescription": "text"}}]},
           {"id": "field", "role": "AXTextField", "frame": {"x": 10, "y": 100, "width": 100, "height": 20},
            "attributes": {"AXRoleDescription": ""}}]}]},
      {"pid": 202, "bundleId": "com.example.busy", %1 "windows": [
        {"id": "busyWindow", "windowId": 21, "frame": {"x": 500, "y": 0, "width": 100, "height": 100},
         "children": [{"id": "busyButton", "role": "AXButton", "frame": {"x": 510, "y": 10, "width": 20, "height": 20}}]}]}
    ]})")
        .arg(busyCalls
                 ? QStringLiteral(R"("busy": {"delayMs": %1, "calls": %2},)").arg(busyDelayMs).arg(busyCalls)
                 : QString())
        .toUtf8();
}

const QPoint onLabel(25, 25);
const QPoint onBusyButton(515, 15);

// The two items of the line stand one blank apart, after the first item's own trailing blank.
const QString retryNote = "Note: first UI element query failed with timeout error even though it took  "
                          "less time than the actual timeout duration. Trying again!";
const QString searchTimeOutNote =
    "(Note: app timed out searching for a UI element, not emplying any further searching)";

} // namespace

Q_DECLARE_METATYPE(WindowAction)

class tst_NativeUIElement : public QObject, protected VirtualDesktopTestBase {
    Q_OBJECT

    // A handle that took over a new reference on the fixture element.
    NativeUIElement handleOn(const QString& id) const {
        NativeUIElement handle;
        handle.setOSSpecificElementReference(
            const_cast<void*>(static_cast<const void*>(desktop->copyElement(id))));
        return handle;
    }

    static CFIndex retainCountOf(const NativeUIElement& handle) {
        const CFTypeSmartRef<AXUIElementRef> reference(
            static_cast<AXUIElementRef>(handle.copyOSSpecificElementReference()));
        return reference ? CFGetRetainCount(reference) - 1 : 0;
    }

    bool names(const NativeUIElement& handle, const QString& id) const { return handle == handleOn(id); }

private slots:
    void init() {
        QVERIFY(installDesktop([](VirtualDesktop& desktop) { return desktop.load(windowsFixture()); }));
    }

    void cleanup() {
        setUIElementQueryDurationForTesting(nullptr);
        uninstallDesktopAndCheckReferences();
    }

    void load(const QByteArray& fixture) {
        QVERIFY(desktop->load(fixture));
        resetPlatformCallCounts();
    }

    void equality_data() {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<bool>("equal");
        QTest::newRow("two null handles") << QString() << QString() << false;
        QTest::newRow("null and element") << QString() << "doc" << false;
        QTest::newRow("two handles on one element") << "doc"
                                                    << "doc" << true;
        QTest::newRow("different elements") << "doc"
                                            << "palette" << false;
    }

    void equality() {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(bool, equal);
        const NativeUIElement first = a.isNull() ? NativeUIElement() : handleOn(a);
        const NativeUIElement second = b.isNull() ? NativeUIElement() : handleOn(b);
        QCOMPARE(first == second, equal);
        QCOMPARE(second == first, equal);
        QCOMPARE(first != second, !equal);
        QCOMPARE(second != first, !equal);
        // The meta-type's equality is the handle's own.
        QCOMPARE(QVariant::fromValue(first) == QVariant::fromValue(second), equal);
    }

    void copiesShareTheElementWithOwnRetains() {
        NativeUIElement original = handleOn("doc");
        original.setScreenPosition(QPoint(5, 6));
        QCOMPARE(retainCountOf(original), 1);
        {
            const NativeUIElement copy(original);
            QCOMPARE(retainCountOf(original), 2);
            QCOMPARE(copy.screenPosition(), QPoint(5, 6));
            NativeUIElement assigned = handleOn("palette");
            assigned = copy;
            QCOMPARE(retainCountOf(original), 3);
            QCOMPARE(assigned.screenPosition(), QPoint(5, 6));
            QVERIFY(names(assigned, "doc"));
            assigned = NativeUIElement();
            QVERIFY(assigned.isNull());
            QCOMPARE(retainCountOf(original), 2);
        }
        QCOMPARE(retainCountOf(original), 1);
        original.setOSSpecificElementReference(nullptr);
        QVERIFY(original.isNull());
        QCOMPARE(original.copyOSSpecificElementReference(), nullptr);
    }

    void selfAssignment_data() {
        QTest::addColumn<bool>("otherCopy");
        QTest::newRow("with the last retain") << false;
        QTest::newRow("with a copy alive") << true;
    }

    // Assigned to itself with the last retain, a handle frees its element and becomes null.
    void selfAssignment() {
        QFETCH(bool, otherCopy);
        const CFIndex liveBefore = CFRuntime::liveObjectCount();
        NativeUIElement handle = handleOn("doc");
        NativeUIElement copy;
        if (otherCopy)
            copy = handle;
        QCOMPARE(CFRuntime::liveObjectCount(), liveBefore + 1);
        NativeUIElement& alias = handle;
        handle = alias;
        QCOMPARE(handle.isNull(), !otherCopy);
        QCOMPARE(CFRuntime::liveObjectCount(), liveBefore + (otherCopy ? 1 : 0));
        if (otherCopy) {
            QVERIFY(handle == copy);
            QCOMPARE(retainCountOf(handle), 2);
        }
    }

    void copiesOnOtherThreads() {
        const NativeUIElement original = handleOn("doc");
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([original] {
                NativeUIElement kept;
                for (int i = 0; i < 2000; ++i) {
                    NativeUIElement copy(original);
                    kept = copy;
                }
            });
        }
        NativeUIElement handedOver;
        QThread* thread = QThread::create([&handedOver, copy = original]() mutable { handedOver = copy; });
        thread->start();
        for (std::thread& each : threads)
            each.join();
        QVERIFY(thread->wait());
        delete thread;
        QCOMPARE(retainCountOf(original), 2);
        QVERIFY(handedOver == original);
    }

    void focusedWindow() {
        QVERIFY(names(::focusedWindow(), "doc"));
        QVERIFY(desktop->load(QByteArray(R"({"applications": [{"pid": 1}]})")));
        QVERIFY(::focusedWindow().isNull());
    }

    void windowUnderMouse_data() {
        QTest::addColumn<QPoint>("mouse");
        QTest::addColumn<QString>("window");
        QTest::newRow("front window") << QPoint(150, 150) << "doc";
        QTest::newRow("in a sheet") << QPoint(65, 65) << "doc";
        QTest::newRow("back window") << QPoint(450, 350) << "palette";
        QTest::newRow("no window") << QPoint(3000, 3000) << QString();
    }

    void windowUnderMouse() {
        QFETCH(QPoint, mouse);
        QFETCH(QString, window);
        QCursor::setPos(mouse);
        const NativeUIElement found = ::windowUnderMouse();
        QCOMPARE(found.isNull(), window.isEmpty());
        if (!window.isEmpty())
            QVERIFY(names(found, window));
    }

    void titleBarButtons_data() {
        QTest::addColumn<WindowAction>("action");
        QTest::addColumn<QString>("window");
        QTest::addColumn<QString>("pressed");
        QTest::addColumn<QString>("pressedAction");
        QTest::addColumn<bool>("minimized");
        QTest::addColumn<QStringList>("warnings");
        const QStringList noButton{"Could not trigger window action! Unable to get title bar button."};
        QTest::newRow("minimize through its attribute") << WindowAction(minimizeWindow) << "buttons"
                                                        << "minimizeButton"
                                                        << "AXPress" << false << QStringList();
        QTest::newRow("minimize without a button")
            << WindowAction(minimizeWindow) << "bare" << QString() << QString() << true << QStringList();
        QTest::newRow("minimize without a button, refused")
            << WindowAction(minimizeWindow) << "locked" << QString() << QString() << false
            << QStringList{"Could not trigger window action! Error code: -25204"};
        QTest::newRow("zoom button without AXZoomWindow") << WindowAction(zoomWindow) << "buttons"
                                                          << "zoomButton"
                                                          << "AXPress" << false << QStringList();
        QTest::newRow("zoom button with AXZoomWindow") << WindowAction(zoomWindow) << "zoomable"
                                                       << "zoomableButton"
                                                       << "AXZoomWindow" << false << QStringList();
        QTest::newRow("zoom without a button")
            << WindowAction(zoomWindow) << "bare" << QString() << QString() << false << noButton;
        QTest::newRow("close by subrole") << WindowAction(closeWindow) << "buttons"
                                          << "closeButton"
                                          << "AXPress" << false << QStringList();
        QTest::newRow("close without a button")
            << WindowAction(closeWindow) << "bare" << QString() << QString() << false << noButton;
        QTest::newRow("null handle") << WindowAction(closeWindow) << QString() << QString() << QString()
                                     << false << QStringList();
    }

    void titleBarButtons() {
        QFETCH(WindowAction, action);
        QFETCH(QString, window);
        QFETCH(QString, pressed);
        QFETCH(QString, pressedAction);
        QFETCH(bool, minimized);
        QFETCH(QStringList, warnings);
        for (const QString& warning : warnings)
            QTest::ignoreMessage(QtWarningMsg, qPrintable(warning));
        action(window.isNull() ? NativeUIElement() : handleOn(window));
        for (const char* button : {"minimizeButton", "zoomButton", "zoomableButton", "closeButton"}) {
            for (const char* name : {"AXPress", "AXZoomWindow"}) {
                QCOMPARE(desktop->actionCount(button, name),
                         pressed == button && pressedAction == name ? 1 : 0);
            }
        }
        if (!window.isNull())
            QCOMPARE(UIElementAttributeValue(CFTypeSmartRef<AXUIElementRef>(desktop->copyElement(window)),
                                             CFSTR("AXMinimized"))
                         .toBool(),
                     minimized);
    }

    // A zoom button that fails for another reason than a missing action is not pressed again.
    void zoomButtonFailingIsNotPressed() {
        zoomWindow(handleOn("busyZoom"));
        QCOMPARE(desktop->actionCount("busyZoomButton", "AXPress"), 0);
    }
    void timeOuts_data() {
        QTest::addColumn<int>("busyCalls");
        QTest::addColumn<QList<qint64>>("durations"); // of the queries in turn; none: the real clock
        QTest::addColumn<int>("busyDelayMs");
        QTest::addColumn<bool>("employSearch");
        QTest::addColumn<int>("queries");
        QTest::addColumn<bool>("found");
        QTest::addColumn<bool>("timedOut");
        QTest::newRow("99 ms, then an element") << 1 << QList<qint64>{99} << 0 << true << 2 << true << false;
        QTest::newRow("99 ms, then an element, plain query")
            << 1 << QList<qint64>{99} << 0 << false << 2 << true << false;
        QTest::newRow("100 ms") << 1 << QList<qint64>{100} << 0 << true << 1 << false << true;
        QTest::newRow("100 ms, plain query") << 1 << QList<qint64>{100} << 0 << false << 1 << false << true;
        QTest::newRow("twice 5 ms") << 2 << QList<qint64>{5, 5} << 0 << true << 2 << false << true;
        QTest::newRow("99 ms, then 500 ms") << 2 << QList<qint64>{99, 500} << 0 << true << 2 << false << true;
        QTest::newRow("no time-out") << 0 << QList<qint64>{500} << 0 << true << 1 << true << false;
        // The application's own delay, far above the limit, measured by the real clock.
        QTest::newRow("a real 300 ms") << 1 << QList<qint64>() << 300 << true << 1 << false << true;
    }

    void timeOuts() {
        QFETCH(int, busyCalls);
        QFETCH(QList<qint64>, durations);
        QFETCH(int, busyDelayMs);
        QFETCH(bool, employSearch);
        QFETCH(int, queries);
        QFETCH(bool, found);
        QFETCH(bool, timedOut);
        load(queryDesktop(busyCalls, busyDelayMs));
        if (!durations.isEmpty())
            setUIElementQueryDurationForTesting(
                [durations, next = 0](const QElapsedTimer&) mutable { return durations.value(next++, -1); });
        NativeUIElement handle;
        bool reportedTimeOut = false;
        const QStringList log = logOf([&] {
            handle.setToElementAtScreenPosition(onBusyButton, QString(), false, {}, employSearch,
                                                &reportedTimeOut, QRect());
        });
        QCOMPARE(int(platformCallCount(PlatformCall::AXUIElementCopyElementAtPosition)), queries);
        QCOMPARE(handle.isNull(), !found);
        if (found)
            QVERIFY(names(handle, "busyButton"));
        QCOMPARE(reportedTimeOut, timedOut);
        QCOMPARE(handle.screenPosition(), onBusyButton);
        QStringList expectedLog;
        for (int query = 0; query < std::min(queries, busyCalls); ++query) {
            if (employSearch)
                expectedLog << searchTimeOutNote;
            if (query == 0 && queries == 2)
                expectedLog << retryNote;
        }
        QCOMPARE(log, expectedLog);
    }

    // The caller presets the flag; a query that does not time out leaves it as it was.
    void timedOutIsNeverCleared() {
        load(queryDesktop());
        NativeUIElement handle;
        bool timedOut = true;
        handle.setToElementAtScreenPosition(onLabel, QString(), false, {}, true, &timedOut, QRect());
        QVERIFY(names(handle, "label"));
        QVERIFY(timedOut);
        load(queryDesktop(1, 0));
        setUIElementQueryDurationForTesting([](const QElapsedTimer&) { return 100; });
        QTest::ignoreMessage(QtDebugMsg, qPrintable(searchTimeOutNote));
        handle.setToElementAtScreenPosition(onBusyButton, QString(), false, {}, true, nullptr, QRect());
        QVERIFY(handle.isNull());
    }

    void filtersAndClimbs_data() {
        QTest::addColumn<QPoint>("position");
        QTest::addColumn<QString>("ancestorType");
        QTest::addColumn<bool>("ancestorWithActions");
        QTest::addColumn<QStringList>("allowed");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<bool>("attributesRead");
        QTest::addColumn<bool>("actionsAsked");
        QTest::newRow("the hit") << onLabel << QString() << false << QStringList() << "label" << false
                                 << false;
        QTest::newRow("an allowed application")
            << onLabel << QString() << false << QStringList{"com.example.other", "com.example.editor"}
            << "label" << false << false;
        QTest::newRow("another application, no climb")
            << onLabel << "window" << true << QStringList{"com.example.other"} << QString() << false << false;
        QTest::newRow("type climb") << onLabel << "window" << false << QStringList() << "doc" << true
                                    << false;
        QTest::newRow("actions climb")
            << onLabel << QString() << true << QStringList() << "toolbar" << true << true;
        QTest::newRow("filter before the climb")
            << onLabel << "window" << true << QStringList{"com.example.editor"} << "doc" << true << true;
        QTest::newRow("no ancestor of the type, no actions climb")
            << onLabel << "menu item" << true << QStringList() << QString() << true << false;
        QTest::newRow("nothing there")
            << QPoint(3000, 3000) << "window" << true << QStringList() << QString() << false << false;
    }

    void filtersAndClimbs() {
        QFETCH(QPoint, position);
        QFETCH(QString, ancestorType);
        QFETCH(bool, ancestorWithActions);
        QFETCH(QStringList, allowed);
        QFETCH(QString, expected);
        QFETCH(bool, attributesRead);
        QFETCH(bool, actionsAsked);
        load(queryDesktop());
        const NativeUIElement handle(position, ancestorType, ancestorWithActions,
                                     QSet<QString>(allowed.begin(), allowed.end()));
        QCOMPARE(handle.isNull(), expected.isNull());
        if (!expected.isNull())
            QVERIFY(names(handle, expected));
        QCOMPARE(handle.screenPosition(), position);
        QCOMPARE(platformCallCount(PlatformCall::AXUIElementCopyAttributeValue) > 0, attributesRead);
        QCOMPARE(platformCallCount(PlatformCall::AXUIElementCopyActionNames) > 0, actionsAsked);
    }

    void hierarchy() {
        load(queryDesktop());
        NativeUIElement label = handleOn("label");
        label.setScreenPosition(onLabel);
        const NativeUIElement parent = label.parentElement();
        QVERIFY(names(parent, "toolbar"));
        QCOMPARE(parent.screenPosition(), QPoint(0, 0));
        const NativeUIElement window = label.ancestorElementOfType("window");
        QVERIFY(names(window, "doc"));
        QCOMPARE(window.screenPosition(), QPoint(0, 0));
        QVERIFY(label.ancestorElementOfType("menu item").isNull());
        QVERIFY(NativeUIElement().parentElement().isNull());
        QVERIFY(NativeUIElement().ancestorElementOfType("window").isNull());
    }

    void readers_data() {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QRect>("screenRect");
        QTest::addColumn<QString>("application");
        QTest::addColumn<long>("children");
        QTest::addColumn<bool>("textField");
        QTest::addColumn<QString>("typeDescription");
        QTest::addColumn<QString>("description");
        QTest::newRow("role description and title")
            << "label" << QRect(20, 20, 30, 10) << "com.example.editor" << 0L << false << "text"
            << "text: Play";
        QTest::newRow("role alone") << "toolbar" << QRect(10, 10, 200, 50) << "com.example.editor" << 1L
                                    << false << "AXToolbar"
                                    << "AXToolbar";
        QTest::newRow("empty role description")
            << "field" << QRect(10, 100, 100, 20) << "com.example.editor" << 0L << true << "AXTextField"
            << "AXTextField";
        QTest::newRow("window title")
            << "doc" << QRect(0, 0, 400, 300) << "com.example.editor" << 2L << false << "AXWindow"
            << "AXWindow: Document";
        QTest::newRow("null handle") << QString() << QRect() << QString() << 0L << false << QString()
                                     << QString();
    }

    void readers() {
        QFETCH(QString, id);
        QFETCH(QRect, screenRect);
        QFETCH(QString, application);
        QFETCH(long, children);
        QFETCH(bool, textField);
        QFETCH(QString, typeDescription);
        QFETCH(QString, description);
        load(queryDesktop());
        const NativeUIElement handle = id.isNull() ? NativeUIElement() : handleOn(id);
        bool secure = true;
        const QStringList log = logOf([&] {
            QCOMPARE(handle.screenRect(), screenRect);
            QCOMPARE(handle.applicationIdentifier(), application);
            QCOMPARE(handle.childrenCount(), children);
            QCOMPARE(handle.isTextField(&secure), textField);
            QCOMPARE(handle.typeDescription(), typeDescription);
            QCOMPARE(handle.description(), description);
        });
        QVERIFY(!secure);
        QCOMPARE(log, QStringList());
    }

    void printDebugInfo() {
        load(queryDesktop());
        NativeUIElement handle = handleOn("label");
        handle.setScreenPosition(QPoint(5, 6));
        const QStringList log = logOf([&] { handle.printDebugInfo(); });
        QCOMPARE(log.size(), 4);
        QCOMPARE(log[0], "  screenPosition: QPoint(5,6)");
        QVERIFY2(log[1].startsWith("  data: 0x"), qPrintable(log[1]));
        QVERIFY2(log[2].startsWith("  data->element: 0x"), qPrintable(log[2]));
        QCOMPARE(log[3], "  element info: \"AXStaticText: 'Play'\"");
        QCOMPARE(NativeUIElement().debugInfo(), "NULL AXUIElementRef");
        QVERIFY(handle.debugInfo().contains("Play"));
    }

    // The window server is asked once per handle for a window it has; a copy asks again, an
    // assigned handle keeps its own.
    void windowRectIsCached() {
        load(queryDesktop());
        const auto lookups = [] { return platformCallCount(PlatformCall::CGSFindWindowAndOwner); };
        NativeUIElement handle = handleOn("label");
        handle.setScreenPosition(onLabel);
        QCOMPARE(handle.windowRect(), QRect(0, 0, 400, 300));
        const quint64 oneLookup = lookups();
        QVERIFY(oneLookup > 0);
        QCOMPARE(handle.windowRect(), QRect(0, 0, 400, 300));
        QCOMPARE(lookups(), oneLookup);

        const NativeUIElement copy(handle);
        QCOMPARE(copy.windowRect(), QRect(0, 0, 400, 300));
        QCOMPARE(lookups(), 2 * oneLookup);

        NativeUIElement assigned;
        assigned.setScreenPosition(onBusyButton);
        QCOMPARE(assigned.windowRect(), QRect(500, 0, 100, 100));
        assigned = handle;
        QCOMPARE(assigned.screenPosition(), onLabel);
        QCOMPARE(assigned.windowRect(), QRect(500, 0, 100, 100));
        QCOMPARE(lookups(), 3 * oneLookup);
    }

    void windowRectOfNoWindowIsAskedAgain() {
        load(queryDesktop());
        NativeUIElement handle;
        handle.setScreenPosition(QPoint(3000, 3000));
        QCOMPARE(handle.windowRect(), QRect());
        const quint64 oneLookup = platformCallCount(PlatformCall::CGSFindWindowAndOwner);
        QCOMPARE(handle.windowRect(), QRect());
        QCOMPARE(platformCallCount(PlatformCall::CGSFindWindowAndOwner), 2 * oneLookup);
    }

    // A rectangle handed to the query is the cache; a null one is looked up on demand.
    void windowRectGivenToTheQuery() {
        load(queryDesktop());
        NativeUIElement handle;
        handle.setToElementAtScreenPosition(onLabel, QString(), false, {}, false, nullptr, QRect(1, 2, 3, 4));
        QCOMPARE(handle.windowRect(), QRect(1, 2, 3, 4));
        QCOMPARE(platformCallCount(PlatformCall::CGSFindWindowAndOwner), 0u);
        handle.setToElementAtScreenPosition(onBusyButton, QString(), false, {}, false, nullptr, QRect());
        QCOMPARE(handle.windowRect(), QRect(500, 0, 100, 100));
    }

    void executeUIElementTask_data() {
        QTest::addColumn<bool>("mainThreadFree");
        QTest::newRow("finished in time") << true;
        QTest::newRow("timed out") << false;
    }

    // The task runs on the main thread; a task still blocked when the time-out passes is reported.
    void executeUIElementTask() {
        QFETCH(bool, mainThreadFree);
        auto gate = std::make_shared<QSemaphore>(mainThreadFree ? 1 : 0);
        auto ranOnMainThread = std::make_shared<bool>(false);
        bool result = !mainThreadFree;
        const QStringList log = logOf([&] {
            QThread* caller = QThread::create([&] {
                result = ::executeUIElementTask(mainThreadFree ? 60000 : 20, [gate, ranOnMainThread] {
                    gate->acquire();
                    *ranOnMainThread = QThread::currentThread() == QCoreApplication::instance()->thread();
                });
                if (!mainThreadFree)
                    gate->release();
            });
            caller->start();
            QTRY_VERIFY_WITH_TIMEOUT(caller->isFinished(), 60000);
            delete caller;
        });
        QCOMPARE(result, mainThreadFree);
        QTRY_VERIFY(*ranOnMainThread);
        QCOMPARE(log, mainThreadFree ? QStringList() : QStringList{"Error: UI element task timed out"});
    }
};

UIET_GUI_TEST_MAIN(tst_NativeUIElement)
#include "tst_NativeUIElement.moc"
