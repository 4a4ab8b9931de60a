#include "osxCursor.h"

#include "osxMisc.h"
#include "platformCursor.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QRecursiveMutex>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <atomic>

QThread* mouseTrackingThread = nullptr;
MouseTrackingThreadHelper* mouseTrackingThreadHelper = nullptr;

namespace {

QSet<int> cursorHiddenByReason;
QSet<int> showingCursorOnMouseActivityForReasons;
// The reason sets and the tap references are reached from the caller's thread and the tracking
// thread alike.
QRecursiveMutex cursorStateMutex;
std::atomic<bool> cursorEventTapsInitialized{false};
std::function<bool(__CGEvent*)> isArtificialEventFunction;

CFMachPortRef movementEventTapMachPortRef = nullptr;
CFMachPortRef buttonEventTapMachPortRef = nullptr;
CFRunLoopSourceRef movementEventTapRunLoopSourceRef = nullptr;
CFRunLoopSourceRef buttonEventTapRunLoopSourceRef = nullptr;

constexpr int kMagnifierReasonBase = 1000;
constexpr std::uint32_t kMaxDisplays = 30;
constexpr int kContinualCheckIntervalMs = 500;
constexpr int kPostButtonCheckIntervalMs = 5;
constexpr qint64 kPostButtonCheckDurationMs = 500;
constexpr int kEventTapRetryIntervalMs = 500;
constexpr CGEventMask kMovementEventMask = 0x80000e0;
constexpr CGEventMask kButtonEventMask = 0x600001e;
const QVersionNumber kCursorHidingPermissionVersion(10, 14, 0);

const char* const kTapsNotInitializedWarning =
    "Warning: Cannot use 'hide cursor' feature; mouse tracking event taps are not initialized";
const char* const kFeatureConsequence =
    "Consequently, the 'hide cursor during touches' feature will probably not work as expected.";

// Every online display, or the main display alone when they cannot be listed.
QList<CGDirectDisplayID> allDisplays() {
    CGDirectDisplayID displays[kMaxDisplays];
    std::uint32_t count = 0;
    if (CGGetOnlineDisplayList(kMaxDisplays, displays, &count) != kCGErrorSuccess || count == 0)
        return {CGMainDisplayID()};
    return QList<CGDirectDisplayID>(displays, displays + count);
}

void hideCursorOnAllDisplays() {
    for (CGDirectDisplayID display : allDisplays())
        CGDisplayHideCursor(display);
}

void showCursorOnAllDisplays() {
    for (CGDirectDisplayID display : allDisplays())
        CGDisplayShowCursor(display);
}

bool tapsStandWithWarning() {
    if (!isCursorHidingAvailable()) {
        displayWarningIfCursorHidingIsUnavailable();
        return false;
    }
    if (!cursorEventTapsInitialized) {
        qWarning().noquote() << kTapsNotInitializedWarning;
        return false;
    }
    return true;
}

void processMouseActivity(CGEventRef event) {
    // An event that the system itself posted is no activity of the user.
    if (isArtificialEventFunction && isArtificialEventFunction(const_cast<__CGEvent*>(event)))
        return;
    QSet<int> reasons;
    {
        QMutexLocker lock(&cursorStateMutex);
        reasons = showingCursorOnMouseActivityForReasons;
    }
    if (reasons.size() == 1) {
        qDebug().noquote() << "Cursor: showing due to mouse movement for reason id:"
                           << cursorHidingReasonDescription(*reasons.cbegin());
    } else if (reasons.size() > 1) {
        qDebug().noquote() << "Cursor: showing due to mouse movement for reason ids:";
        for (int reason : reasons)
            qDebug().noquote() << "   " + cursorHidingReasonDescription(reason);
    }
    showCursor(reasons);
}

// The time-out and user input kinds: the platform turned the tap off.
bool reenabledAfterPlatformDisabled(CFMachPortRef tap, CGEventType type) {
    if (type == kCGEventTapDisabledByUserInput)
        return true;
    if (type == kCGEventTapDisabledByTimeout) {
        CGEventTapEnable(tap, true);
        return true;
    }
    return false;
}

CGEventRef movementEventTapCallback(CGEventTapProxy, CGEventType type, CGEventRef event, void*) {
    if (!reenabledAfterPlatformDisabled(movementEventTapMachPortRef, type))
        processMouseActivity(event);
    return event;
}

CGEventRef buttonEventTapCallback(CGEventTapProxy, CGEventType type, CGEventRef event, void*) {
    if (reenabledAfterPlatformDisabled(buttonEventTapMachPortRef, type))
        return event;
    bool watching = false;
    bool hidden = false;
    {
        QMutexLocker lock(&cursorStateMutex);
        watching = !showingCursorOnMouseActivityForReasons.isEmpty();
        hidden = !cursorHiddenByReason.isEmpty();
    }
    if (watching) {
        processMouseActivity(event);
    } else if (hidden && isArtificialEventFunction &&
               isArtificialEventFunction(const_cast<__CGEvent*>(event))) {
        // A synthetic click is what makes other processes bring the cursor back.
        mouseTrackingThreadHelper->startPostButtonCursorCheckTimer();
    }
    return event;
}

template <class Reference> void releaseAndClear(Reference& reference) {
    if (reference)
        CFRelease(reference);
    reference = nullptr;
}

bool onTrackingThread(const QObject* helper) {
    return QThread::currentThread() == helper->thread();
}

} // namespace

