// Cursor hiding on a private X server: what the server says about the hides of the process, and
// which of its raw pointer events the taps take. The server is asked, never a screenshot.
//
// Xvfb has no input device that moves: real movement cannot be made here. The taps' filter is
// tested with the raw event data of the server's own non-XTEST pointer instead.

#include "cursorTestSupport.h"
#include "osxCursor.h"
#include "platformTestSupport.h"
#include "testSupport.h"
#include "x11/X11Connection.h"
#include "x11/X11Cursor.h"
#include "x11/X11EventTaps.h"
#include "x11TestSession.h"

#include <QMutex>
#include <QTest>

// Xlib defines macros (None, Bool, Status...) that collide with Qt's names: after every Qt header.
#include <X11/Xlib.h>
#include <X11/cursorfont.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/Xfixes.h>

namespace {

constexpr CGEventMask kMoved = CGEventMaskBit(kCGEventMouseMoved);
constexpr CGEventMask kMovementEvents = 0x80000e0;
constexpr CGEventMask kButtonEvents = 0x600001e;

} // namespace

using TapEvent = EventTapChannel::Event;

// Beside the type, where the containers' comparisons find it.
bool operator==(const TapEvent& a, const TapEvent& b) {
    return a.type == b.type && a.sourceState == b.sourceState;
}

Q_DECLARE_METATYPE(std::optional<TapEvent>)

class TestLiveCursor : public QObject, private VirtualDesktopTestBase {
    Q_OBJECT

    std::unique_ptr<LiveDesktopSession> session;
    // The test's own client: it injects input through XTEST; the server's refusals are counted.
    std::unique_ptr<X11Connection> client;
    Display* x = nullptr;
    std::shared_ptr<X11Cursor> cursor;
    std::shared_ptr<WatchedCursorPlatform> watched;
    QMutex seenMutex;
    QList<CGEventType> seen;
    std::atomic<bool> injectedIsArtificial{false};

    void click() {
        XTestFakeButtonEvent(x, 1, True, CurrentTime);
        XTestFakeButtonEvent(x, 1, False, CurrentTime);
        XSync(x, False);
    }
    void movePointer(int toX) {
        XTestFakeMotionEvent(x, -1, toX, 50, CurrentTime);
        XSync(x, False);
    }
    QList<CGEventType> seenEvents() {
        QMutexLocker lock(&seenMutex);
        return seen;
    }
    // Until everything that the tracking thread had to read so far has been handled.
    void waitForTrackingThread() {
        QMetaObject::invokeMethod(
            mouseTrackingThreadHelper, [] {}, Qt::BlockingQueuedConnection);
    }
    void hideUntilMovement(int reason) {
        hideCursor(reason);
        showCursorOnMouseMovement(reason);
        // The server sends raw motion once the tap has selected it.
        QVERIFY(LiveDesktopSession::waitUntil([this] { return watched->channelEnabled(kMoved); }));
    }

private slots:
    void initTestCase() {
        UIET_START_X11_TEST_SESSION(session, client, x);
        // A bare server shows no cursor: the root gets one, so that there is something to hide.
        XDefineCursor(x, DefaultRootWindow(x), XCreateFontCursor(x, XC_left_ptr));
        XSync(x, False);
        cursor = std::make_shared<X11Cursor>();
        watched = std::make_shared<WatchedCursorPlatform>(cursor);
    }

    void cleanupTestCase() {
        cursor.reset();
        watched.reset();
        client.reset();
        session.reset();
    }

    void init() {
        QVERIFY(installDesktop([](VirtualDesktop& desktop) { return desktop.load(QByteArray("{}")); }));
        setCursorPlatformForTesting(watched);
        seen.clear();
        injectedIsArtificial = false;
        initializeCursorHiding([this](__CGEvent* event) {
            QMutexLocker lock(&seenMutex);
            seen.append(CGEventGetType(event));
            return injectedIsArtificial &&
                   CGEventGetIntegerValueField(event, kCGEventSourceStateID) == kCGEventSourceStatePrivate;
        });
        QVERIFY(LiveDesktopSession::waitUntil([this] { return watched->openChannels() == 2; }));
    }

    void cleanup() {
        showCursor(QSet<int>{1, 2});
        deinitializeCursorHiding();
        QCOMPARE(watched->openChannels(), 0);
        // The count of the process never let a show go beyond its hides.
        QCOMPARE(cursor->refusedRequests(), 0);
        setCursorPlatformForTesting(nullptr);
        uninstallDesktopAndCheckReferences();
    }

    void serverHoldsOneHideForAllReasons() {
        hideCursor(1);
        hideCursor(2);
        QVERIFY(cursor->serverHoldsHide());
        // Another client cannot show what this process hides.
        client->syncAndTakeErrors();
        XFixesShowCursor(x, DefaultRootWindow(x));
        QCOMPARE(client->syncAndTakeErrors(), 1);
        showCursor(1);
        QVERIFY(cursor->serverHoldsHide());
        showCursor(2);
        QVERIFY(!cursor->serverHoldsHide());
        QVERIFY(CGCursorIsVisible());
    }

