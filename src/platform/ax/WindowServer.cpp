#include "platformWindowServer.h"

#include "AccessibilityProvider.h"
#include "PlatformCallCounters.h"

#include <unistd.h>

// A connection id names the process that holds it. It is not the pid itself, so that code that
// mixes the two up fails here as it would against the real window server.

namespace {

constexpr CGSConnectionID kConnectionTag = 0x40000000;
constexpr pid_t kLargestPid = 4194304; // PID_MAX_LIMIT of Linux

CGSConnectionID connectionOf(pid_t pid) {
    return kConnectionTag + pid;
}

bool pidOf(CGSConnectionID connection, pid_t* pid) {
    const pid_t candidate = connection - kConnectionTag;
    if (connection < kConnectionTag || candidate < 1 || candidate > kLargestPid)
        return false;
    *pid = candidate;
    return true;
}

bool isConnection(CGSConnectionID connection) {
    pid_t pid = 0;
    return pidOf(connection, &pid);
}

bool contains(const CGRect& rect, const CGPoint& point) {
    return point.x >= rect.origin.x && point.x < rect.origin.x + rect.size.width &&
           point.y >= rect.origin.y && point.y < rect.origin.y + rect.size.height;
}

} // namespace

CGSConnectionID CGSMainConnectionID(void) {
    countPlatformCall(PlatformCall::CGSMainConnectionID);
    return connectionOf(getpid());
}

CGError CGSFindWindowAndOwner(CGSConnectionID connection, int, int, int, CGPoint* screenPoint,
                              CGPoint* windowPoint, CGWindowID* windowID, CGSConnectionID* ownerConnection) {
    countPlatformCall(PlatformCall::CGSFindWindowAndOwner);
    if (!isConnection(connection))
        return kCGErrorInvalidConnection;
    if (!screenPoint)
        return kCGErrorIllegalArgument;
    QList<WindowInfo> windows;
    const CGError result = activeAccessibilityProvider()->windowList(&windows);
    if (result != kCGErrorSuccess)
        return result;
    WindowInfo found;
    for (const WindowInfo& window : windows) {
        if (window.onScreen && contains(window.frame, *screenPoint)) {
            found = window;
            break;
        }
    }
    if (windowPoint) {
        *windowPoint = found.id == kCGNullWindowID ? CGPoint{}
                                                   : CGPointMake(screenPoint->x - found.frame.origin.x,
                                                                 screenPoint->y - found.frame.origin.y);
    }
    if (windowID)
        *windowID = found.id;
    if (ownerConnection)
        *ownerConnection = found.id == kCGNullWindowID ? 0 : connectionOf(found.owner);
    return kCGErrorSuccess;
}

CGError CGSConnectionGetPID(CGSConnectionID connection, pid_t* pid) {
    countPlatformCall(PlatformCall::CGSConnectionGetPID);
    if (!pid)
        return kCGErrorIllegalArgument;
    return pidOf(connection, pid) ? kCGErrorSuccess : kCGErrorInvalidConnection;
}

CGError CGSGetScreenRectForWindow(CGSConnectionID connection, CGWindowID windowID, CGRect* rect) {
    countPlatformCall(PlatformCall::CGSGetScreenRectForWindow);
    if (!isConnection(connection))
        return kCGErrorInvalidConnection;
    if (!rect)
        return kCGErrorIllegalArgument;
    QList<WindowInfo> windows;
    const CGError result = activeAccessibilityProvider()->windowList(&windows);
    if (result != kCGErrorSuccess)
        return result;
    for (const WindowInfo& window : windows) {
        if (window.id == windowID && windowID != kCGNullWindowID) {
            *rect = window.frame;
            return kCGErrorSuccess;
        }
    }
    return kCGErrorIllegalArgument;
}

CGError CGSGetZoomParameters(CGSConnectionID connection, CGPoint* origin, double* factor, Boolean* smoothed) {
    countPlatformCall(PlatformCall::CGSGetZoomParameters);
    if (!isConnection(connection))
        return kCGErrorInvalidConnection;
    const ZoomInfo zoom = activeAccessibilityProvider()->zoom();
    if (origin)
        *origin = zoom.origin;
    if (factor)
        *factor = zoom.factor;
    if (smoothed)
        *smoothed = false;
    return kCGErrorSuccess;
}
