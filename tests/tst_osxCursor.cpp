// Cursor hiding's reasons, taps, timers and thread, over a stand-in cursor platform whose taps are
// fed by the test through sockets, as the X server's are.

#include "cursorTestSupport.h"
#include "logCapture.h"
#include "osxCursor.h"
#include "platformCursor.h"
#include "platformTestSupport.h"
#include "testSupport.h"

#include <QMutex>
#include <QTest>

#include <sys/socket.h>
#include <unistd.h>

#include <atomic>

namespace {

class FakeChannel final : public EventTapChannel {
public:
    FakeChannel() { socketpair(AF_UNIX, SOCK_STREAM, 0, sockets); }
    ~FakeChannel() override {
        ::close(sockets[0]);
        ::close(sockets[1]);
    }
    int socket() const override { return sockets[0]; }
    void setEnabled(bool) override {}
    QList<Event> readPending() override {
        char bytes[64];
        (void)::read(sockets[0], bytes, sizeof bytes);
        QMutexLocker lock(&mutex);
        return std::exchange(queue, {});
    }
    void post(CGEventType type, CGEventSourceStateID state) {
        QMutexLocker lock(&mutex);
        queue.append({type, state});
        (void)::write(sockets[1], "e", 1);
    }

private:
    int sockets[2] = {-1, -1};
    QMutex mutex;
    QList<Event> queue;
};

// The window server's count of this process's hides, and a cursor that another process may show.
class FakeCursorPlatform final : public CursorPlatform {
public:
    void hideCursor() override {
        ++hides;
        ++count;
        shownByAnotherProcess = false;
    }
    void showCursor() override {
        ++shows;
        count = std::max(0, count - 1);
    }
    bool isCursorVisible() override { return count == 0 || shownByAnotherProcess; }
    void forceShowCursor() override {
        ++forcedShows;
        count = 0;
    }
    std::unique_ptr<EventTapChannel> openEventTapChannel(CGEventMask) override {
        return tapsAvailable ? std::make_unique<FakeChannel>() : nullptr;
    }

    std::atomic<int> hides{0};
    std::atomic<int> shows{0};
    std::atomic<int> forcedShows{0};
    std::atomic<int> count{0};
    std::atomic<bool> shownByAnotherProcess{false};
    std::atomic<bool> tapsAvailable{true};
};

constexpr CGEventMask kMoved = CGEventMaskBit(kCGEventMouseMoved);
constexpr CGEventMask kLeftDown = CGEventMaskBit(kCGEventLeftMouseDown);
const QString kTapsNotInitialized =
    "Warning: Cannot use 'hide cursor' feature; mouse tracking event taps are not initialized";

// Every log line of any thread, while it lives.
class LogRecorder {
public:
    LogRecorder() {
        active = this;
        previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) {
            QMutexLocker lock(&active->mutex);
            active->recorded.append(text);
        });
    }
    ~LogRecorder() {
        qInstallMessageHandler(previous);
        active = nullptr;
    }
    QStringList lines() {
        QMutexLocker lock(&mutex);
        return recorded;
    }

private:
    static inline LogRecorder* active = nullptr;
    QtMessageHandler previous;
    QMutex mutex;
    QStringList recorded;
};

} // namespace

class TestOsxCursor : public QObject, private VirtualDesktopTestBase {
    Q_OBJECT

    std::shared_ptr<FakeCursorPlatform> platform;
    std::shared_ptr<WatchedCursorPlatform> watched;
    QMutex seenMutex;
    QList<CGEventType> seen;

