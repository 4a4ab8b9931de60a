#pragma once

// The event calls of Core Graphics that the mouse service uses: the real framework on Apple
// systems; elsewhere ax/Events.cpp, where an event made from a source carries the pointer's
// position on the active provider's desktop at the moment it is made.

#include "platformAccessibility.h"

#ifdef __APPLE__
#include <CoreGraphics/CoreGraphics.h>
#else
#include <QList>

#include <cstdint>
#include <memory>

typedef const struct __CGEventSource* CGEventSourceRef;
typedef const struct __CGEvent* CGEventRef;
typedef std::int32_t CGEventSourceStateID;

enum : CGEventSourceStateID {
    kCGEventSourceStatePrivate = -1,
    kCGEventSourceStateCombinedSessionState = 0,
    kCGEventSourceStateHIDSystemState = 1,
};

extern "C" {

// A new source, released by the caller; NULL for a state id that names none.
CGEventSourceRef CGEventSourceCreate(CGEventSourceStateID stateID);
// A new event, released by the caller, at the pointer's present position; the source may be NULL.
CGEventRef CGEventCreate(CGEventSourceRef source);
// Global, top-left origin; (0, 0) for NULL.
CGPoint CGEventGetLocation(CGEventRef event);

} // extern "C"

#endif

// The modifier flags of events and of an event source's state.
#ifndef __APPLE__
typedef std::uint64_t CGEventFlags;
enum : CGEventFlags {
    kCGEventFlagMaskAlphaShift = 0x00010000,
    kCGEventFlagMaskShift = 0x00020000,
    kCGEventFlagMaskControl = 0x00040000,
    kCGEventFlagMaskAlternate = 0x00080000,
    kCGEventFlagMaskCommand = 0x00100000,
    kCGEventFlagMaskNumericPad = 0x00200000,
};

extern "C" {

// The modifier keys held down now. On X11 the server's modifier state, mapped by
// CGEventFlagsFromX11ModifierState (x11/X11Modifiers.h); 0 without a display.
CGEventFlags CGEventSourceFlagsState(CGEventSourceStateID stateID);

} // extern "C"
#endif

// Event taps and the run loops that carry them: the real frameworks on Apple systems; elsewhere
// cursor/EventTaps.cpp, where a run loop is the Qt event loop of its thread and a tap's port
// watches the channel that a platform opens for it: the cursor platform (platformCursor.h) for
// mouse events, the keyboard tap platform below for key events.
#ifndef __APPLE__
typedef std::uint32_t CGEventType;
enum : CGEventType {
    kCGEventNull = 0,
    kCGEventLeftMouseDown = 1,
    kCGEventLeftMouseUp = 2,
    kCGEventRightMouseDown = 3,
    kCGEventRightMouseUp = 4,
    kCGEventMouseMoved = 5,
    kCGEventLeftMouseDragged = 6,
    kCGEventRightMouseDragged = 7,
    kCGEventKeyDown = 10,
    kCGEventKeyUp = 11,
    kCGEventFlagsChanged = 12,
    kCGEventOtherMouseDown = 25,
    kCGEventOtherMouseUp = 26,
    kCGEventOtherMouseDragged = 27,
    kCGEventTapDisabledByTimeout = 0xFFFFFFFE,
    kCGEventTapDisabledByUserInput = 0xFFFFFFFF,
};
typedef std::uint64_t CGEventMask;
#define CGEventMaskBit(eventType) ((CGEventMask)1 << (eventType))

typedef std::uint32_t CGEventTapLocation;
enum : CGEventTapLocation { kCGHIDEventTap = 0, kCGSessionEventTap = 1, kCGAnnotatedSessionEventTap = 2 };
typedef std::uint32_t CGEventTapPlacement;
enum : CGEventTapPlacement { kCGHeadInsertEventTap = 0, kCGTailAppendEventTap = 1 };
typedef std::uint32_t CGEventTapOptions;
enum : CGEventTapOptions { kCGEventTapOptionDefault = 0, kCGEventTapOptionListenOnly = 1 };
typedef std::uint32_t CGEventField;
// Where an event came from: kCGEventSourceStateHIDSystemState for an input device,
// kCGEventSourceStatePrivate for one that a program injected.
enum : CGEventField { kCGKeyboardEventKeycode = 9, kCGEventSourceStateID = 45 };

