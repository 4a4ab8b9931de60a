#include "osxUIElementUtils.h"

#include "appkit/NSWorkspace.h"
#include "osxRunningApplications.h"

#include <QCursor>
#include <QDebug>

namespace {

// The attribute's value when the read succeeds with an object of the type; null otherwise.
template <class T>
CFTypeSmartRef<T> copyAttributeOfType(AXUIElementRef element, CFStringRef attribute, CFTypeID type) {
    CFTypeSmartRef<CFTypeRef> value;
    if (AXUIElementCopyAttributeValue(element, attribute, value.out()) != kAXErrorSuccess || !value ||
        CFGetTypeID(value) != type)
        return CFTypeSmartRef<T>();
    return CFTypeSmartRef<T>(static_cast<T>(value.take()));
}

CFTypeSmartRef<AXUIElementRef> copyElementAttribute(AXUIElementRef element, CFStringRef attribute) {
    return copyAttributeOfType<AXUIElementRef>(element, attribute, AXUIElementGetTypeID());
}

CFTypeSmartRef<CFStringRef> copyRole(AXUIElementRef element) {
    return copyAttributeOfType<CFStringRef>(element, CFSTR("AXRole"), CFStringGetTypeID());
}

bool hasRole(CFStringRef role, CFStringRef expected) {
    return role && CFEqual(role, expected);
}

bool sameElement(AXUIElementRef a, AXUIElementRef b) {
    return a && b && CFEqual(a, b);
}

// The window server's id of the window that holds the element; an element that is no handle has
// none, whatever the platform would make of it.
AXError windowIDOfElement(CFTypeRef element, CGWindowID* windowID) {
    *windowID = kCGNullWindowID;
    if (!element || CFGetTypeID(element) != AXUIElementGetTypeID())
        return kAXErrorIllegalArgument;
    return _AXUIElementGetWindow(static_cast<AXUIElementRef>(element), windowID);
}

} // namespace

AXUIElementRef copyUIElementWindow(AXUIElementRef element) {
    return copyUIElementWindowRec(element, nullptr, UIElementPID(element));
}

AXUIElementRef copyUIElementWindowRec(AXUIElementRef element, AXUIElementRef candidate, int pid) {
    if (UIElementPID(element) != pid) {
        qDebug().noquote() << "Warning: copyUIElementWindow failed due to getting element with different pid "
                              "than starting element";
        return nullptr;
    }
    const CFTypeSmartRef<CFStringRef> role = copyRole(element);
    if (!role)
        return nullptr;
    if (hasRole(role, CFSTR("AXWindow")))
        candidate = element;
    // The elements of the walk stay retained on the stack until it returns, and with them the
    // candidate, which is always one of them.
    const CFTypeSmartRef<AXUIElementRef> window = copyElementAttribute(element, CFSTR("AXWindow"));
    if (window && !CFEqual(window, element))
        return copyUIElementWindowRec(window, candidate, pid);
    const CFTypeSmartRef<AXUIElementRef> parent(copyUIElementParent(element));
    if (parent)
        return copyUIElementWindowRec(parent, candidate, pid);
    return retained(candidate);
}

AXUIElementRef copyUIElementWindowUsingPrivateAPI(AXUIElementRef element) {
    CGWindowID windowID = kCGNullWindowID;
    AXError error = windowIDOfElement(element, &windowID);
    if (error != kAXErrorSuccess || windowID == kCGNullWindowID) {
        qDebug().noquote() << "Error: couldn't get target CGWindowID from AXUIElementRef. Error code:"
                           << int(error);
        qDebug().noquote()
            << "Note: this is normal if the AXUIElementRef refers to an element on the deskop, as "
               "the desktop has no window";
        return nullptr;
    }
    pid_t pid = 0;
    error = AXUIElementGetPid(element, &pid);
    if (error != kAXErrorSuccess || pid == 0) {
        qDebug().noquote() << "Error: failed to get process ID for UI element. Error code:" << int(error);
        return nullptr;
    }
    AXUIElementRef window = copyWindowWithPIDAndWindowID(pid, windowID);
    if (!window) {
        qDebug().noquote()
            << "Note: copyUIElementWindowUsingPrivateAPI failed. Searched matching app's list of "
               "windows, but none had the same window ID!";
    }
    return window;
}

