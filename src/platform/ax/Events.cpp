#include "platformEvents.h"

#include "AccessibilityProvider.h"
#include "cf/CFRuntime.h"

namespace {

struct SourceBody {
    CGEventSourceStateID stateID;
};

struct EventBody {
    CGPoint location;
};

CFTypeID sourceType() {
    static const CFTypeID type =
        CFRuntime::registerType({"CGEventSource", nullptr, nullptr, nullptr, nullptr});
    return type;
}

CFTypeID eventType() {
    static const CFTypeID type = CFRuntime::registerType({"CGEvent", nullptr, nullptr, nullptr, nullptr});
    return type;
}

} // namespace

CGEventSourceRef CGEventSourceCreate(CGEventSourceStateID stateID) {
    if (stateID < kCGEventSourceStatePrivate || stateID > kCGEventSourceStateHIDSystemState)
        return nullptr;
    return static_cast<CGEventSourceRef>(CFRuntime::create<SourceBody>(sourceType(), stateID));
}

CGEventRef CGEventCreate(CGEventSourceRef) {
    const CGPoint location = activeAccessibilityProvider()->mousePosition();
    return static_cast<CGEventRef>(CFRuntime::create<EventBody>(eventType(), location));
}

CGPoint CGEventGetLocation(CGEventRef event) {
    if (!event || CFGetTypeID(event) != eventType())
        return CGPoint{};
    return CFRuntime::body<EventBody>(event)->location;
}
