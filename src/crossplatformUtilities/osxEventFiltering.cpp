#include "osxEventFiltering.h"

#include "keyboard.h"
#include "platformEvents.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QMetaObject>
#include <QMutexLocker>
#include <QRecursiveMutex>
#include <QThread>
#include <QTimer>

#include <atomic>

namespace {

// The tap thread comes up within this time or is taken as failed.
constexpr int kInitializationTimeoutMs = 2000;
constexpr int kInitializationPollMs = 5;
constexpr int kStopTimeoutMs = 1000;
constexpr int kStopPollMs = 10;
// The tap thread sees a request to stop within this time.
constexpr int kRunLoopSliceMs = 100;

constexpr CGEventMask kKeystrokeEventMask = CGEventMaskBit(kCGEventKeyDown) | CGEventMaskBit(kCGEventKeyUp);
constexpr CGEventMask kModifierEventMask = CGEventMaskBit(kCGEventFlagsChanged);

// Guards the taps, the receivers and the thread. Recursive: a receiver destroyed while a caller
// holds it ends the interception in the same call.
QRecursiveMutex keyboardEventTapMutex;

CFMachPortRef keyboardEventTapMachPortRef = nullptr;
CFRunLoopSourceRef keyboardEventTapRunLoopSourceRef = nullptr;
CFMachPortRef modifierEventTapMachPortRef = nullptr;
CFRunLoopSourceRef modifierEventTapRunLoopSourceRef = nullptr;
// Whether each tap is meant to be on; the tap thread applies them when it makes the taps.
std::atomic<bool> keyboardEventTapEnabled{false};
std::atomic<bool> modifierEventTapEnabled{false};

EventFilteringProxy keyboardEventTapSignalProxy;
EventFilteringProxy modifierEventTapSignalProxy;
EventFilteringProxy* keystrokeReceiverSignalProxy = nullptr;
// The receiver's destruction ends only its own interception, not that of a later receiver.
QMetaObject::Connection keystrokeReceiverDestroyedConnection;
QSet<QString> keystrokeTargetKeys;
QSet<unsigned long> modifierReceiverSignalProxyIds;
std::function<bool(void*)> isArtificialEventFunction;

class EventTapThreadHelper {
public:
    void runThread();
    bool isInitialized() const { return initialized; }
    // True when both taps stand.
    bool errorOccurred() const { return succeeded; }

private:
    std::atomic<bool> initialized{false};
    std::atomic<bool> succeeded{false};
};

QThread* eventTapThread = nullptr;
EventTapThreadHelper* eventTapThreadHelper = nullptr;

bool isArtificial(CGEventRef event) {
    return isArtificialEventFunction && isArtificialEventFunction(const_cast<__CGEvent*>(event));
}

CGEventRef keyboardEventTapFunction(CGEventTapProxy, CGEventType type, CGEventRef event, void*) {
    if (type == kCGEventTapDisabledByUserInput)
        return event;
    if (type == kCGEventTapDisabledByTimeout) {
        CGEventTapEnable(keyboardEventTapMachPortRef, true);
        return event;
    }
    if (isArtificial(event))
        return event;
    const long keycode = long(CGEventGetIntegerValueField(event, kCGKeyboardEventKeycode));
    const CGEventFlags flags = CGEventGetFlags(event);
    const Qt::KeyboardModifiers modifiers = getQtModifiers(flags);
    // A copy, so that a new receiver's set can replace it meanwhile; copies of a QSet share.
    const QSet<QString> targets = [] {
        QMutexLocker lock(&keyboardEventTapMutex);
        return keystrokeTargetKeys;
    }();
    if (!targets.isEmpty() &&
        !targets.contains(nativeKeyCodeAndModifiersToCanonicalRepresentation(unsigned(keycode), modifiers)))
        return event;
    if (type == kCGEventKeyDown)
        QMetaObject::invokeMethod(
            &keyboardEventTapSignalProxy,
            [keycode, modifiers, flags] {
                emit keyboardEventTapSignalProxy.keystrokeEvent(keycode, modifiers, qulonglong(flags));
            },
            Qt::QueuedConnection);
    // Swallowed, the key up with its key down.
    return nullptr;
}

CGEventRef modifierEventTapFunction(CGEventTapProxy, CGEventType type, CGEventRef event, void*) {
    if (type == kCGEventFlagsChanged && !isArtificial(event)) {
        const CGEventFlags flags = CGEventGetFlags(event);
        const Qt::KeyboardModifiers modifiers = getQtModifiers(flags);
        QMetaObject::invokeMethod(
            &modifierEventTapSignalProxy,
            [modifiers, flags] {
                emit modifierEventTapSignalProxy.modifierEvent(modifiers, qulonglong(flags));
            },
            Qt::QueuedConnection);
    }
    if (type == kCGEventTapDisabledByTimeout)
        CGEventTapEnable(modifierEventTapMachPortRef, true);
    return event;
}

struct TapDescription {
    CFMachPortRef& port;
    CFRunLoopSourceRef& source;
    CGEventTapOptions options;
    CGEventMask mask;
    CGEventTapCallBack callback;
    const std::atomic<bool>& enabled;
    const char* name;
};

// Makes the tap and adds it to this thread's run loop, unless it exists.
bool createEventTap(const TapDescription& tap) {
    QMutexLocker lock(&keyboardEventTapMutex);
    if (tap.port)
        return true;
    tap.port = CGEventTapCreate(kCGSessionEventTap, kCGTailAppendEventTap, tap.options, tap.mask,
                                tap.callback, nullptr);
    if (!tap.port) {
        qCritical().noquote().nospace() << "Error: failed to create the " << tap.name << " event tap.";
        return false;
    }
    tap.source = CFMachPortCreateRunLoopSource(nullptr, tap.port, 0);
    if (!tap.source) {
        qCritical().noquote().nospace()
            << "Error: failed to create the " << tap.name << " event tap's run loop source";
        return false;
    }
    CFRunLoopAddSource(CFRunLoopGetCurrent(), tap.source, kCFRunLoopDefaultMode);
    CGEventTapEnable(tap.port, tap.enabled);
    qDebug().noquote().nospace() << "Created " << tap.name << " event tap";
    return true;
}

template <class Reference> void releaseAndClear(Reference& reference) {
    if (reference)
        CFRelease(reference);
    reference = nullptr;
}

void EventTapThreadHelper::runThread() {
    const bool created = createEventTap({keyboardEventTapMachPortRef, keyboardEventTapRunLoopSourceRef,
                                         kCGEventTapOptionDefault, kKeystrokeEventMask,
                                         keyboardEventTapFunction, keyboardEventTapEnabled, "keyboard"}) &&
                         createEventTap({modifierEventTapMachPortRef, modifierEventTapRunLoopSourceRef,
                                         kCGEventTapOptionListenOnly, kModifierEventMask,
                                         modifierEventTapFunction, modifierEventTapEnabled, "modifier"});
    succeeded = created;
    initialized = true;
    // In slices, so that a request to stop is seen soon; after a failure the thread idles here.
    while (!QThread::currentThread()->isInterruptionRequested()) {
        QEventLoop loop;
        QTimer::singleShot(kRunLoopSliceMs, &loop, &QEventLoop::quit);
        loop.exec();
    }
    {
        QMutexLocker lock(&keyboardEventTapMutex);
        releaseAndClear(keyboardEventTapRunLoopSourceRef);
        releaseAndClear(keyboardEventTapMachPortRef);
    }
    QMutexLocker lock(&keyboardEventTapMutex);
    releaseAndClear(modifierEventTapRunLoopSourceRef);
    releaseAndClear(modifierEventTapMachPortRef);
}

void stopEventTapAndDeleteThread() {
    if (!eventTapThread)
        return;
    QThread* thread = eventTapThread;
    EventTapThreadHelper* helper = eventTapThreadHelper;
    thread->requestInterruption();
    QElapsedTimer waited;
    waited.start();
    while (thread->isRunning() && waited.elapsed() < kStopTimeoutMs)
        QThread::msleep(kStopPollMs);
    if (thread->wait(0)) {
        delete helper;
        delete thread;
    } else {
        qWarning().noquote() << "Warning: event tap thread did not stop on its own";
        // A running thread cannot be deleted: both go when it ends.
        QObject::connect(thread, &QThread::finished, [thread, helper] {
            delete helper;
            thread->deleteLater();
        });
    }
    eventTapThread = nullptr;
    eventTapThreadHelper = nullptr;
}

void updateModifierEventTapEnabled() {
    QMutexLocker lock(&keyboardEventTapMutex);
    const bool enable = !modifierReceiverSignalProxyIds.isEmpty();
    modifierEventTapEnabled = enable;
    if (modifierEventTapMachPortRef && CGEventTapIsEnabled(modifierEventTapMachPortRef) != enable) {
        qDebug().noquote() << "Setting key modifier event tap enabled to:" << (enable ? "true" : "false");
        CGEventTapEnable(modifierEventTapMachPortRef, enable);
    }
}

void destroyModifierChangedSignalProxy(const QPointer<EventFilteringProxy>& proxy) {
    if (!proxy)
        return;
    QMutexLocker lock(&keyboardEventTapMutex);
    if (modifierReceiverSignalProxyIds.remove(reinterpret_cast<unsigned long>(proxy.data()))) {
        proxy->deleteLater();
        updateModifierEventTapEnabled();
    }
}

} // namespace

