#include "osxUIElementUtils.h"

#include "osxProToolsUtils.h"
#include "osxSystemVersion.h"

#include <QDebug>

#include <optional>
#include <unistd.h>

namespace {

using ElementRef = CFTypeSmartRef<AXUIElementRef>;

// The platform's answer at a point, asked through a new system-wide element; nullopt when none
// can be made to ask.
std::optional<AXError> askPlatformForElementAt(float x, float y, ElementRef& element) {
    const ElementRef systemWide(AXUIElementCreateSystemWide());
    if (!systemWide)
        return std::nullopt;
    return AXUIElementCopyElementAtPosition(systemWide, x, y, element.out());
}

// An attribute of a new system-wide element that names an element. kAXErrorFailure when no
// system-wide element can be made; a value that is no element counts as none.
AXError copySystemWideElementAttribute(CFStringRef attribute, ElementRef& element) {
    const ElementRef systemWide(AXUIElementCreateSystemWide());
    if (!systemWide)
        return kAXErrorFailure;
    CFTypeSmartRef<CFTypeRef> value;
    const AXError result = AXUIElementCopyAttributeValue(systemWide, attribute, value.out());
    if (result == kAXErrorSuccess && value && CFGetTypeID(value) == AXUIElementGetTypeID())
        element.reset(static_cast<AXUIElementRef>(value.take()));
    return result;
}

void setError(AXError* error, AXError value) {
    if (error)
        *error = value;
}

AXUIElementRef reportWay(UIElementHitTestWay* way, AXUIElementRef found, UIElementHitTestWay wayIfFound) {
    if (way)
        *way = found ? wayIfFound : UIElementHitTestWay::Nothing;
    return found;
}

// Where a rectangle search looks at an element's own rectangle, and whether the element's
// subtree is pruned by rectangles.
struct RectangleTest {
    bool beforeChildren;
    bool pruneChildren;
};

RectangleTest rectangleTestOf(AXUIElementRef element, bool pruneByRect) {
    const QString role = UIElementRole(element); // null when it cannot be read
    if (pruneByRect)
        return {!role.isNull() && role != kQAXApplicationRole, true};
    if (role != kQAXWindowRole)
        return {false, false};
    // From Big Sur on the open panel lists children outside the part of it that is shown; only
    // their rectangles tell them apart.
    const bool isOpenPanel =
        isBigSurOrLater() && UIElementIdentifierAsString(element) == QLatin1String("open-panel");
    return {true, isOpenPanel};
}

bool rectContainsPoint(AXUIElementRef element, const QPoint& point) {
    const QRect rect = UIElementRect(element);
    return !rect.isNull() && rect.contains(point, false);
}

// The plain answer at the point, then the climb from it.
AXUIElementRef copyAncestorOfElementAt(const QPoint& point,
                                       const std::function<AXUIElementRef(AXUIElementRef)>& climb) {
    const ElementRef hit(copyUIElementAtPosition(point));
    return hit ? climb(hit) : nullptr;
}

} // namespace

AXUIElementRef copyUIElementAtPosition(float x, float y, AXError* error) {
    setError(error, kAXErrorSuccess);
    ElementRef element;
    const std::optional<AXError> result = askPlatformForElementAt(x, y, element);
    if (!result) {
        setError(error, kAXErrorFailure);
        return nullptr;
    }
    if (*result != kAXErrorSuccess || !element) {
        setError(error, *result);
        return nullptr;
    }
    return element.take();
}

AXUIElementRef copyUIElementAtPosition(const QPoint& point, AXError* error) {
    return copyUIElementAtPosition(float(point.x()), float(point.y()), error);
}

AXUIElementRef copyUIElementAtPositionEmployingSearchIfNecessary(const QPoint& point, AXError* error) {
    return copyUIElementAtPositionEmployingSearchIfNecessary(point, error, nullptr);
}

