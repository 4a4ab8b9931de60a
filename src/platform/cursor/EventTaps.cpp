#include "CursorPlatform_p.h"
#include "cf/CFRuntime.h"
#include "cf/CFString.h"
#include "keyboard/KeyboardTapPlatform_p.h"

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
    bool active;
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

using TapEventBody = EventTapChannel::Event;

constexpr CGEventMask kKeyEvents =
    CGEventMaskBit(kCGEventKeyDown) | CGEventMaskBit(kCGEventKeyUp) | CGEventMaskBit(kCGEventFlagsChanged);

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

void deliverPendingEvents(PortBody* tap) {
    // Answers may bring further events with them, which the socket does not announce.
    do {
        for (const EventTapChannel::Event& pending : tap->channel->readPending()) {
            // What a tap does not take goes on unchanged, as does everything while it is off.
            if (!tap->enabled || pending.type > 63 ||
                !(tap->eventsOfInterest & CGEventMaskBit(pending.type))) {
                tap->channel->answer(pending, true);
                continue;
            }
            CFTypeRef event = CFRuntime::create<TapEventBody>(tapEventType(), pending);
            const bool passOn =
                tap->callback(nullptr, pending.type, static_cast<CGEventRef>(event), tap->userInfo);
            CFRelease(event);
            tap->channel->answer(pending, !tap->active || passOn);
        }
    } while (tap->channel->hasQueuedEvents());
}

} // namespace

CFMachPortRef CGEventTapCreate(CGEventTapLocation, CGEventTapPlacement, CGEventTapOptions options,
                               CGEventMask eventsOfInterest, CGEventTapCallBack callback, void* userInfo) {
    const bool keyEvents = eventsOfInterest & kKeyEvents;
    const bool active = options == kCGEventTapOptionDefault;
    // Only key down and key up can be taken away from the applications (a keyboard grab); taps
    // never mix key events with others, as each platform gives its own.
    if (!callback || (options != kCGEventTapOptionListenOnly && !active) ||
        (keyEvents && (eventsOfInterest & ~kKeyEvents)) ||
        (active && (!keyEvents || (eventsOfInterest & CGEventMaskBit(kCGEventFlagsChanged)))))
        return nullptr;
    std::unique_ptr<EventTapChannel> channel =
        keyEvents ? activeKeyboardTapPlatform()->openEventTapChannel(eventsOfInterest, active)
                  : activeCursorPlatform()->openEventTapChannel(eventsOfInterest);
    if (!channel)
        return nullptr;
    channel->setEnabled(true);
    CFTypeRef port = CFRuntime::create<PortBody>(portType(), eventsOfInterest, active, callback, userInfo,
                                                 std::move(channel), std::make_unique<QObject>(), true);
    return static_cast<CFMachPortRef>(const_cast<void*>(port));
}

void CGEventTapEnable(CFMachPortRef port, bool enable) {
    PortBody* tap = tapOf(port);
    if (!tap)
        return;
    tap->enabled = enable;
    // The channel belongs to its thread; the latest state wins there.
    auto apply = [tap] {
        tap->channel->setEnabled(tap->enabled);
        // Events that came with the platform's reply would otherwise wait for the next one; an
        // active tap's platform may send none until they are answered.
        if (tap->channel->hasQueuedEvents())
            deliverPendingEvents(tap);
    };
    if (QThread::currentThread() == tap->context->thread())
        apply();
    else
        QMetaObject::invokeMethod(tap->context.get(), apply, Qt::QueuedConnection);
}

bool CGEventTapIsEnabled(CFMachPortRef port) {
    const PortBody* tap = tapOf(port);
    return tap && tap->enabled;
}

namespace {

const TapEventBody* tapEventOf(CGEventRef event) {
    return event && CFGetTypeID(event) == tapEventType() ? CFRuntime::body<TapEventBody>(event) : nullptr;
}

bool isKeyEvent(CGEventType type) {
    return type <= 63 && (kKeyEvents & CGEventMaskBit(type));
}

} // namespace

std::int64_t CGEventGetIntegerValueField(CGEventRef event, CGEventField field) {
    const TapEventBody* body = tapEventOf(event);
    if (!body)
        return 0;
    if (field == kCGEventSourceStateID)
        return body->sourceState;
    return field == kCGKeyboardEventKeycode && isKeyEvent(body->type) ? body->keycode : 0;
}

CGEventFlags CGEventGetFlags(CGEventRef event) {
    const TapEventBody* body = tapEventOf(event);
    return body && isKeyEvent(body->type) ? body->flags : 0;
}

CGEventType CGEventGetType(CGEventRef event) {
    const TapEventBody* body = tapEventOf(event);
    return body ? body->type : kCGEventNull;
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
        deliverPendingEvents(CFRuntime::body<PortBody>(port));
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