bool osxInitializeEventFiltering() {
    qRegisterMetaType<Qt::KeyboardModifier>("Qt::KeyboardModifier");
    qRegisterMetaType<Qt::KeyboardModifiers>("Qt::KeyboardModifiers");
    if (eventTapThread) {
        qDebug().noquote() << "Tried to create event filtering thread when it already exists!";
        return false;
    }
    eventTapThreadHelper = new EventTapThreadHelper;
    EventTapThreadHelper* helper = eventTapThreadHelper;
    eventTapThread = QThread::create([helper] { helper->runThread(); });
    eventTapThread->setObjectName(QStringLiteral("event tap"));
    eventTapThread->start();
    QElapsedTimer waited;
    waited.start();
    while (!helper->isInitialized() && waited.elapsed() < kInitializationTimeoutMs)
        QThread::msleep(kInitializationPollMs);
    if (helper->isInitialized())
        return helper->errorOccurred();
    qDebug().noquote() << "Error: event filtering thread failed to indicate success or failure";
    return false;
}

bool osxInitializeEventFiltering(const std::function<bool(void*)>& isArtificialEvent) {
    isArtificialEventFunction = isArtificialEvent;
    return osxInitializeEventFiltering();
}

void osxDeinitializeEventFiltering() {
    stopEventTapAndDeleteThread();
}