QString cursorHidingReasonDescription(int reason) {
    if (reason == 1)
        return QStringLiteral("touches");
    if (reason >= kMagnifierReasonBase)
        return QStringLiteral("magnifier id %1").arg(reason - kMagnifierReasonBase);
    return QStringLiteral("reason id %1").arg(reason);
}

int cursorHidingReasonForMagnifierId(unsigned int magnifierId) {
    return int(magnifierId + kMagnifierReasonBase);
}

bool cursorHidingReasonIsMagnifier(unsigned int reason) {
    return reason >= unsigned(kMagnifierReasonBase);
}

bool initializeCursorHiding() {
    mouseTrackingThreadHelper = new MouseTrackingThreadHelper;
    MouseTrackingThreadHelper* helper = mouseTrackingThreadHelper;
    mouseTrackingThread = QThread::create([helper] { helper->runThread(); });
    mouseTrackingThread->setObjectName(QStringLiteral("mouse tracking"));
    helper->moveToThread(mouseTrackingThread);
    mouseTrackingThread->start();
    return true;
}

bool initializeCursorHiding(const std::function<bool(__CGEvent*)>& isArtificialEvent) {
    isArtificialEventFunction = isArtificialEvent;
    return initializeCursorHiding();
}

void deinitializeCursorHiding() {
    if (!mouseTrackingThreadHelper)
        return;
    QThread* thread = mouseTrackingThread;
    MouseTrackingThreadHelper* helper = mouseTrackingThreadHelper;
    if (helper->stopThreadWithTimeout(1.0)) {
        thread->wait();
        delete helper;
        delete thread;
    } else {
        qDebug().noquote() << "Note: mouse tracking thread did not stop on its own";
        // A running thread cannot be deleted: both go when it ends.
        QObject::connect(thread, &QThread::finished, [thread, helper] {
            delete helper;
            thread->deleteLater();
        });
    }
    mouseTrackingThread = nullptr;
    mouseTrackingThreadHelper = nullptr;
}

bool isCursorHidingAvailable() {
    return !passesVersionGate(getMacOSVersion(), kCursorHidingPermissionVersion) || accessibilityAvailable();
}

void displayWarningIfCursorHidingIsUnavailable() {
    if (!isCursorHidingAvailable())
        qDebug().noquote()
            << "Cannot automatically hide the mouse cursor in macOS 10.14 and later if accessibility "
               "features are unavailable";
}

void hideCursor(int reason) {
    if (!tapsStandWithWarning())
        return;
    QMutexLocker lock(&cursorStateMutex);
    if (cursorHiddenByReason.contains(reason))
        return;
    qDebug().noquote() << "Cursor: hiding for reason id:" << cursorHidingReasonDescription(reason);
    // With a reason already there the cursor is hidden: one hide for the set keeps hides and
    // shows balanced.
    if (cursorHiddenByReason.isEmpty())
        hideCursorOnAllDisplays();
    cursorHiddenByReason.insert(reason);
    if (mouseTrackingThreadHelper)
        mouseTrackingThreadHelper->startContinualCursorCheckTimer();
}

void showCursor(int reason) {
    showCursor(QSet<int>{reason});
}

