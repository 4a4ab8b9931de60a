#include "CursorPlatform_p.h"
#include "cf/CFRuntime.h"
#include "cf/CFString.h"

#include <QEventLoop>
#include <QList>
#include <QObject>
#include <QSocketNotifier>
#include <QThread>

#include <atomic>

// A thread's run loop: its Qt event loops, run one inside the other, and an object on the thread
// through which other threads reach it.
struct __CFRunLoop {
    QObject context;
    QList<QEventLoop*> running;
};

const CFStringRef kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");

namespace {

// A tap's port lives on the thread that created it, which is also where its channel is read and
// where the port is released.
struct PortBody {
    CGEventMask eventsOfInterest;
    CGEventTapCallBack callback;
    void* userInfo;
    std::unique_ptr<EventTapChannel> channel;
    std::unique_ptr<QObject> context;
    std::atomic<bool> enabled;
};

struct SourceBody {
    CFMachPortRef port;
    std::unique_ptr<QSocketNotifier> notifier;

    ~SourceBody() {
        notifier.reset();
        CFRelease(port);
    }
};

struct TapEventBody {
    CGEventType type;
    CGEventSourceStateID sourceState;
};

CFTypeID portType() {
    static const CFTypeID type =
        CFRuntime::registerType({"CFMachPort", &CFRuntime::destroyBody<PortBody>, nullptr, nullptr, nullptr});
    return type;
}

CFTypeID sourceType() {
    static const CFTypeID type = CFRuntime::registerType(
        {"CFRunLoopSource", &CFRuntime::destroyBody<SourceBody>, nullptr, nullptr, nullptr});
    return type;
}

CFTypeID tapEventType() {
    static const CFTypeID type = CFRuntime::registerType({"CGEvent", nullptr, nullptr, nullptr, nullptr});
    return type;
}

PortBody* tapOf(CFTypeRef port) {
    return port && CFGetTypeID(port) == portType() ? CFRuntime::body<PortBody>(port) : nullptr;
}

void deliverPendingEvents(CFMachPortRef port) {
    PortBody* tap = CFRuntime::body<PortBody>(port);
    for (const EventTapChannel::Event& pending : tap->channel->readPending()) {
        if (!tap->enabled || pending.type > 63 || !(tap->eventsOfInterest & CGEventMaskBit(pending.type)))
            continue;
        CFTypeRef event = CFRuntime::create<TapEventBody>(tapEventType(), pending.type, pending.sourceState);
        // A listening tap: what the callback returns is not used.
        tap->callback(nullptr, pending.type, static_cast<CGEventRef>(event), tap->userInfo);
        CFRelease(event);
    }
}

} // namespace

CFMachPortRef CGEventTapCreate(CGEventTapLocation, CGEventTapPlacement, CGEventTapOptions options,
                               CGEventMask eventsOfInterest, CGEventTapCallBack callback, void* userInfo) {
    if (options != kCGEventTapOptionListenOnly || !callback)
        return nullptr;
    std::unique_ptr<EventTapChannel> channel = activeCursorPlatform()->openEventTapChannel(eventsOfInterest);
    if (!channel)
        return nullptr;
    channel->setEnabled(true);
    CFTypeRef port = CFRuntime::create<PortBody>(portType(), eventsOfInterest, callback, userInfo,
                                                 std::move(channel), std::make_unique<QObject>(), true);
    return static_cast<CFMachPortRef>(const_cast<void*>(port));
}

void CGEventTapEnable(CFMachPortRef port, bool enable) {
    PortBody* tap = tapOf(port);
    if (!tap)
        return;
    tap->enabled = enable;
    // The channel belongs to its thread; the latest state wins there.
    auto apply = [tap] { tap->channel->setEnabled(tap->enabled); };
    if (QThread::currentThread() == tap->context->thread())
        apply();
    else
        QMetaObject::invokeMethod(tap->context.get(), apply, Qt::QueuedConnection);
}

bool CGEventTapIsEnabled(CFMachPortRef port) {
    const PortBody* tap = tapOf(port);
    return tap && tap->enabled;
}

CGEventType CGEventGetType(CGEventRef event) {
    return event && CFGetTypeID(event) == tapEventType() ? CFRuntime::body<TapEventBody>(event)->type
                                                         : kCGEventNull;
}

std::int64_t CGEventGetIntegerValueField(CGEventRef event, CGEventField field) {
    if (!event || CFGetTypeID(event) != tapEventType() || field != kCGEventSourceStateID)
        return 0;
    return CFRuntime::body<TapEventBody>(event)->sourceState;
}

CFRunLoopSourceRef CFMachPortCreateRunLoopSource(CFAllocatorRef, CFMachPortRef port, CFIndex) {
    if (!tapOf(port))
        return nullptr;
    CFRetain(port);
    CFTypeRef source = CFRuntime::create<SourceBody>(sourceType(), port, nullptr);
    return static_cast<CFRunLoopSourceRef>(const_cast<void*>(source));
}

CFRunLoopRef CFRunLoopGetCurrent(void) {
    thread_local __CFRunLoop runLoop;
    return &runLoop;
}

void CFRunLoopAddSource(CFRunLoopRef runLoop, CFRunLoopSourceRef source, CFStringRef) {
    if (!runLoop || !source || CFGetTypeID(source) != sourceType())
        return;
    SourceBody* body = CFRuntime::body<SourceBody>(source);
    const int socket = CFRuntime::body<PortBody>(body->port)->channel->socket();
    if (body->notifier || socket < 0)
        return;
    body->notifier = std::make_unique<QSocketNotifier>(socket, QSocketNotifier::Read);
    CFMachPortRef port = body->port;
    QSocketNotifier* notifier = body->notifier.get();
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [port, notifier] {
        deliverPendingEvents(port);
        // A channel whose platform has gone away stays readable and has nothing more to say.
        if (CFRuntime::body<PortBody>(port)->channel->socket() < 0)
            notifier->setEnabled(false);
    });
}

void CFRunLoopRun(void) {
    CFRunLoopRef runLoop = CFRunLoopGetCurrent();
    QEventLoop loop;
    runLoop->running.append(&loop);
    loop.exec();
    runLoop->running.removeLast();
}

void CFRunLoopStop(CFRunLoopRef runLoop) {
    if (!runLoop)
        return;
    QMetaObject::invokeMethod(
        &runLoop->context,
        [runLoop] {
            if (!runLoop->running.isEmpty())
                runLoop->running.last()->quit();
        },
        Qt::QueuedConnection);
}
