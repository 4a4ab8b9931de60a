#pragma once

// The event calls of Core Graphics that the mouse service uses: the real framework on Apple
// systems; elsewhere ax/Events.cpp, where an event made from a source carries the pointer's
// position on the active provider's desktop at the moment it is made.

#include "platformAccessibility.h"

#ifdef __APPLE__
#include <CoreGraphics/CoreGraphics.h>
#else
#include <cstdint>

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