AXUIElementRef copyUIElementWindowRobustly(AXUIElementRef element) {
    if (AXUIElementRef window = copyUIElementWindow(element))
        return window;
    return copyUIElementWindowUsingPrivateAPI(element);
}

AXUIElementRef copyUIElementWindowOrSheet(AXUIElementRef element) {
    static const std::function<AXUIElementRef(AXUIElementRef)> nearestWindowOrSheet =
        [](AXUIElementRef current) -> AXUIElementRef {
        const CFTypeSmartRef<CFStringRef> role = copyRole(current);
        if (hasRole(role, CFSTR("AXWindow")) || hasRole(role, CFSTR("AXSheet")))
            return retained(current);
        const CFTypeSmartRef<AXUIElementRef> parent(copyUIElementParent(current));
        return parent ? nearestWindowOrSheet(parent) : nullptr;
    };
    return nearestWindowOrSheet(element);
}

AXUIElementRef copyWindowWithPIDAndWindowID(int pid, CGWindowID windowID) {
    const CFTypeSmartRef<AXUIElementRef> application(AXUIElementCreateApplication(pid));
    if (!application) {
        qDebug().noquote() << "Error: failed to create AXUIElement for application with pid:" << pid;
        return nullptr;
    }
    CFTypeSmartRef<CFTypeRef> windows;
    const AXError error = AXUIElementCopyAttributeValue(application, CFSTR("AXWindows"), windows.out());
    if (error != kAXErrorSuccess || !windows) {
        qDebug().noquote() << "Error: failed to get windows for application AXUIElement. App pid:" << pid
                           << ", error code:" << int(error);
        return nullptr;
    }
    // A value that is no array lists no windows.
    const CFIndex count = CFGetTypeID(windows) == CFArrayGetTypeID()
                              ? CFArrayGetCount(static_cast<CFArrayRef>(windows.get()))
                              : 0;
    for (CFIndex i = 0; i < count; ++i) {
        const CFTypeRef window = CFArrayGetValueAtIndex(static_cast<CFArrayRef>(windows.get()), i);
        CGWindowID candidateID = kCGNullWindowID;
        const AXError windowError = windowIDOfElement(window, &candidateID);
        if (windowID != kCGNullWindowID && windowError == kAXErrorSuccess) {
            if (candidateID == windowID)
                return retained(static_cast<AXUIElementRef>(window));
        } else {
            qDebug().noquote() << "Error: couldn't get CGWindowID from AXUIElementRef. Error code:"
                               << int(windowError);
        }
    }
    return nullptr;
}

int UIElementsHaveSameWindow(AXUIElementRef a, AXUIElementRef b) {
    const CFTypeSmartRef<AXUIElementRef> windowOfA(copyUIElementWindowRobustly(a));
    const CFTypeSmartRef<AXUIElementRef> windowOfB(copyUIElementWindowRobustly(b));
    if (!windowOfA || !windowOfB)
        return 2;
    return CFEqual(windowOfA, windowOfB) ? 1 : 0;
}

AXUIElementRef copyWindowContainingPoint(const QPoint& point) {
    const CFTypeSmartRef<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
    CFTypeSmartRef<AXUIElementRef> element;
    if (AXUIElementCopyElementAtPosition(systemWide, float(point.x()), float(point.y()), element.out()) !=
            kAXErrorSuccess ||
        !element)
        return nullptr;
    return copyUIElementWindow(element);
}

AXUIElementRef copyWindowUnderScreenPosition(const QPoint& point) {
    return copyWindowContainingPoint(point);
}

AXUIElementRef copyWindowUnderMouse() {
    return copyWindowUnderScreenPosition(QCursor::pos());
}