    // The events a test posts from a program count as the system's own: the X11 convention.
    bool isArtificial(__CGEvent* event) {
        QMutexLocker lock(&seenMutex);
        seen.append(CGEventGetType(event));
        return CGEventGetIntegerValueField(event, kCGEventSourceStateID) == kCGEventSourceStatePrivate;
    }
    int seenCount() {
        QMutexLocker lock(&seenMutex);
        return int(seen.size());
    }
    // Into the open tap channel that takes events of the kind.
    void post(CGEventMask kind, CGEventType type, CGEventSourceStateID source) {
        static_cast<FakeChannel*>(watched->channel(kind))->post(type, source);
    }
    // The platform refuses the taps: their warning, and a hide that changes nothing.
    void startWithTapsRefused() {
        {
            LogRecorder log;
            start();
            QTRY_VERIFY(
                log.lines().contains("Warning: CGEventTapCreate failure, returned null for movement event "
                                     "tap. Consequently, the 'hide "
                                     "cursor during touches' feature will probably not work as expected."));
        }
        QTest::ignoreMessage(QtWarningMsg, qPrintable(kTapsNotInitialized));
        hideCursor(1);
        QVERIFY(!isCursorHidden());
    }

    void start() {
        initializeCursorHiding([this](__CGEvent* event) { return isArtificial(event); });
    }
    void hide(const QList<int>& reasons) {
        for (int reason : reasons)
            hideCursor(reason);
    }

private slots:
    void init() {
        QVERIFY(installDesktop([](VirtualDesktop& desktop) { return desktop.load(QByteArray("{}")); }));
        platform = std::make_shared<FakeCursorPlatform>();
        watched = std::make_shared<WatchedCursorPlatform>(platform);
        setCursorPlatformForTesting(watched);
        seen.clear();
        if (QByteArray(QTest::currentTestFunction()).startsWith("tapsMissing"))
            return;
        start();
        QTRY_COMPARE(watched->openChannels(), 2);
        // Off until a reason waits for movement.
        QTRY_VERIFY(!watched->channelEnabled(kMoved));
    }

    void cleanup() {
        showCursor(QSet<int>{1, 2, 3, 4, 5, 1003});
        deinitializeCursorHiding();
        QCOMPARE(watched->openChannels(), 0);
        setCursorPlatformForTesting(nullptr);
        watched.reset();
        platform.reset();
        uninstallDesktopAndCheckReferences();
    }

    void tapsMissingThenRetried() {
        platform->tapsAvailable = false;
        startWithTapsRefused();
        QVERIFY(!QTest::currentTestFailed());
        QCOMPARE(platform->hides.load(), 0);
        QTest::ignoreMessage(QtWarningMsg, qPrintable(kTapsNotInitialized));
        showCursorOnMouseMovement(1);

        // The retry timer makes the taps stand once the platform lets it.
        platform->tapsAvailable = true;
        QTRY_COMPARE(watched->openChannels(), 2);
        QTRY_VERIFY(!watched->channelEnabled(kMoved));
        hideCursor(1);
        QVERIFY(isCursorHidden());
        QCOMPARE(platform->hides.load(), 1);
    }

    void hideAndShow_data() {
        QTest::addColumn<QList<int>>("hidden");
        QTest::addColumn<QList<int>>("shown");
        QTest::addColumn<bool>("stillHidden");
        QTest::addColumn<int>("platformShows");
        QTest::addColumn<QStringList>("showLog");
        QTest::newRow("two reasons, one shown")
            << QList<int>{1, 2} << QList<int>{1} << true << 0
            << QStringList{"Note: cursor is still hidden for reason IDs: QSet(2)"};
        QTest::newRow("one reason hidden twice, shown once")
            << QList<int>{1, 1} << QList<int>{1} << false << 1 << QStringList{};
        QTest::newRow("both shown at once")
            << QList<int>{1, 2} << QList<int>{1, 2} << false << 1 << QStringList{};
        QTest::newRow("a reason that does not hide")
            << QList<int>{2} << QList<int>{5} << true << 0 << QStringList{};
    }

