#pragma once

// The cursor calls of Core Graphics that cursor hiding uses: the real framework on Apple systems;
// elsewhere cursor/CursorPlatform.cpp, which hands them to the cursor platform below (on the
// live Linux desktop the X server, see x11/X11Cursor.h).
//
// The window server keeps one hide count per process, whatever display a call names: the cursor
// is hidden while the count is above zero, and a show at zero does nothing. The private calls
// have no header from Apple, so their declarations are this project's on every platform.

#include "platformDisplays.h"
#include "platformEvents.h"
#include "platformWindowServer.h"

#ifndef __APPLE__
#include <QList>

#include <memory>

extern "C" {

// The display with the menu bar: the first online display.
CGDirectDisplayID CGMainDisplayID(void);
CGError CGDisplayHideCursor(CGDirectDisplayID display);
CGError CGDisplayShowCursor(CGDirectDisplayID display);
// False while this process hides the cursor.
Boolean CGCursorIsVisible(void);

} // extern "C"

// The platform below the cursor calls: the X server on the live desktop, a stand-in in tests.
// Hides and shows are the process's count, one call each; the implementation keeps it.
class CursorPlatform {
public:
    virtual ~CursorPlatform() = default;
    virtual void hideCursor() = 0;
    virtual void showCursor() = 0;
    virtual bool isCursorVisible() = 0;
    // Shows the cursor whatever this process's count, which is zero afterwards.
    virtual void forceShowCursor() = 0;
    // Null when the platform cannot listen for these events.
    virtual std::unique_ptr<EventTapChannel> openEventTapChannel(CGEventMask eventsOfInterest) = 0;
};

// Replaces the cursor platform of the process; null restores the live one. For tests, before
// cursor hiding starts and after it has stopped.
void setCursorPlatformForTesting(std::shared_ptr<CursorPlatform> platform);
#endif

extern "C" {

// The window server connection that the process's Core Graphics calls use by default.
CGSConnectionID _CGSDefaultConnection(void);
// Shows the cursor whatever the hide count of the connection's process.
CGError CGSForceShowCursor(CGSConnectionID connection);
// Sets a property of targetConnection, asked through connection.
CGError CGSSetConnectionProperty(CGSConnectionID connection, CGSConnectionID targetConnection,
                                 CFStringRef key, CFTypeRef value);

} // extern "C"