AXUIElementRef copyWindowContainingPointUsingPrivateAPIs(const QPoint& point) {
    int pid = 0;
    CGWindowID windowID = kCGNullWindowID;
    if (pidAndWindowIDOfWindowContainingPoint(point.x(), point.y(), pid, windowID) != kCGErrorSuccess ||
        pid == 0 || windowID == kCGNullWindowID)
        return nullptr;
    return copyWindowWithPIDAndWindowID(pid, windowID);
}

AXUIElementRef copyWindowContainingPointRobustly(const QPoint& point) {
    if (AXUIElementRef window = copyWindowContainingPoint(point))
        return window;
    qDebug().noquote() << "Note: normal method of finding window at point failed, using CGWindowID method";
    return copyWindowContainingPointUsingPrivateAPIs(point);
}

CGError pidAndWindowIDOfWindowContainingPoint(int x, int y, int& pid, CGWindowID& windowID) {
    CGPoint screenPoint = CGPointMake(x, y);
    CGPoint windowPoint{};
    CGSConnectionID owner = 0;
    pid = 0;
    windowID = kCGNullWindowID;
    CGError status =
        CGSFindWindowAndOwner(CGSMainConnectionID(), 0, 1, 0, &screenPoint, &windowPoint, &windowID, &owner);
    if (status == kCGErrorSuccess && owner != 0 && windowID != kCGNullWindowID) {
        pid_t ownerPid = 0;
        status = CGSConnectionGetPID(owner, &ownerPid);
        if (status == kCGErrorSuccess)
            pid = ownerPid;
    }
    return status;
}

int pidAndScreenRectOfWindowContainingPoint(int x, int y, QRect& rect) {
    int pid = 0;
    CGWindowID windowID = kCGNullWindowID;
    if (pidAndWindowIDOfWindowContainingPoint(x, y, pid, windowID) != kCGErrorSuccess) {
        rect = QRect();
        return 0;
    }
    // Without a window the call fails and leaves the zero rectangle, which is the null QRect.
    CGRect frame{};
    CGSGetScreenRectForWindow(CGSMainConnectionID(), windowID, &frame);
    rect = QRect(int(frame.origin.x), int(frame.origin.y), int(frame.size.width), int(frame.size.height));
    return pid;
}

int pidOfWindowContainingPoint(int x, int y) {
    QRect ignored;
    return pidAndScreenRectOfWindowContainingPoint(x, y, ignored);
}

QRect rectOfWindowContainingPoint(int x, int y) {
    QRect rect;
    pidAndScreenRectOfWindowContainingPoint(x, y, rect);
    return rect;
}

AXUIElementRef copyFocusedWindow() {
    const CFTypeSmartRef<AXUIElementRef> systemWide(AXUIElementCreateSystemWide());
    const CFTypeSmartRef<AXUIElementRef> focusedElement =
        copyElementAttribute(systemWide, CFSTR("AXFocusedUIElement"));
    if (focusedElement) {
        if (AXUIElementRef window = copyUIElementWindowRobustly(focusedElement))
            return window;
    }
    const NSRunningApplication* application = NSWorkspace::sharedWorkspace()->frontmostApplication();
    if (!application)
        return nullptr;
    return copyFocusedWindowOfApplicationByProcessIdentifier(application->processIdentifier());
}

AXUIElementRef copyFocusedWindowOfApplicationByProcessIdentifier(int pid) {
    const CFTypeSmartRef<AXUIElementRef> application(AXUIElementCreateApplication(pid));
    if (!application)
        return nullptr;
    CFTypeSmartRef<AXUIElementRef> focused = copyElementAttribute(application, CFSTR("AXFocusedWindow"));
    if (focused)
        return focused.take();
    const CFTypeSmartRef<CFArrayRef> windows =
        copyAttributeOfType<CFArrayRef>(application, CFSTR("AXWindows"), CFArrayGetTypeID());
    const CFIndex count = windows ? CFArrayGetCount(windows) : 0;
    for (CFIndex i = 0; i < count; ++i) {
        const CFTypeRef window = CFArrayGetValueAtIndex(windows, i);
        if (CFGetTypeID(window) != AXUIElementGetTypeID())
            continue;
        const auto windowElement = static_cast<AXUIElementRef>(window);
        CFTypeSmartRef<CFTypeRef> main;
        if (AXUIElementCopyAttributeValue(windowElement, CFSTR("AXMain"), main.out()) == kAXErrorSuccess &&
            main && CFEqual(main, kCFBooleanTrue))
            return retained(windowElement);
    }
    return nullptr;
}

