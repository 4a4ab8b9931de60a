// Arbitrary bytes as a desktop fixture. A fixture is either refused with a place and a problem,
// or it is a desktop that every accessibility and window server call can be asked about without
// a fault, and that leaves no platform object alive once the caller has released its copies.

#include "ax/AccessibilityProvider.h"
#include "cf/CFRuntime.h"
#include "platformAccessibility.h"
#include "platformWindowServer.h"
#include "virtual/VirtualDesktop.h"

#include <QtGlobal>

#include <cstdlib>
#include <vector>

namespace {

// A fixture may make the tree as large or as cyclic (through element references) as it likes.
constexpr int kMostElementsVisited = 400;

void check(bool condition) {
    if (!condition)
        std::abort();
}

void ignoreMessages(QtMsgType, const QMessageLogContext&, const QString&) {}

// Reads everything an element offers and performs its actions; queues the elements it names.
void explore(AXUIElementRef element, std::vector<AXUIElementRef>* queue) {
    CFArrayRef names = nullptr;
    if (AXUIElementCopyAttributeNames(element, &names) == kAXErrorSuccess) {
        for (CFIndex i = 0; i < CFArrayGetCount(names); ++i) {
            CFStringRef name = static_cast<CFStringRef>(CFArrayGetValueAtIndex(names, i));
            CFTypeRef value = nullptr;
            const AXError result = AXUIElementCopyAttributeValue(element, name, &value);
            check(result == kAXErrorSuccess || !value);
            CFIndex count = 0;
            AXUIElementGetAttributeValueCount(element, name, &count);
            Boolean settable = false;
            if (AXUIElementIsAttributeSettable(element, name, &settable) == kAXErrorSuccess && settable &&
                value)
                AXUIElementSetAttributeValue(element, name, value);
            if (value && CFGetTypeID(value) == AXUIElementGetTypeID())
                queue->push_back(static_cast<AXUIElementRef>(CFRetain(value)));
            if (value && CFGetTypeID(value) == CFArrayGetTypeID()) {
                CFArrayRef array = static_cast<CFArrayRef>(value);
                for (CFIndex j = 0; j < CFArrayGetCount(array); ++j) {
                    CFTypeRef item = CFArrayGetValueAtIndex(array, j);
                    if (CFGetTypeID(item) == AXUIElementGetTypeID())
                        queue->push_back(static_cast<AXUIElementRef>(CFRetain(item)));
                }
            }
            CFRelease(value);
        }
    }
    CFRelease(names);

    CFArrayRef actions = nullptr;
    if (AXUIElementCopyActionNames(element, &actions) == kAXErrorSuccess) {
        for (CFIndex i = 0; i < CFArrayGetCount(actions); ++i) {
            CFStringRef action = static_cast<CFStringRef>(CFArrayGetValueAtIndex(actions, i));
            CFStringRef description = nullptr;
            AXUIElementCopyActionDescription(element, action, &description);
            CFRelease(description);
            AXUIElementPerformAction(element, action);
        }
    }
    CFRelease(actions);
    CGWindowID window = 0;
    _AXUIElementGetWindow(element, &window);
}

void walk(const QList<ApplicationInfo>& applications) {
    std::vector<AXUIElementRef> queue;
    queue.push_back(AXUIElementCreateSystemWide());
    for (const ApplicationInfo& application : applications)
        queue.push_back(AXUIElementCreateApplication(application.pid));
    for (std::size_t i = 0; i < queue.size(); ++i) {
        if (int(i) < kMostElementsVisited)
            explore(queue[i], &queue);
        CFRelease(queue[i]);
    }
}

void hitTest(const QList<WindowInfo>& windows) {
    AXUIElementRef systemWide = AXUIElementCreateSystemWide();
    for (const WindowInfo& window : windows) {
        for (CGPoint point :
             {window.frame.origin, CGPointMake(window.frame.origin.x + window.frame.size.width / 2,
                                               window.frame.origin.y + window.frame.size.height / 2)}) {
            AXUIElementRef hit = nullptr;
            const AXError result =
                AXUIElementCopyElementAtPosition(systemWide, float(point.x), float(point.y), &hit);
            check((result == kAXErrorSuccess) == (hit != nullptr));
            CFRelease(hit);
            CGWindowID found = 0;
            CGSConnectionID owner = 0;
            CGSFindWindowAndOwner(CGSMainConnectionID(), 0, 1, 0, &point, nullptr, &found, &owner);
            pid_t pid = 0;
            CGSConnectionGetPID(owner, &pid);
            CGRect rect;
            CGSGetScreenRectForWindow(CGSMainConnectionID(), found, &rect);
        }
    }
    CFRelease(systemWide);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (qInstallMessageHandler(ignoreMessages), true);
    Q_UNUSED(quiet);
    const CFIndex liveBefore = CFRuntime::liveObjectCount();
    {
        auto desktop = std::make_shared<VirtualDesktop>();
        desktop->setDelaysEnabled(false);
        const bool loaded =
            desktop->load(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)), "fuzz");
        const VirtualDesktop::FixtureError error = desktop->lastError();
        check(loaded == error.problem.isEmpty());
        check(loaded || !error.place.isEmpty());
        if (loaded) {
            setAccessibilityProviderForTesting(desktop);
            QList<WindowInfo> windows;
            check(desktop->windowList(&windows) == kCGErrorSuccess);
            walk(desktop->applications());
            hitTest(windows);
            setAccessibilityProviderForTesting(nullptr);
        }
    }
    check(CFRuntime::liveObjectCount() == liveBefore);
    return 0;
}
