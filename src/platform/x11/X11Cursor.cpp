#include "X11Cursor.h"

#include "X11Connection.h"
#include "X11EventTaps.h"

#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>

X11Cursor::X11Cursor() = default;
X11Cursor::~X11Cursor() = default;

void X11Cursor::hideCursor() {
    QMutexLocker lock(&mutex);
    ++hideCount;
    applyCount();
}

void X11Cursor::showCursor() {
    QMutexLocker lock(&mutex);
    if (hideCount > 0)
        --hideCount;
    applyCount();
}

bool X11Cursor::isCursorVisible() {
    QMutexLocker lock(&mutex);
    return !serverHides || !connection || connection->isLost();
}

void X11Cursor::forceShowCursor() {
    QMutexLocker lock(&mutex);
    hideCount = 0;
    applyCount();
}

std::unique_ptr<EventTapChannel> X11Cursor::openEventTapChannel(CGEventMask eventsOfInterest) {
    return X11EventTapChannel::open(eventsOfInterest);
}

void X11Cursor::applyCount() {
    if (connection && connection->isLost()) {
        connection.reset();
        serverHides = false;
    }
    if (hideCount > 0 && !serverHides) {
        if (!connection) {
            connection = X11Connection::open();
            if (connection && !connection->supportsCursorHiding())
                connection.reset();
            if (!connection)
                return;
        }
        XFixesHideCursor(connection->display(), DefaultRootWindow(connection->display()));
        XFlush(connection->display());
        serverHides = true;
    } else if (hideCount == 0 && serverHides) {
        XFixesShowCursor(connection->display(), DefaultRootWindow(connection->display()));
        XFlush(connection->display());
        serverHides = false;
    }
}

bool X11Cursor::serverHoldsHide() {
    QMutexLocker lock(&mutex);
    if (!connection || connection->isLost())
        return false;
    Display* display = connection->display();
    refused += connection->syncAndTakeErrors();
    XFixesShowCursor(display, DefaultRootWindow(display));
    if (connection->syncAndTakeErrors() > 0)
        return false;
    XFixesHideCursor(display, DefaultRootWindow(display));
    connection->syncAndTakeErrors();
    return true;
}

int X11Cursor::refusedRequests() {
    QMutexLocker lock(&mutex);
    return refused;
}