    void injectedClickIsMouseActivity() {
        hideUntilMovement(1);
        QVERIFY(cursor->serverHoldsHide());
        click();
        QVERIFY(LiveDesktopSession::waitUntil([] { return !isCursorHidden(); }));
        QVERIFY(!cursor->serverHoldsHide());
        QCOMPARE(seenEvents().value(0), CGEventType(kCGEventLeftMouseDown));
    }

    void injectedMovementIsNoMouseActivity() {
        injectedIsArtificial = true;
        hideUntilMovement(1);
        movePointer(40);
        movePointer(60);
        // The click comes after the moves on the server, and is the first event the taps report.
        click();
        QVERIFY(LiveDesktopSession::waitUntil([this] { return seenEvents().size() >= 2; }));
        waitForTrackingThread();
        QCOMPARE(seenEvents(), (QList<CGEventType>{kCGEventLeftMouseDown, kCGEventLeftMouseUp}));
        QVERIFY(isCursorHidden());
        QVERIFY(cursor->serverHoldsHide());
    }

    void rawEventSources_data() {
        QTest::addColumn<bool>("fromXTest");
        QTest::addColumn<int>("rawType");
        QTest::addColumn<int>("button");
        QTest::addColumn<std::optional<TapEvent>>("expected");
        const CGEventSourceStateID device = kCGEventSourceStateHIDSystemState;
        QTest::newRow("real motion") << false << int(XI_RawMotion) << 0
                                     << std::optional<TapEvent>({kCGEventMouseMoved, device});
        QTest::newRow("real right press") << false << int(XI_RawButtonPress) << 3
                                          << std::optional<TapEvent>({kCGEventRightMouseDown, device});
        QTest::newRow("real middle release") << false << int(XI_RawButtonRelease) << 2
                                             << std::optional<TapEvent>({kCGEventOtherMouseUp, device});
        QTest::newRow("real wheel") << false << int(XI_RawButtonPress) << 4 << std::optional<TapEvent>();
        QTest::newRow("XTEST motion") << true << int(XI_RawMotion) << 0 << std::optional<TapEvent>();
        QTest::newRow("XTEST left press")
            << true << int(XI_RawButtonPress) << 1
            << std::optional<TapEvent>({kCGEventLeftMouseDown, kCGEventSourceStatePrivate});
    }

    void rawEventSources() {
        QFETCH(bool, fromXTest);
        QFETCH(int, rawType);
        QFETCH(int, button);
        // The XTEST pointer is the one that the server names as the source of an injected move.
        unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
        XISetMask(bits, XI_RawMotion);
        XIEventMask mask{XIAllMasterDevices, int(sizeof bits), bits};
        XISelectEvents(x, DefaultRootWindow(x), &mask, 1);
        movePointer(70);
        int xtestPointer = 0;
        while (XPending(x) > 0 && !xtestPointer) {
            XEvent event;
            XNextEvent(x, &event);
            if (event.xcookie.type == GenericEvent && XGetEventData(x, &event.xcookie)) {
                if (event.xcookie.evtype == XI_RawMotion)
                    xtestPointer = static_cast<XIRawEvent*>(event.xcookie.data)->sourceid;
                XFreeEventData(x, &event.xcookie);
            }
        }
        XIEventMask none{XIAllMasterDevices, 0, nullptr};
        XISelectEvents(x, DefaultRootWindow(x), &none, 1);
        QVERIFY(xtestPointer != 0);
        int devices = 0;
        XIDeviceInfo* info = XIQueryDevice(x, XIAllDevices, &devices);
        int realPointer = 0;
        for (int i = 0; i < devices; ++i)
            if (info[i].use == XISlavePointer && info[i].deviceid != xtestPointer && !realPointer)
                realPointer = info[i].deviceid;
        XIFreeDeviceInfo(info);
        if (!realPointer)
            QSKIP("The server has no pointer device of its own");

        std::unique_ptr<X11EventTapChannel> channel =
            X11EventTapChannel::open(kMovementEvents | kButtonEvents);
        QVERIFY(channel);
        QTEST(channel->eventForRawEvent(rawType, button, fromXTest ? xtestPointer : realPointer), "expected");
    }

    // One connection delivers in order: once the injected click has arrived, the injected moves
    // before it have too.
    void tapChannelTakesInjectedClicksNotMoves() {
        std::unique_ptr<X11EventTapChannel> channel =
            X11EventTapChannel::open(kMovementEvents | kButtonEvents);
        QVERIFY(channel);
        channel->setEnabled(true);
        movePointer(80);
        click();
        QList<TapEvent> events;
        QVERIFY(LiveDesktopSession::waitUntil([&] {
            events += channel->readPending();
            return events.size() >= 2;
        }));
        const QList<TapEvent> expected{{kCGEventLeftMouseDown, kCGEventSourceStatePrivate},
                                       {kCGEventLeftMouseUp, kCGEventSourceStatePrivate}};
        QCOMPARE(events, expected);
    }
};

UIET_TEST_MAIN(TestLiveCursor)
#include "tst_liveCursor.moc"
