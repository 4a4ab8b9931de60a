#pragma once

// A connection of the platform services' own to the X server, apart from Qt's and the accessibility
// provider's. Xlib's default handlers end the process on a failed request or a broken connection;
// here a failed request is counted on its connection and a broken connection marks it lost. Not
// thread-safe: the owner serializes all use of one connection.

#include <atomic>
#include <memory>

struct _XDisplay;

class X11Connection {
public:
    // Null when no X display can be reached ($DISPLAY unset, no server listening).
    static std::unique_ptr<X11Connection> open();
    ~X11Connection();
    X11Connection(const X11Connection&) = delete;
    X11Connection& operator=(const X11Connection&) = delete;

    _XDisplay* display() const { return xDisplay; }
    // The server went away; nothing more can be asked.
    bool isLost() const { return lost; }
    // The server offers what cursor hiding needs of XFixes (version 4).
    bool supportsCursorHiding();
    // Waits until the server has handled every request made so far, and returns how many of them
    // failed since the last call.
    int syncAndTakeErrors();

private:
    explicit X11Connection(_XDisplay* display);

    _XDisplay* const xDisplay;
    std::atomic<bool> lost{false};
    std::atomic<int> errors{0};
};