void osxBeginInterceptingKeystrokes(QObject* receiver, const char* member, const QSet<QString>& keys) {
    QMutexLocker lock(&keyboardEventTapMutex);
    if (keystrokeReceiverSignalProxy)
        keystrokeReceiverSignalProxy->deleteLater();
    QObject::disconnect(keystrokeReceiverDestroyedConnection);
    auto* proxy = new EventFilteringProxy;
    proxy->moveToThread(receiver->thread());
    keystrokeReceiverSignalProxy = proxy;
    QObject::connect(&keyboardEventTapSignalProxy, &EventFilteringProxy::keystrokeEvent, proxy,
                     &EventFilteringProxy::keystrokeEvent);
    QObject::connect(proxy, "2keystrokeEvent(long, Qt::KeyboardModifiers, quint64)", receiver, member);
    keystrokeReceiverDestroyedConnection =
        QObject::connect(receiver, &QObject::destroyed, [] { osxEndInterceptingKeystrokes(); });
    keystrokeTargetKeys = keys;
    keyboardEventTapEnabled = true;
    if (keyboardEventTapMachPortRef)
        CGEventTapEnable(keyboardEventTapMachPortRef, true);
}

void osxEndInterceptingKeystrokes() {
    QMutexLocker lock(&keyboardEventTapMutex);
    keyboardEventTapEnabled = false;
    if (keystrokeReceiverSignalProxy)
        keystrokeReceiverSignalProxy->deleteLater();
    keystrokeReceiverSignalProxy = nullptr;
    QObject::disconnect(keystrokeReceiverDestroyedConnection);
    if (keyboardEventTapMachPortRef)
        CGEventTapEnable(keyboardEventTapMachPortRef, false);
}

QSharedPointer<ModifierChangedCallbackData> osxAddModifierChangedCallback(
    QObject* context, const std::function<void(QFlags<Qt::KeyboardModifier>, unsigned long long)>& callback) {
    QMutexLocker lock(&keyboardEventTapMutex);
    auto data = QSharedPointer<ModifierChangedCallbackData>::create();
    auto* proxy = new EventFilteringProxy;
    modifierReceiverSignalProxyIds.insert(reinterpret_cast<unsigned long>(proxy));
    data->proxy = proxy;
    if (context)
        proxy->moveToThread(context->thread());
    QObject::connect(&modifierEventTapSignalProxy, &EventFilteringProxy::modifierEvent, proxy,
                     &EventFilteringProxy::modifierEvent);
    if (context) {
        QObject::connect(proxy, &EventFilteringProxy::modifierEvent, context, callback);
        const QPointer<EventFilteringProxy> pointer(proxy);
        QObject::connect(context, &QObject::destroyed,
                         [pointer] { destroyModifierChangedSignalProxy(pointer); });
    } else {
        QObject::connect(proxy, &EventFilteringProxy::modifierEvent, proxy, callback, Qt::DirectConnection);
    }
    updateModifierEventTapEnabled();
    return data;
}

QSharedPointer<ModifierChangedCallbackData> osxAddModifierChangedCallback(
    const std::function<void(QFlags<Qt::KeyboardModifier>, unsigned long long)>& callback) {
    return osxAddModifierChangedCallback(nullptr, callback);
}

void osxRemoveModifierChangedCallback(QSharedPointer<ModifierChangedCallbackData> data) {
    if (data)
        destroyModifierChangedSignalProxy(data->proxy);
}
