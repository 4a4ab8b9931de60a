#include "QtThreadUtilities.h"

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QDebug>
#include <QThread>
#include <QThreadPool>
#include <QTimer>

namespace {

// Posted events with this priority are delivered before every event of normal priority that
// is already waiting.
constexpr int maximumEventPriority = 0x7fffffff;

QThread* mainThread() {
    return QCoreApplication::instance()->thread();
}

// Starts empty: the one resource that the waiting caller takes is supplied by the function's
// completion. Shared, so that a caller who gives up waiting may leave before the function runs.
QSharedPointer<QSemaphore> createCompletionSemaphore() {
    return QSharedPointer<QSemaphore>::create(0);
}

void postFunctionEvent(const std::function<void()>& function,
                       const QSharedPointer<QSemaphore>& semaphore = QSharedPointer<QSemaphore>()) {
    QCoreApplication::postEvent(functionEventReceiver(), new FunctionEvent(function, semaphore),
                                maximumEventPriority);
}

// A null context means the timer itself, so that the function runs in the timer's thread.
void startSelfDeletingTimer(QThread* thread, int milliseconds, QObject* context,
                            const std::function<void()>& function) {
    auto* timer = new QTimer(nullptr);
    timer->moveToThread(thread);
    timer->setSingleShot(true);
    timer->setInterval(milliseconds);
    if (context) {
        QObject::connect(timer, &QTimer::timeout, context, function, Qt::AutoConnection);
    } else {
        QObject::connect(timer, &QTimer::timeout, timer, function, Qt::DirectConnection);
    }
    // The timer goes whether the function ran or was dropped along with its context.
    QObject::connect(timer, &QTimer::timeout, timer, &QObject::deleteLater);
    // The timer belongs to the target thread now and may only be started from there.
    QMetaObject::invokeMethod(timer, "start");
}

} // namespace

FunctionEvent::FunctionEvent(const std::function<void()>& function,
                             const QSharedPointer<QSemaphore>& semaphore)
    : QEvent(FunctionEventType), function(function), semaphore(semaphore) {}

FunctionEvent::~FunctionEvent() = default;

bool FunctionEventReceiver::event(QEvent* event) {
    if (event->type() != FunctionEvent::FunctionEventType) {
        return QObject::event(event);
    }
    auto* functionEvent = static_cast<FunctionEvent*>(event);
    functionEvent->function();
    if (functionEvent->semaphore) {
        functionEvent->semaphore->release(1);
    }
    event->accept();
    return true;
}

QtRunnableTask::QtRunnableTask(const std::function<void()>& function) : function(function) {
    setAutoDelete(true);
}

void QtRunnableTask::run() {
    function();
}

void executeInSeparateThread(const std::function<void()>& function) {
    QThreadPool::globalInstance()->start(new QtRunnableTask(function), 0);
}

void executeInThread(QThread* thread, const std::function<void()>& function) {
    if (thread == QThread::currentThread()) {
        function();
        return;
    }
    // A null thread would make the dispatcher lookup answer with the caller's own dispatcher.
    QAbstractEventDispatcher* dispatcher = thread ? QAbstractEventDispatcher::instance(thread) : nullptr;
    if (!dispatcher) {
        qDebug() << "Error: tried to execute function in thread with no event dispatcher";
        return;
    }
    // The dispatcher lives in the target thread, so a queued connection to it delivers the
    // call there without a receiver object of our own in that thread. The signal fires when
    // the carrier object goes out of scope.
    QObject carrier;
    QObject::connect(&carrier, &QObject::destroyed, dispatcher, function, Qt::QueuedConnection);
}

void executeInThreadAfterMilliseconds(QThread* thread, int milliseconds,
                                      const std::function<void()>& function) {
    startSelfDeletingTimer(thread, milliseconds, nullptr, function);
}

void executeInThreadAfterMilliseconds(QThread* thread, int milliseconds, QObject* context,
                                      const std::function<void()>& function) {
    startSelfDeletingTimer(thread, milliseconds, context, function);
}

bool executeInThreadAndWaitForCompletion(QThread* thread, int timeoutMilliseconds,
                                         const std::function<void()>& function) {
    const QSharedPointer<QSemaphore> semaphore = createCompletionSemaphore();
    executeInThread(thread, [function, semaphore] {
        function();
        semaphore->release(1);
    });
    return semaphore->tryAcquire(1, timeoutMilliseconds);
}

void executeInMainThread(const std::function<void()>& function) {
    executeInThread(mainThread(), function);
}

void executeInMainThreadWithMaximumPriority(const std::function<void()>& function) {
    postFunctionEvent(function);
}

bool executeInMainThreadAndWaitForCompletion(int timeoutMilliseconds, const std::function<void()>& function) {
    // Called on the main thread, this cannot succeed: the event is only delivered once the
    // caller has returned to the event loop.
    const QSharedPointer<QSemaphore> semaphore = createCompletionSemaphore();
    postFunctionEvent(function, semaphore);
    return semaphore->tryAcquire(1, timeoutMilliseconds);
}

FunctionEventReceiver* functionEventReceiver() {
    // Created and moved in one guarded initialization, so that two threads that ask for the
    // receiver at the same time can neither both move it nor see it before it is moved.
    static FunctionEventReceiver* const receiver = [] {
        static FunctionEventReceiver instance;
        instance.moveToThread(mainThread());
        return &instance;
    }();
    return receiver;
}
