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
// out, as toolkits keep many of them around for reuse, and so is the window manager's check
// window, which some managers map out of sight.
//
// A window is on screen when it is viewable and neither iconic (WM_STATE) nor hidden
// (_NET_WM_STATE_HIDDEN). Windows and the pointer are those of the display's default screen.
//
// Not thread-safe: an instance is one Xlib connection, and its queries install Xlib's
// process-wide error and I/O error handlers for their duration. Callers serialize all use of all
// instances.

#include "ax/AccessibilityProvider.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

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
    // The owners of windows(), in the same order (0 for a window that tells none). Kept from one
    // call to the next while the root's children and properties stay as they were, so that a
    // caller asking many times a second costs the server nothing while nothing changes.
    QList<pid_t> windowOwners();
    // The RandR monitors of the default screen (name, frame, physical size in millimetres, 0 when
    // the monitor reports none), the primary one first; one per X screen, named after the display,
    // when the server has no monitors. In device pixels: the scale is 1.
    QList<ScreenInfo> screens();
    // The top strut of the current desktop's work area that the window manager publishes
    // (_NET_WORKAREA): what panels at the top of the screen take. 0 without one.
    int workAreaTop();
    CGPoint mousePosition();

    // Whether a window manager that follows the EWMH standard runs: the root window's
    // _NET_SUPPORTING_WM_CHECK names a live window that names itself.
    bool hasWindowManager();
    // The process of the window that a running manager names active (_NET_ACTIVE_WINDOW); 0 when
    // it names none or its window tells no process (_NET_WM_PID). Nullopt when no manager runs:
    // then nobody says which window is active.
    std::optional<pid_t> activeWindowOwner();

    // Calls `changed`, from the calling thread's event loop, whenever one of these properties of
    // the root window changes, read over a connection of its own that lives as long as the
    // returned object. Null when no X display can be reached. The thread must run an event loop.
    static std::unique_ptr<QObject> watchRootProperties(const QStringList& properties,
                                                        std::function<void()> changed);

    // Acting on a window (an id of windows()). Through the window manager's standard messages
    // when one runs, else directly on the window with plain X11. False when the window is
    // unknown or the request could not be made; the window manager may still carry it out later.
    // Raises the window and gives it the input focus.
    bool activate(CGWindowID window);
    // Iconifies (without a manager: unmaps), or maps and activates again.
    bool setMinimized(CGWindowID window, bool minimized);
    // Maximized both ways by a running manager.
    bool isMaximized(CGWindowID window);
    // False without a manager.
    bool setMaximized(CGWindowID window, bool maximized);
    // Asks the window to close, as its title bar's close button would. False for a window that
    // does not take WM_DELETE_WINDOW: it cannot be asked, only killed with its whole client.
    bool close(CGWindowID window);

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
    // _NET_WM_PID; 0 when the window tells none.
    pid_t ownerOf(XWindow window);
    QString title(XWindow window);
    bool isIconic(XWindow window);
    QList<unsigned long> atomList(XWindow window, unsigned long name);
    QList<ScreenInfo> monitors();
    QList<ScreenInfo> rootScreens();
    XWindow managerCheckWindow();
    bool act(CGWindowID id, const std::function<bool(XWindow window, bool managed)>& requests);
    // Reads the root's events: when any window was created, destroyed, mapped, unmapped, moved or
    // restacked at the top, or a root property changed (a manager's client lists, its active
    // window) since the last call, the answers kept from the root are dropped.
    void readRootEvents();

    _XDisplay* display;
    std::unique_ptr<Atoms> atoms;
    bool lost = false;
    // Kept while the root has not changed: the owners of the last windows(), and the last
    // activeWindowOwner() (nullopt inside: no manager).
    std::optional<QList<pid_t>> owners;
    std::optional<std::optional<pid_t>> activeOwner;
};