void showCursor(QSet<int> reasons) {
    QMutexLocker lock(&cursorStateMutex);
    showingCursorOnMouseActivityForReasons.subtract(reasons);
    updateCursorMovementEventTap();
    if (!cursorHiddenByReason.intersects(reasons))
        return;
    cursorHiddenByReason.subtract(reasons);
    if (!cursorHiddenByReason.isEmpty()) {
        qDebug().noquote() << "Note: cursor is still hidden for reason IDs:" << cursorHiddenByReason;
        return;
    }
    showCursorOnAllDisplays();
    CGSForceShowCursor(CGSMainConnectionID());
    if (mouseTrackingThreadHelper)
        mouseTrackingThreadHelper->stopContinualCursorCheckTimer();
}

void showCursorOnMouseMovement(int reason) {
    if (!tapsStandWithWarning())
        return;
    QMutexLocker lock(&cursorStateMutex);
    showingCursorOnMouseActivityForReasons.insert(reason);
    updateCursorMovementEventTap();
}

void updateCursorMovementEventTap() {
    QMutexLocker lock(&cursorStateMutex);
    if (movementEventTapMachPortRef && cursorEventTapsInitialized)
        CGEventTapEnable(movementEventTapMachPortRef, !showingCursorOnMouseActivityForReasons.isEmpty());
}

bool isCursorHidden() {
    QMutexLocker lock(&cursorStateMutex);
    return !cursorHiddenByReason.isEmpty();
}

bool isCursorHiddenForOtherReasons(int reason) {
    QMutexLocker lock(&cursorStateMutex);
    return cursorHiddenByReason.size() > (cursorHiddenByReason.contains(reason) ? 1 : 0);
}

bool isCursorHiddenForNonMagnifierReason() {
    QMutexLocker lock(&cursorStateMutex);
    return std::any_of(cursorHiddenByReason.cbegin(), cursorHiddenByReason.cend(),
                       [](int reason) { return reason < kMagnifierReasonBase; });
}

bool checkCursorVisibility() {
    QMutexLocker lock(&cursorStateMutex);
    if (!cursorEventTapsInitialized || cursorHiddenByReason.isEmpty() || !CGCursorIsVisible())
        return false;
    qDebug().noquote() << "Note: cursor became visible due to another process, so hiding it again";
    // The show first balances the platform's count before the fresh hide.
    showCursorOnAllDisplays();
    hideCursorOnAllDisplays();
    return true;
}

MouseTrackingThreadHelper::MouseTrackingThreadHelper()
    : continualCursorCheckTimer(new QTimer(this)), postButtonCursorCheckTimer(new QTimer(this)),
      eventTapRetryTimer(new QTimer(this)), postButtonCheckStart(std::make_unique<QElapsedTimer>()) {
    continualCursorCheckTimer->setInterval(kContinualCheckIntervalMs);
    connect(continualCursorCheckTimer, &QTimer::timeout, this, [] { checkCursorVisibility(); });
    postButtonCursorCheckTimer->setInterval(kPostButtonCheckIntervalMs);
    connect(postButtonCursorCheckTimer, &QTimer::timeout, this, [this] {
        if (checkCursorVisibility() || postButtonCheckStart->elapsed() > kPostButtonCheckDurationMs)
            stopPostButtonCursorCheckTimer();
    });
    eventTapRetryTimer->setInterval(kEventTapRetryIntervalMs);
    connect(eventTapRetryTimer, &QTimer::timeout, this, [this] {
        if (createEventTaps())
            eventTapRetryTimer->stop();
    });
}

MouseTrackingThreadHelper::~MouseTrackingThreadHelper() = default;

void MouseTrackingThreadHelper::startContinualCursorCheckTimer() {
    if (!onTrackingThread(this)) {
        QMetaObject::invokeMethod(this, &MouseTrackingThreadHelper::startContinualCursorCheckTimer,
                                  Qt::QueuedConnection);
        return;
    }
    // A restart: each new reason begins a whole interval.
    stopContinualCursorCheckTimer();
    continualCursorCheckTimer->start();
}

void MouseTrackingThreadHelper::stopContinualCursorCheckTimer() {
    if (!onTrackingThread(this)) {
        QMetaObject::invokeMethod(this, &MouseTrackingThreadHelper::stopContinualCursorCheckTimer,
                                  Qt::QueuedConnection);
        return;
    }
    continualCursorCheckTimer->stop();
}

void MouseTrackingThreadHelper::startPostButtonCursorCheckTimer() {
    stopPostButtonCursorCheckTimer();
    postButtonCheckStart->start();
    postButtonCursorCheckTimer->start();
}

void MouseTrackingThreadHelper::stopPostButtonCursorCheckTimer() {
    postButtonCursorCheckTimer->stop();
}

