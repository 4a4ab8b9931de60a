#pragma once

// The live desktop as the X window server sees it: the top-level windows in stacking order, the
// screens and the pointer. The accessibility bus knows elements but not which window lies over
// which; this is the other half of the window server's view.
//
// Windows are the clients that applications create and own (the ones carrying _NET_WM_PID), not
// the frames that a window manager wraps around them, so a window's frame is the area that its
// application draws and reports over the accessibility bus, without decorations or X border.
// Mapped override-redirect windows (menus, tooltips, drag icons) are listed at their place in
// the stacking order: they are on screen and cover what lies below them. Unmapped ones are left
// out, as toolkits keep many of them around for reuse.
//
// A window is on screen when it is viewable and neither iconic (WM_STATE) nor hidden
// (_NET_WM_STATE_HIDDEN). Windows and the pointer are those of the display's default screen.
//
// Not thread-safe: an instance is one Xlib connection, and its queries install Xlib's
// process-wide error and I/O error handlers for their duration. Callers serialize all use of all
// instances.

#include "ax/AccessibilityProvider.h"

#include <QList>
#include <QString>

#include <memory>

struct _XDisplay;

class X11Desktop {
public:
    // Null when no X display can be reached ($DISPLAY unset, no server listening).
    static std::unique_ptr<X11Desktop> open(const QString& displayName = {});
    ~X11Desktop();
    X11Desktop(const X11Desktop&) = delete;
    X11Desktop& operator=(const X11Desktop&) = delete;

    // Frontmost first. A window that vanishes while it is being read is left out.
    QList<WindowInfo> windows();
    // One per X screen, in the X screen order.
    QList<ScreenInfo> screens();
    CGPoint mousePosition();

    // False once the connection to the server has broken; every query then answers empty.
    bool isConnected() const { return !lost; }

private:
    struct Atoms;
    using XWindow = unsigned long;

    explicit X11Desktop(_XDisplay* display);

    QList<XWindow> stackingOrder();
    XWindow clientOf(XWindow topLevel);
    XWindow topLevelOf(XWindow window);
    bool describe(XWindow window, WindowInfo* info);
    QString title(XWindow window);
    bool isIconic(XWindow window);

    _XDisplay* display;
    std::unique_ptr<Atoms> atoms;
    bool lost = false;
};
