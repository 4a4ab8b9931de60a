#include "QDropEventExtensions.h"
#include "QtBugWorkarounds.h"
#include "QtThreadUtilities.h"
#include "testSupport.h"

#include <QAbstractEventDispatcher>
#include <QDropEvent>
#include <QFontInfo>
#include <QMimeData>
#include <QPointer>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <QTimerEvent>
#include <atomic>
#include <memory>

namespace {

// A thread with a running event loop for the length of a scope. The constructor returns only
// once the thread's event dispatcher exists, so that work can be sent to it at once.
class Worker : public QThread {
public:
    Worker() {
        start();
        running.acquire();
    }
    ~Worker() override {
        quit();
        wait();
    }

protected:
    void run() override {
        running.release();
        exec();
    }

private:
    QSemaphore running;
};

// Records how often a function ran and on which thread. The state is shared with the function,
// so a function that runs after a failed test has returned still writes to live memory.
class Probe {
public:
    std::function<void()> function() const {
        return [state = state] {
            state->thread = QThread::currentThread();
            ++state->runs;
        };
    }
    int runs() const { return state->runs; }
    QThread* thread() const { return state->thread; }

private:
    struct State {
        std::atomic<int> runs{0};
        std::atomic<QThread*> thread{nullptr};
    };
    std::shared_ptr<State> state = std::make_shared<State>();
};

QThread* mainThread() {
    return QCoreApplication::instance()->thread();
}

// Runs the function on the calling thread and keeps the main event loop turning until it is
// done, since the function may itself be waiting on the main thread.
void callFrom(QThread* caller, const std::function<void()>& function) {
    auto done = std::make_shared<std::atomic<bool>>(false);
    executeInThread(caller, [function, done] {
        function();
        *done = true;
    });
    QTRY_VERIFY_WITH_TIMEOUT(*done, 10000);
}

class ObservingReceiver : public FunctionEventReceiver {
public:
    QEvent* handled = nullptr;

protected:
    void timerEvent(QTimerEvent* event) override { handled = event; }
    void customEvent(QEvent* event) override { handled = event; }
};

// Lets a test see which object emitted the signal that runs a function in this context.
class SenderRecorder : public QObject {
public:
    QObject* currentSender() const { return sender(); }
};

enum class DelayedContext { None, TimerThread, OtherThread, DestroyedFirst };

} // namespace

Q_DECLARE_METATYPE(DelayedContext)

class ThreadUtilitiesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // Must stay the first test: the receiver is created on its first use, once per process.
    void receiverLivesOnMainThreadWhenFirstAskedFromWorker();
    void threadWithoutDispatcherNeverRuns_data();
    void threadWithoutDispatcherNeverRuns();
    void waitForCompletion_data();
    void waitForCompletion();
    void maximumPriorityJumpsQueuedEvents();
    void delayedExecutionFiresOnce_data();
    void delayedExecutionFiresOnce();
    void separateThreadUsesPool();
    void receiverPassesOtherEventsThrough_data();
    void receiverPassesOtherEventsThrough();
    void fixedWidthFontIsFixedOrFallBack();
    void dragEventPositionIsOverwritten_data();
    void dragEventPositionIsOverwritten();
};

void ThreadUtilitiesTest::receiverLivesOnMainThreadWhenFirstAskedFromWorker() {
    Worker worker;
    std::atomic<QThread*> receiverThread{nullptr};
    Probe probe;
    callFrom(&worker, [&] {
        receiverThread = functionEventReceiver()->thread();
        executeInMainThreadWithMaximumPriority(probe.function());
    });
    QCOMPARE(receiverThread.load(), mainThread());
    QTRY_COMPARE(probe.runs(), 1);
    QCOMPARE(probe.thread(), mainThread());
}

void ThreadUtilitiesTest::threadWithoutDispatcherNeverRuns_data() {
    QTest::addColumn<bool>("wait");
    QTest::addColumn<bool>("nullThread");
    QTest::newRow("executeInThread") << false << false;
    QTest::newRow("executeInThreadAndWaitForCompletion") << true << false;
    QTest::newRow("null thread") << false << true;
}