bool MouseTrackingThreadHelper::createEventTaps() {
    destroyEventTaps();
    if (!isCursorHidingAvailable())
        return false;
    CFMachPortRef movementTap =
        CGEventTapCreate(kCGSessionEventTap, kCGTailAppendEventTap, kCGEventTapOptionListenOnly,
                         kMovementEventMask, movementEventTapCallback, nullptr);
    CFMachPortRef buttonTap = nullptr;
    CFRunLoopSourceRef movementSource = nullptr;
    CFRunLoopSourceRef buttonSource = nullptr;
    {
        QMutexLocker lock(&cursorStateMutex);
        movementEventTapMachPortRef = movementTap;
    }
    if (!movementTap) {
        qWarning().noquote() << "Warning: CGEventTapCreate failure, returned null for movement event tap."
                             << kFeatureConsequence;
    } else {
        buttonTap = CGEventTapCreate(kCGSessionEventTap, kCGTailAppendEventTap, kCGEventTapOptionListenOnly,
                                     kButtonEventMask, buttonEventTapCallback, nullptr);
        buttonEventTapMachPortRef = buttonTap;
        if (!buttonTap)
            qWarning().noquote() << "Warning: CGEventTapCreate failure, returned null for button event tap."
                                 << kFeatureConsequence;
    }
    if (buttonTap) {
        movementSource = CFMachPortCreateRunLoopSource(nullptr, movementTap, 0);
        buttonSource = CFMachPortCreateRunLoopSource(nullptr, buttonTap, 0);
        movementEventTapRunLoopSourceRef = movementSource;
        buttonEventTapRunLoopSourceRef = buttonSource;
        if (!movementSource || !buttonSource)
            qWarning().noquote() << "Warning: CFMachPortCreateRunLoopSource failure, returned null. "
                                 << kFeatureConsequence;
    }
    if (!movementSource || !buttonSource) {
        destroyEventTaps();
        return false;
    }
    CFRunLoopAddSource(CFRunLoopGetCurrent(), movementSource, kCFRunLoopDefaultMode);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), buttonSource, kCFRunLoopDefaultMode);
    // The movement tap runs only while a reason waits for movement; the button tap stays on.
    CGEventTapEnable(movementTap, false);

    // What allows a background process to hide the cursor at all; once per process.
    static bool backgroundCursorEnabled = false;
    if (!backgroundCursorEnabled) {
        try {
            const CGSConnectionID connection = _CGSDefaultConnection();
            CGSSetConnectionProperty(connection, connection, CFSTR("SetsCursorInBackground"), kCFBooleanTrue);
            backgroundCursorEnabled = true;
        } catch (int exception) {
            qCritical().noquote().nospace()
                << "Critical error in EnableBackgroundCursor(). Exception = " << exception;
            qWarning().noquote() << "Warning: EnableBackgroundCursor failed. " << kFeatureConsequence;
        }
    }
    cursorEventTapsInitialized = true;
    return true;
}

void MouseTrackingThreadHelper::destroyEventTaps() {
    QMutexLocker lock(&cursorStateMutex);
    releaseAndClear(movementEventTapRunLoopSourceRef);
    releaseAndClear(buttonEventTapRunLoopSourceRef);
    releaseAndClear(movementEventTapMachPortRef);
    releaseAndClear(buttonEventTapMachPortRef);
}

void MouseTrackingThreadHelper::keepTryingToCreateEventTapUntilSuccess() {
    eventTapRetryTimer->start();
}

void MouseTrackingThreadHelper::runThread() {
    if (!createEventTaps())
        keepTryingToCreateEventTapUntilSuccess();
    CFRunLoopRun();
    destroyEventTaps();
    // Nothing listens any more, so nothing could undo a hide; and the timers belong to this thread.
    cursorEventTapsInitialized = false;
    for (QTimer* timer : {continualCursorCheckTimer, postButtonCursorCheckTimer, eventTapRetryTimer})
        timer->stop();
}

void MouseTrackingThreadHelper::stopRunLoop() {
    CFRunLoopStop(CFRunLoopGetCurrent());
}

bool MouseTrackingThreadHelper::stopThreadWithTimeout(double seconds) {
    QThread* thread = this->thread();
    QMetaObject::invokeMethod(this, &MouseTrackingThreadHelper::stopRunLoop, Qt::QueuedConnection);
    QElapsedTimer waited;
    waited.start();
    while (!thread->isFinished() && waited.elapsed() < qint64(seconds * 1000))
        QThread::msleep(10);
    return thread->isFinished();
}