bool isWindowFocused(AXUIElementRef window) {
    const CFTypeSmartRef<AXUIElementRef> focused(copyFocusedWindow());
    return sameElement(focused, window);
}

void makeElementApplicationFrontmost(AXUIElementRef element) {
    pid_t pid = 0;
    if (AXUIElementGetPid(element, &pid) != kAXErrorSuccess || pid == 0)
        return;
    const CFTypeSmartRef<AXUIElementRef> application(AXUIElementCreateApplication(pid));
    if (application)
        AXUIElementSetAttributeValue(application, CFSTR("AXFrontmost"), kCFBooleanTrue);
}

int activateWindow(AXUIElementRef window, int& pid) {
    if (isWindowFocused(window)) {
        qDebug().noquote() << "Window already focused";
        return 2;
    }
    pid_t windowPid = 0;
    if (AXUIElementGetPid(window, &windowPid) != kAXErrorSuccess)
        windowPid = 0;
    NSRunningApplication* application =
        NSRunningApplication::runningApplicationWithProcessIdentifier(windowPid);
    if (!activateApplication(application, false, true)) {
        qDebug().noquote() << "Error: cannot activate window; unable to activate application";
        return 1;
    }
    const AXError error = AXUIElementPerformAction(window, CFSTR("AXRaise"));
    if (error == kAXErrorSuccess) {
        pid = windowPid;
        return 0;
    }
    // System Settings raises its window and still answers that it cannot.
    if (error == kAXErrorAttributeUnsupported &&
        application->bundleIdentifier() == QLatin1String("com.apple.systempreferences")) {
        qDebug().noquote()
            << "Note: ignoring kAXErrorAttributeUnsupported error when activating window in System "
               "Settings and assuming it worked";
        pid = windowPid;
        return 0;
    }
    qDebug().noquote()
        << "Error: cannot activate window; unable to send activate command to window. Error code:"
        << int(error);
    return 1;
}

int activateWindowContainingPoint(const QPoint& point, int& pid) {
    const CFTypeSmartRef<AXUIElementRef> window(copyWindowContainingPointRobustly(point));
    if (!window) {
        qDebug().noquote()
            << "Error: cannot activate window; unable to get window from UI element at position:" << point;
        return 1;
    }
    return activateWindow(window, pid);
}

AXUIElementRef copyTitlebarButtonOfWindow(AXUIElementRef window, CFStringRef buttonAttribute,
                                          CFStringRef buttonSubrole) {
    CFTypeSmartRef<AXUIElementRef> button = copyElementAttribute(window, buttonAttribute);
    if (button)
        return button.take();
    return copyUIElementChildBySubrole(window, buttonSubrole);
}

void pressTitlebarButtonOfWindow(AXUIElementRef window, CFStringRef buttonAttribute,
                                 CFStringRef buttonSubrole, CFStringRef fallbackAttribute,
                                 CFTypeRef fallbackValue, CFStringRef action) {
    if (!window)
        return;
    const CFTypeSmartRef<AXUIElementRef> button(
        copyTitlebarButtonOfWindow(window, buttonAttribute, buttonSubrole));
    if (button) {
        const AXError error = AXUIElementPerformAction(button, action ? action : CFSTR("AXPress"));
        if (action && error == kAXErrorActionUnsupported)
            AXUIElementPerformAction(button, CFSTR("AXPress"));
        return;
    }
    if (fallbackAttribute && fallbackValue) {
        const AXError error = AXUIElementSetAttributeValue(window, fallbackAttribute, fallbackValue);
        if (error != kAXErrorSuccess)
            qWarning().noquote() << "Could not trigger window action! Error code:" << int(error);
        return;
    }
    qWarning().noquote() << "Could not trigger window action! Unable to get title bar button.";
}
