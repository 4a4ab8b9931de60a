#include "CursorPlatform_p.h"

#include "x11/X11Cursor.h"

#include <QMutex>

namespace {

QMutex platformMutex;
std::shared_ptr<CursorPlatform> installedPlatform;

} // namespace

std::shared_ptr<CursorPlatform> activeCursorPlatform() {
    QMutexLocker lock(&platformMutex);
    if (!installedPlatform)
        installedPlatform = std::make_shared<X11Cursor>();
    return installedPlatform;
}

void setCursorPlatformForTesting(std::shared_ptr<CursorPlatform> platform) {
    QMutexLocker lock(&platformMutex);
    installedPlatform = std::move(platform);
}

CGDirectDisplayID CGMainDisplayID(void) {
    CGDirectDisplayID first = 0;
    std::uint32_t count = 0;
    // Display ids are positions plus 1, the main display first; 1 also when none is listed.
    return CGGetOnlineDisplayList(1, &first, &count) == kCGErrorSuccess && count == 1 ? first : 1;
}

// Every display shares the one count of the process, as with the window server.
CGError CGDisplayHideCursor(CGDirectDisplayID) {
    activeCursorPlatform()->hideCursor();
    return kCGErrorSuccess;
}

CGError CGDisplayShowCursor(CGDirectDisplayID) {
    activeCursorPlatform()->showCursor();
    return kCGErrorSuccess;
}

Boolean CGCursorIsVisible(void) {
    return activeCursorPlatform()->isCursorVisible();
}

CGSConnectionID _CGSDefaultConnection(void) {
    return CGSMainConnectionID();
}

CGError CGSForceShowCursor(CGSConnectionID connection) {
    // Only this process's own hides can be undone: the X server keeps each client's apart.
    if (connection != CGSMainConnectionID())
        return kCGErrorIllegalArgument;
    activeCursorPlatform()->forceShowCursor();
    return kCGErrorSuccess;
}

CGError CGSSetConnectionProperty(CGSConnectionID connection, CGSConnectionID targetConnection,
                                 CFStringRef key, CFTypeRef value) {
    if (connection != CGSMainConnectionID() || targetConnection != connection || !key || !value)
        return kCGErrorIllegalArgument;
    // On X any client may hide the cursor, in the background or not: the property that allows it
    // elsewhere is accepted and needs nothing. Other properties are not known here.
    return CFEqual(key, CFSTR("SetsCursorInBackground")) ? kCGErrorSuccess : kCGErrorNotImplemented;
}