    void hideAndShow() {
        QFETCH(QList<int>, hidden);
        QFETCH(QList<int>, shown);
        QFETCH(QStringList, showLog);
        QFETCH(int, platformShows);
        const QStringList hideLog = logOf([&] { hide(hidden); });
        QCOMPARE(hideLog.first(),
                 "Cursor: hiding for reason id: " + cursorHidingReasonDescription(hidden.first()));
        QCOMPARE(hideLog.size(), QSet<int>(hidden.cbegin(), hidden.cend()).size());
        // One hide for the whole set keeps the platform's count balanced.
        QCOMPARE(platform->hides.load(), 1);
        QCOMPARE(logOf([&] { showCursor(QSet<int>(shown.cbegin(), shown.cend())); }), showLog);
        QTEST(isCursorHidden(), "stillHidden");
        QCOMPARE(platform->shows.load(), platformShows);
        QCOMPARE(platform->forcedShows.load(), platformShows);
        QCOMPARE(platform->isCursorVisible(), !isCursorHidden());
    }

    void showingEndsWatchingOfReasonNotHidden() {
        showCursorOnMouseMovement(4);
        QTRY_VERIFY(watched->channelEnabled(kMoved));
        showCursor(4);
        QTRY_VERIFY(!watched->channelEnabled(kMoved));
        QCOMPARE(platform->shows.load(), 0);
    }

    void mouseActivity_data() {
        QTest::addColumn<CGEventType>("type");
        QTest::addColumn<CGEventSourceStateID>("source");
        QTest::addColumn<QList<int>>("hidden");
        QTest::addColumn<QList<int>>("watching");
        QTest::addColumn<QList<int>>("stillHidden");
        QTest::addColumn<QStringList>("log");
        const CGEventSourceStateID device = kCGEventSourceStateHIDSystemState;
        const CGEventSourceStateID injected = kCGEventSourceStatePrivate;
        QTest::newRow("real movement ends the watched reasons, not the others")
            << CGEventType(kCGEventMouseMoved) << device << QList<int>{1, 2, 3} << QList<int>{1, 2}
            << QList<int>{3}
            << QStringList{"Cursor: showing due to mouse movement for reason ids:", "   reason id 2",
                           "   touches", "Note: cursor is still hidden for reason IDs: QSet(3)"};
        QTest::newRow("a real click ends the watched reason")
            << CGEventType(kCGEventRightMouseDown) << device << QList<int>{1003} << QList<int>{1003}
            << QList<int>{}
            << QStringList{"Cursor: showing due to mouse movement for reason id: magnifier id 3"};
        QTest::newRow("synthetic movement") << CGEventType(kCGEventMouseMoved) << injected << QList<int>{1}
                                            << QList<int>{1} << QList<int>{1} << QStringList{};
        QTest::newRow("synthetic click") << CGEventType(kCGEventLeftMouseDown) << injected << QList<int>{1}
                                         << QList<int>{1} << QList<int>{1} << QStringList{};
    }

    void mouseActivity() {
        QFETCH(CGEventType, type);
        QFETCH(CGEventSourceStateID, source);
        QFETCH(QList<int>, watching);
        QFETCH(QList<int>, stillHidden);
        QFETCH(QStringList, log);
        QFETCH(QList<int>, hidden);
        hide(hidden);
        for (int reason : watching)
            showCursorOnMouseMovement(reason);
        QTRY_VERIFY(watched->channelEnabled(kMoved));
        LogRecorder recorder;
        post(CGEventMaskBit(type), type, source);
        // Done when the test for synthetic events has said yes, or the last line is logged.
        QTRY_COMPARE(seenCount(), 1);
        QTRY_COMPARE(recorder.lines().size(), log.size());
        if (stillHidden.isEmpty())
            QTRY_COMPARE(platform->shows.load(), 1);
        QStringList lines = recorder.lines();
        // One line per reason, in no particular order.
        if (lines.size() > 2)
            std::sort(lines.begin() + 1, lines.end() - 1);
        QCOMPARE(lines, log);
        QCOMPARE(isCursorHidden(), !stillHidden.isEmpty());
        if (!stillHidden.isEmpty())
            QVERIFY(!isCursorHiddenForOtherReasons(stillHidden.first()));
    }