void ThreadUtilitiesTest::threadWithoutDispatcherNeverRuns() {
    QFETCH(bool, wait);
    QFETCH(bool, nullThread);
    QThread notStarted;
    QThread* target = nullThread ? nullptr : &notStarted;
    Probe probe;
    QTest::ignoreMessage(QtDebugMsg, "Error: tried to execute function in thread with no event dispatcher");
    if (wait) {
        QCOMPARE(executeInThreadAndWaitForCompletion(target, 20, probe.function()), false);
    } else {
        executeInThread(target, probe.function());
    }
    if (nullThread) {
        // Must not end up queued on the caller's own thread either.
        QCoreApplication::processEvents();
    } else {
        // Had the function been parked in the thread's queue, starting the thread would run it
        // before this later one.
        notStarted.start();
        QTRY_VERIFY(QAbstractEventDispatcher::instance(&notStarted));
        const bool laterRan = executeInThreadAndWaitForCompletion(&notStarted, 10000, [] {});
        notStarted.quit();
        notStarted.wait();
        QVERIFY(laterRan);
    }
    QCOMPARE(probe.runs(), 0);
}

void ThreadUtilitiesTest::waitForCompletion_data() {
    QTest::addColumn<bool>("callerIsWorker");
    QTest::addColumn<bool>("targetIsWorker");
    QTest::addColumn<bool>("byEvent");
    QTest::addColumn<bool>("targetBusy");
    QTest::addColumn<int>("timeout");
    QTest::addColumn<bool>("completes");
    // On its own thread the function runs inline, so even a zero time-out is met.
    QTest::newRow("own thread, zero time-out") << false << false << false << false << 0 << true;
    QTest::newRow("main to worker") << false << true << false << false << 10000 << true;
    QTest::newRow("worker to main") << true << false << false << false << 10000 << true;
    QTest::newRow("worker to main by event, no time-out") << true << false << true << false << -1 << true;
    QTest::newRow("busy worker") << false << true << false << true << 20 << false;
    QTest::newRow("main waits on itself by event") << false << false << true << false << 20 << false;
}

void ThreadUtilitiesTest::waitForCompletion() {
    QFETCH(bool, callerIsWorker);
    QFETCH(bool, targetIsWorker);
    QFETCH(bool, byEvent);
    QFETCH(bool, targetBusy);
    QFETCH(int, timeout);
    QFETCH(bool, completes);
    Worker worker;
    QThread* target = targetIsWorker ? &worker : mainThread();
    QSemaphore gate;
    if (targetBusy) {
        executeInThread(&worker, [&gate] { gate.acquire(); });
    }
    Probe probe;
    std::atomic<bool> result{!completes};
    std::atomic<int> runsWhenCallReturned{-1};
    callFrom(callerIsWorker ? &worker : mainThread(), [&] {
        result = byEvent ? executeInMainThreadAndWaitForCompletion(timeout, probe.function())
                         : executeInThreadAndWaitForCompletion(target, timeout, probe.function());
        runsWhenCallReturned = probe.runs();
    });
    gate.release();
    QCOMPARE(result.load(), completes);
    QCOMPARE(runsWhenCallReturned.load(), completes ? 1 : 0);
    // A time-out cancels nothing: the function still runs, after its caller has gone.
    QTRY_COMPARE(probe.runs(), 1);
    QCOMPARE(probe.thread(), target);
}

void ThreadUtilitiesTest::maximumPriorityJumpsQueuedEvents() {
    auto order = std::make_shared<QStringList>();
    auto append = [order](const QString& name) { return [order, name] { order->append(name); }; };
    QMetaObject::invokeMethod(qApp, append("normal"), Qt::QueuedConnection);
    executeInMainThreadWithMaximumPriority(append("maximum"));
    // Deferred even though this is the main thread.
    QVERIFY(order->isEmpty());
    QTRY_COMPARE(order->size(), 2);
    QCOMPARE(*order, QStringList({"maximum", "normal"}));
}

void ThreadUtilitiesTest::delayedExecutionFiresOnce_data() {
    QTest::addColumn<DelayedContext>("context");
    QTest::newRow("no context, timer on worker") << DelayedContext::None;
    QTest::newRow("context in timer's thread") << DelayedContext::TimerThread;
    QTest::newRow("context in other thread") << DelayedContext::OtherThread;
    QTest::newRow("context destroyed first") << DelayedContext::DestroyedFirst;
}

