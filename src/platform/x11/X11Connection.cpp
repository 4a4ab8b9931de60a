#include "X11Connection.h"

#include <QHash>
#include <QRecursiveMutex>

#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>

namespace {

// Recursive: a connection's own closing may report an error to the handler.
QRecursiveMutex registryMutex;
// The error counters of the open connections.
QHash<Display*, std::atomic<int>*> counters;
XErrorHandler previousHandler = nullptr;

int handleError(Display* display, XErrorEvent* event) {
    {
        QMutexLocker lock(&registryMutex);
        if (std::atomic<int>* counter = counters.value(display)) {
            ++*counter;
            return 0;
        }
    }
    return previousHandler ? previousHandler(display, event) : 0;
}

// Xlib has one error handler for the process. Ours goes in front of the default one while the
// program loads, before any thread starts, so that handlers which others set and restore around
// their own requests later keep it behind them; errors on other connections pass on.
const bool errorHandlerInstalled = [] {
    previousHandler = XSetErrorHandler(&handleError);
    return true;
}();

} // namespace

std::unique_ptr<X11Connection> X11Connection::open() {
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        return nullptr;
    return std::unique_ptr<X11Connection>(new X11Connection(display));
}

X11Connection::X11Connection(Display* display) : xDisplay(display) {
    Q_UNUSED(errorHandlerInstalled);
    // Called when the connection breaks, instead of exit().
    XSetIOErrorExitHandler(
        display, [](Display*, void* connection) { static_cast<X11Connection*>(connection)->lost = true; },
        this);
    QMutexLocker lock(&registryMutex);
    counters.insert(display, &errors);
}

X11Connection::~X11Connection() {
    // Until the display is freed, so that no new connection at the same address meets its counter.
    QMutexLocker lock(&registryMutex);
    XCloseDisplay(xDisplay);
    counters.remove(xDisplay);
}

int X11Connection::syncAndTakeErrors() {
    if (!lost)
        XSync(xDisplay, False);
    return errors.exchange(0);
}

bool X11Connection::supportsCursorHiding() {
    int eventBase = 0;
    int errorBase = 0;
    int major = 4;
    int minor = 0;
    return XFixesQueryExtension(xDisplay, &eventBase, &errorBase) &&
           XFixesQueryVersion(xDisplay, &major, &minor) && major >= 4;
}