    void postButtonCheckAfterSyntheticClick() {
        hideCursor(1);
        // Only the check after the click may find the cursor, not the steady one.
        mouseTrackingThreadHelper->stopContinualCursorCheckTimer();
        QMetaObject::invokeMethod(
            mouseTrackingThreadHelper, [] {}, Qt::BlockingQueuedConnection);
        platform->shownByAnotherProcess = true;
        LogRecorder recorder;
        post(kLeftDown, kCGEventLeftMouseDown, kCGEventSourceStatePrivate);
        QTRY_COMPARE(platform->hides.load(), 2);
        QCOMPARE(platform->shows.load(), 1);
        QCOMPARE(recorder.lines(),
                 QStringList{"Note: cursor became visible due to another process, so hiding it again"});
        QVERIFY(!platform->isCursorVisible());
    }

    void queries_data() {
        QTest::addColumn<QList<int>>("hidden");
        QTest::addColumn<int>("reason");
        QTest::addColumn<bool>("otherReasons");
        QTest::addColumn<bool>("nonMagnifier");
        QTest::newRow("only the reason") << QList<int>{1} << 1 << false << true;
        QTest::newRow("the reason and another") << QList<int>{1, 2} << 1 << true << true;
        QTest::newRow("another only") << QList<int>{2} << 1 << true << true;
        QTest::newRow("none") << QList<int>{} << 1 << false << false;
        QTest::newRow("magnifiers only") << QList<int>{1003, 1004} << 1003 << true << false;
        QTest::newRow("a magnifier and another reason") << QList<int>{1003, 999} << 999 << true << true;
    }

    void queries() {
        QFETCH(QList<int>, hidden);
        QFETCH(int, reason);
        hide(hidden);
        QTEST(isCursorHiddenForOtherReasons(reason), "otherReasons");
        QTEST(isCursorHiddenForNonMagnifierReason(), "nonMagnifier");
        showCursor(QSet<int>(hidden.cbegin(), hidden.cend()));
    }

    void reasonIds_data() {
        QTest::addColumn<int>("reason");
        QTest::addColumn<QString>("description");
        QTest::addColumn<bool>("magnifier");
        QTest::newRow("touches") << 1 << "touches" << false;
        QTest::newRow("0") << 0 << "reason id 0" << false;
        QTest::newRow("last before magnifiers") << 999 << "reason id 999" << false;
        QTest::newRow("first magnifier") << 1000 << "magnifier id 0" << true;
        QTest::newRow("magnifier 3") << cursorHidingReasonForMagnifierId(3) << "magnifier id 3" << true;
    }

    void reasonIds() {
        QFETCH(int, reason);
        QTEST(cursorHidingReasonDescription(reason), "description");
        QTEST(cursorHidingReasonIsMagnifier(unsigned(reason)), "magnifier");
    }

    // The X server's own platform where there is no X display.
    void tapsMissingWithoutXDisplay() {
        const QByteArray display = qgetenv("DISPLAY");
        qunsetenv("DISPLAY");
        setCursorPlatformForTesting(nullptr);
        startWithTapsRefused();
        QVERIFY(!QTest::currentTestFailed());
        QVERIFY(CGCursorIsVisible());
        deinitializeCursorHiding();
        setCursorPlatformForTesting(watched);
        if (!display.isNull())
            qputenv("DISPLAY", display);
    }

    void deinitializeStopsThread() {
        hideCursor(2);
        deinitializeCursorHiding();
        QVERIFY(!mouseTrackingThread);
        QVERIFY(!mouseTrackingThreadHelper);
        QCOMPARE(watched->openChannels(), 0);
        // Nothing listens any more, so nothing new is hidden.
        QTest::ignoreMessage(QtWarningMsg, qPrintable(kTapsNotInitialized));
        hideCursor(3);
        QVERIFY(isCursorHiddenForOtherReasons(3) && !isCursorHiddenForOtherReasons(2));
    }
};

UIET_TEST_MAIN(TestOsxCursor)
#include "tst_osxCursor.moc"