AXUIElementRef copyUIElementAtPositionEmployingSearchIfNecessary(const QPoint& point, AXError* error,
                                                                 UIElementHitTestWay* way) {
    setError(error, kAXErrorSuccess);
    reportWay(way, nullptr, UIElementHitTestWay::Nothing);
    ElementRef element;
    const std::optional<AXError> result =
        askPlatformForElementAt(float(point.x()), float(point.y()), element);
    if (!result)
        return nullptr;
    if (*result == kAXErrorCannotComplete) {
        // A busy application answers every further query just as late: searching it would block for
        // as many time-outs as it has elements.
        setError(error, kAXErrorCannotComplete);
        qDebug().noquote()
            << "(Note: app timed out searching for a UI element, not emplying any further searching)";
        if (way)
            *way = UIElementHitTestWay::TimedOut;
        return nullptr;
    }
    if (*result == kAXErrorSuccess && element) {
        if (!isProToolsUIElement(element))
            return reportWay(way, element.take(), UIElementHitTestWay::PlatformAnswer);
        // Pro Tools answers only with the window or a scroll area for most of what it draws.
        const QString role = UIElementRole(element);
        if (role != kQAXWindowRole && role != kQAXScrollAreaRole)
            return reportWay(way, element.take(), UIElementHitTestWay::PlatformAnswer);
        return reportWay(way, copyUIElementAtPositionBySearchingProTools(element, point),
                         UIElementHitTestWay::ProToolsSearch);
    }
    qDebug().noquote() << "(Note: employing full search for UI element)";
    return reportWay(way, copyUIElementAtPositionBySearchingApplicationWithWindowContainingPoint(point),
                     UIElementHitTestWay::RectangleSearch);
}

AXUIElementRef copyUIElementAtPositionBySearchingApplicationWithWindowContainingPoint(const QPoint& point) {
    const int pid = pidOfWindowContainingPoint(point.x(), point.y());
    // The tool's own windows hold nothing it could be asked to find, and a search of its own tree
    // would wait on its own main thread.
    if (pid == 0 || pid == getpid())
        return nullptr;
    const ElementRef application(AXUIElementCreateApplication(pid));
    if (!application)
        return nullptr;
    return copyUIElementAtPositionBySearchingApplication(application, point);
}

AXUIElementRef copyUIElementAtPositionBySearchingApplication(AXUIElementRef application,
                                                             const QPoint& point) {
    return recursivelySearchChildrenForLeafElementContainingPoint(application, point,
                                                                  isProToolsUIElement(application), 0);
}

AXUIElementRef recursivelySearchChildrenForLeafElementContainingPoint(AXUIElementRef element,
                                                                      const QPoint& point, bool pruneByRect,
                                                                      int depth) {
    if (!element)
        return nullptr;
    const RectangleTest test = rectangleTestOf(element, pruneByRect);
    if (test.beforeChildren && !rectContainsPoint(element, point))
        return nullptr;
    const CFTypeSmartRef<CFArrayRef> children(copyUIElementChildren(element));
    const CFIndex count = CFArrayGetCount(children);
    for (CFIndex i = 0; i < count; ++i) {
        const CFTypeRef child = CFArrayGetValueAtIndex(children, i);
        if (CFGetTypeID(child) != AXUIElementGetTypeID())
            continue;
        if (AXUIElementRef found = recursivelySearchChildrenForLeafElementContainingPoint(
                static_cast<AXUIElementRef>(child), point, test.pruneChildren, depth + 1))
            return found;
    }
    if (!test.beforeChildren && !rectContainsPoint(element, point))
        return nullptr;
    return static_cast<AXUIElementRef>(CFRetain(element));
}

AXUIElementRef copyFocusedUIElement(AXError* error) {
    setError(error, kAXErrorSuccess);
    ElementRef focused;
    const AXError result = copySystemWideElementAttribute(CFSTR("AXFocusedUIElement"), focused);
    if (result != kAXErrorSuccess || !focused) {
        setError(error, result);
        return nullptr;
    }
    return focused.take();
}

AXUIElementRef copyFocusedApplication() {
    ElementRef application;
    copySystemWideElementAttribute(CFSTR("AXFocusedApplication"), application);
    return application.take();
}

int pidOfFocusedApplication() {
    const ElementRef focused(copyFocusedUIElement());
    pid_t pid = 0;
    if (!focused || AXUIElementGetPid(focused, &pid) != kAXErrorSuccess)
        return 0;
    return pid;
}

AXUIElementRef copyUIElementOfTypeAtPosition(const QPoint& point, const QString& type) {
    return copyAncestorOfElementAt(point,
                                   [&](AXUIElementRef hit) { return copyAncestorElementOfType(hit, type); });
}

AXUIElementRef copyUIElementWithRoleAtPosition(const QPoint& point, const QString& role) {
    return copyAncestorOfElementAt(
        point, [&](AXUIElementRef hit) { return copyAncestorElementWithRole(hit, role); });
}