typedef struct __CGEventTapProxy* CGEventTapProxy;
typedef CGEventRef (*CGEventTapCallBack)(CGEventTapProxy proxy, CGEventType type, CGEventRef event,
                                         void* userInfo);

typedef struct __CFMachPort* CFMachPortRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
typedef struct __CFRunLoop* CFRunLoopRef;

extern "C" {

extern const CFStringRef kCFRunLoopDefaultMode;

// A new tap, released by the caller, enabled; NULL when the platform cannot listen (no display,
// an input extension missing, for key events also a keyboard grab that another client holds).
// Taps of key events (key down, key up, flags changed) come from the keyboard tap platform, all
// others from the cursor platform. Only taps of key down and key up may be active (options
// kCGEventTapOptionDefault): the event that the callback returns is passed on, NULL swallows it.
// The callback's result is ignored for listening taps. Events reach the callback on the thread of
// the run loop that the tap's source is added to.
CFMachPortRef CGEventTapCreate(CGEventTapLocation tap, CGEventTapPlacement place, CGEventTapOptions options,
                               CGEventMask eventsOfInterest, CGEventTapCallBack callback, void* userInfo);
// May be called on any thread; a disabled tap delivers nothing and costs the platform nothing.
void CGEventTapEnable(CFMachPortRef tap, bool enable);
bool CGEventTapIsEnabled(CFMachPortRef tap);
CGEventType CGEventGetType(CGEventRef event);
// Of a tap's events kCGEventSourceStateID and, for key events, kCGKeyboardEventKeycode (the virtual
// key code) are known; 0 for other fields and other events.
std::int64_t CGEventGetIntegerValueField(CGEventRef event, CGEventField field);
// The modifier flags of a tap's key event; 0 for other events.
CGEventFlags CGEventGetFlags(CGEventRef event);

// A new source, released by the caller; NULL for a NULL port.
CFRunLoopSourceRef CFMachPortCreateRunLoopSource(CFAllocatorRef allocator, CFMachPortRef port, CFIndex order);
// The calling thread's run loop, owned by the thread (not retained, never released).
CFRunLoopRef CFRunLoopGetCurrent(void);
// On the run loop's own thread; the source then delivers while that loop runs, until released.
void CFRunLoopAddSource(CFRunLoopRef runLoop, CFRunLoopSourceRef source, CFStringRef mode);
// Runs the current thread's loop until CFRunLoopStop.
void CFRunLoopRun(void);
// From any thread; ends the innermost CFRunLoopRun of that loop.
void CFRunLoopStop(CFRunLoopRef runLoop);

} // extern "C"

// What one event tap listens on: a socket to watch, and the events read from it. Used only on
// the thread of the run loop that its tap is added to, which is where it was opened.
class EventTapChannel {
public:
    struct Event {
        CGEventType type;
        CGEventSourceStateID sourceState;
        // Of key events: the virtual key code, and the modifiers as they were at the event.
        std::int64_t keycode = 0;
        CGEventFlags flags = 0;
    };

    virtual ~EventTapChannel() = default;
    // Readable when events may be waiting; -1 for none.
    virtual int socket() const = 0;
    // A disabled channel asks the platform for nothing, so that a tap that is off costs nothing.
    virtual void setEnabled(bool enabled) = 0;
    // The events of the tap's mask that arrived since the last call, oldest first.
    virtual QList<Event> readPending() = 0;
    // Events already taken from the socket, which it will not announce again (a client library's
    // queue); the tap reads them after each change of its state.
    virtual bool hasQueuedEvents() { return false; }
    // The answer of an active tap for each event that readPending() gave, in the same order: pass
    // it on to the applications, or swallow it. Listening channels ignore it.
    virtual void answer(const Event& event, bool passOn) {
        (void)event;
        (void)passOn;
    }
};

// The platform below the taps of key events: the X server on the live desktop, a stand-in in
// tests. Active channels hold each event until it is answered.
class KeyboardTapPlatform {
public:
    virtual ~KeyboardTapPlatform() = default;
    // Null when the platform cannot give these events; for an active channel also when it cannot
    // take them away from other applications.
    virtual std::unique_ptr<EventTapChannel> openEventTapChannel(CGEventMask eventsOfInterest,
                                                                 bool active) = 0;
};

// Replaces the keyboard tap platform of the process; null restores the live one. For tests,
// while no tap of key events exists.
void setKeyboardTapPlatformForTesting(std::shared_ptr<KeyboardTapPlatform> platform);
#endif