void ThreadUtilitiesTest::delayedExecutionFiresOnce() {
    QFETCH(DelayedContext, context);
    Worker worker;
    QThread* timerThread = context == DelayedContext::None ? &worker : mainThread();
    Probe probe;
    auto recorder = std::make_unique<SenderRecorder>();
    QPointer<QTimer> timer;
    bool firedByTimer = false;
    if (context == DelayedContext::None) {
        executeInThreadAfterMilliseconds(timerThread, 1, probe.function());
    } else {
        if (context == DelayedContext::OtherThread) {
            recorder->moveToThread(&worker);
        }
        executeInThreadAfterMilliseconds(
            timerThread, 1, recorder.get(),
            [run = probe.function(), raw = recorder.get(), timerThread, &timer, &firedByTimer] {
                // Only in the timer's own thread is the sender known to be alive.
                if (QThread::currentThread() == timerThread) {
                    timer = qobject_cast<QTimer*>(raw->currentSender());
                    firedByTimer = timer;
                }
                run();
            });
        if (context == DelayedContext::DestroyedFirst) {
            recorder.reset();
        }
    }
    // A repeating timer would fire again long before this one, which starts later and waits longer.
    Probe barrier;
    executeInThreadAfterMilliseconds(timerThread, 200, barrier.function());
    QTRY_COMPARE(barrier.runs(), 1);
    // Lets a call queued to the worker arrive first.
    QVERIFY(executeInThreadAndWaitForCompletion(&worker, 10000, [] {}));
    const bool dropped = context == DelayedContext::DestroyedFirst;
    QCOMPARE(probe.runs(), dropped ? 0 : 1);
    if (!dropped) {
        QCOMPARE(probe.thread(), context == DelayedContext::OtherThread ? &worker : timerThread);
    }
    if (context == DelayedContext::OtherThread) {
        recorder.release()->deleteLater();
    }
    if (context == DelayedContext::TimerThread) {
        QVERIFY(firedByTimer);
        QTRY_VERIFY(timer.isNull());
    }
}

void ThreadUtilitiesTest::separateThreadUsesPool() {
    Probe probe;
    executeInSeparateThread(probe.function());
    QVERIFY(QThreadPool::globalInstance()->waitForDone(10000));
    QCOMPARE(probe.runs(), 1);
    QVERIFY(probe.thread() != mainThread());
}

void ThreadUtilitiesTest::receiverPassesOtherEventsThrough_data() {
    QTest::addColumn<int>("type");
    QTest::newRow("timer") << int(QEvent::Timer);
    QTest::newRow("user type just below") << int(FunctionEvent::FunctionEventType) - 1;
    QTest::newRow("user type just above") << int(FunctionEvent::FunctionEventType) + 1;
}

void ThreadUtilitiesTest::receiverPassesOtherEventsThrough() {
    QFETCH(int, type);
    ObservingReceiver receiver;
    std::unique_ptr<QEvent> event(type == QEvent::Timer ? new QTimerEvent(1)
                                                        : new QEvent(static_cast<QEvent::Type>(type)));
    QVERIFY(receiver.event(event.get()));
    QCOMPARE(receiver.handled, event.get());
}

void ThreadUtilitiesTest::fixedWidthFontIsFixedOrFallBack() {
    const QFont font = QtBugWorkarounds::fixedWidthSystemFont();
    const QStringList fallBacks = {"Menlo", "Monaco", "Courier New"};
    QVERIFY2(QFontInfo(font).fixedPitch() || fallBacks.contains(font.family()), qPrintable(font.family()));
}

void ThreadUtilitiesTest::dragEventPositionIsOverwritten_data() {
    QTest::addColumn<bool>("dragMove");
    QTest::addColumn<QPointF>("position");
    QTest::newRow("drop, fractional") << false << QPointF(12.5, 7.25);
    QTest::newRow("drop, negative") << false << QPointF(-3, -40000);
    QTest::newRow("drag move, origin") << true << QPointF(0, 0);
}

void ThreadUtilitiesTest::dragEventPositionIsOverwritten() {
    QFETCH(bool, dragMove);
    QFETCH(QPointF, position);
    QMimeData mimeData;
    const QPointF original(100, 200);
    std::unique_ptr<QDropEvent> event(
        dragMove ? new QDragMoveEvent(original.toPoint(), Qt::CopyAction, &mimeData, Qt::LeftButton,
                                      Qt::ShiftModifier)
                 : new QDropEvent(original, Qt::CopyAction, &mimeData, Qt::LeftButton, Qt::ShiftModifier));
    setDragEventPosition(event.get(), position);
    QCOMPARE(event->position(), position);
    // Nothing beside the position may be touched.
    QCOMPARE(event->mimeData(), &mimeData);
    QCOMPARE(event->buttons(), Qt::LeftButton);
    QCOMPARE(event->modifiers(), Qt::ShiftModifier);
    QCOMPARE(event->possibleActions(), Qt::CopyAction);
}

UIET_GUI_TEST_MAIN(ThreadUtilitiesTest)

#include "tst_QtThreadUtilities.moc"
