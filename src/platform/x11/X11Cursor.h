#pragma once

// Cursor hiding on the X server, through XFixes on the root window of the default screen, which
// covers all of its monitors.
//
// The server keeps a hide count for each client and shows the cursor again when the client's
// count returns to zero or its connection closes; it refuses a show beyond the count with
// BadMatch. This process's count of hides is kept here, and the connection of its own holds one
// server hide while that count is above zero, so the server never sees an unbalanced show. No
// other client can show what this one hides, and a crash or exit of the process shows the cursor
// again. A connection that breaks takes its hide with it: the cursor then counts as visible, and
// the next hide opens a new connection.

#include "platformCursor.h"

#include <QMutex>

#include <memory>

class X11Connection;

class X11Cursor final : public CursorPlatform {
public:
    X11Cursor();
    ~X11Cursor() override;

    void hideCursor() override;
    void showCursor() override;
    bool isCursorVisible() override;
    void forceShowCursor() override;
    std::unique_ptr<EventTapChannel> openEventTapChannel(CGEventMask eventsOfInterest) override;

    // Asks the server whether this process's connection holds a hide: a show that the server
    // refuses means that it holds none; one that it accepts is undone at once by a new hide, so
    // the cursor may flicker. False without a connection. For tests.
    bool serverHoldsHide();
    // How many of this process's own hides and shows the server refused, as far as serverHoldsHide()
    // has seen; a balanced count keeps it at 0. For tests.
    int refusedRequests();

private:
    // Brings the server in line with the count.
    void applyCount();

    QMutex mutex;
    std::unique_ptr<X11Connection> connection;
    int hideCount = 0;
    bool serverHides = false;
    int refused = 0;
};
