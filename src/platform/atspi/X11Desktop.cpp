#include "X11Desktop.h"

#include <QByteArray>
#include <QHash>
#include <QSocketNotifier>

// Xlib defines macros (None, Bool, Status...) that collide with Qt's names: after every Qt header.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xrandr.h>

#include <algorithm>
#include <climits>
#include <initializer_list>

namespace {

// The source indication of the window manager's messages: a pager or other tool acting for the
// user, which managers obey without their focus stealing prevention.
constexpr long kSourceTool = 2;

// XGetWindowProperty counts in 32-bit units; this asks for any property whole.
constexpr long kWholeProperty = 0x1fffffff;
// Window managers put a client at most a few levels below its frame.
constexpr int kClientSearchDepth = 4;

// Xlib's default handlers end the process: the error handler when a window vanishes between
// being listed and being read, the I/O error handler when the server goes away. While a trap is
// set, errors on its connection are counted, and a broken connection goes on to the connection's
// exit handler (see the constructor); other connections keep the handlers they had. Every request
// made here waits for its reply, so its error has arrived when it returns.
class ErrorTrap {
public:
    explicit ErrorTrap(Display* display) : display(display) {
        active = this;
        previous = XSetErrorHandler(&ErrorTrap::handleError);
        previousIO = XSetIOErrorHandler(&ErrorTrap::handleIOError);
    }
    ~ErrorTrap() {
        XSetIOErrorHandler(previousIO);
        XSetErrorHandler(previous);
        active = nullptr;
    }
    ErrorTrap(const ErrorTrap&) = delete;
    ErrorTrap& operator=(const ErrorTrap&) = delete;

    int errors() const { return count; }

private:
    static int handleError(Display* display, XErrorEvent* event) {
        if (display == active->display) {
            ++active->count;
            return 0;
        }
        return active->previous ? active->previous(display, event) : 0;
    }
    static int handleIOError(Display* display) {
        return display == active->display || !active->previousIO ? 0 : active->previousIO(display);
    }

    static ErrorTrap* active;
    Display* display;
    XErrorHandler previous = nullptr;
    XIOErrorHandler previousIO = nullptr;
    int count = 0;
};

ErrorTrap* ErrorTrap::active = nullptr;

struct Property {
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned char* data = nullptr;

    Property() = default;
    Property(const Property&) = delete;
    Property& operator=(const Property&) = delete;
    ~Property() {
        if (data)
            XFree(data);
    }
    // Xlib hands 32-bit items over as longs.
    const long* items() const { return reinterpret_cast<const long*>(data); }
    bool hasItems(Atom wanted) const { return type == wanted && format == 32 && count > 0; }
    QByteArray bytes() const { return QByteArray(reinterpret_cast<const char*>(data), int(count)); }
};

bool readProperty(Display* display, Window window, Atom name, Property* property) {
    unsigned long bytesAfter = 0;
    return XGetWindowProperty(display, window, name, 0, kWholeProperty, False, AnyPropertyType,
                              &property->type, &property->format, &property->count, &bytesAfter,
                              &property->data) == Success &&
           property->type != None;
}

// The window that a property of type WINDOW names; None when there is none.
Window windowIn(Display* display, Window window, Atom name) {
    Property property;
    return readProperty(display, window, name, &property) && property.hasItems(XA_WINDOW)
               ? Window(property.items()[0])
               : None;
}

bool queryTree(Display* display, Window window, Window* parent, QList<Window>* children) {
    Window root = None;
    Window* list = nullptr;
    unsigned int count = 0;
    if (!XQueryTree(display, window, &root, parent, &list, &count))
        return false;
    if (children)
        *children = QList<Window>(list, list + count);
    if (list)
        XFree(list);
    return true;
}

// A client message about a window: to the root for the window manager (EWMH), or to the window
// itself for the client that made it (ICCCM).
bool sendMessage(Display* display, Window destination, long eventMask, Window about, Atom type,
                 std::initializer_list<long> data) {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = about;
    event.xclient.message_type = type;
    event.xclient.format = 32;
    std::copy(data.begin(), data.end(), event.xclient.data.l);
    return XSendEvent(display, destination, False, eventMask, &event) != 0;
}

bool sendToWindowManager(Display* display, Window about, Atom type, std::initializer_list<long> data) {
    return sendMessage(display, DefaultRootWindow(display), SubstructureRedirectMask | SubstructureNotifyMask,
                       about, type, data);
}

struct Ranked {
    Window window;
    int rank; // the place of its top-level among the root's children, bottom to top
};

} // namespace

struct X11Desktop::Atoms {
    explicit Atoms(Display* display) : display(display) {}
    Display* display;
    Atom intern(const char* name) const { return XInternAtom(display, name, False); }

    const Atom wmState = intern("WM_STATE");
    const Atom netWmPid = intern("_NET_WM_PID");
    const Atom netWmName = intern("_NET_WM_NAME");
    const Atom utf8String = intern("UTF8_STRING");
    const Atom netClientListStacking = intern("_NET_CLIENT_LIST_STACKING");
    const Atom netSupportingWmCheck = intern("_NET_SUPPORTING_WM_CHECK");
    const Atom netWmState = intern("_NET_WM_STATE");
    const Atom netWmStateHidden = intern("_NET_WM_STATE_HIDDEN");
    const Atom netWmStateMaximizedVert = intern("_NET_WM_STATE_MAXIMIZED_VERT");
    const Atom netWmStateMaximizedHorz = intern("_NET_WM_STATE_MAXIMIZED_HORZ");
    const Atom netActiveWindow = intern("_NET_ACTIVE_WINDOW");
    const Atom netCloseWindow = intern("_NET_CLOSE_WINDOW");
    const Atom wmProtocols = intern("WM_PROTOCOLS");
    const Atom wmDeleteWindow = intern("WM_DELETE_WINDOW");
    const Atom netWorkarea = intern("_NET_WORKAREA");
    const Atom netCurrentDesktop = intern("_NET_CURRENT_DESKTOP");
};

std::unique_ptr<X11Desktop> X11Desktop::open(const QString& displayName) {
    const QByteArray name = displayName.toLocal8Bit();
    Display* display = XOpenDisplay(name.isEmpty() ? nullptr : name.constData());
    if (!display)
        return nullptr;
    return std::unique_ptr<X11Desktop>(new X11Desktop(display));
}

X11Desktop::X11Desktop(Display* display) : display(display) {
    // Called when the connection breaks, instead of exit().
    XSetIOErrorExitHandler(
        display, [](Display*, void* desktop) { static_cast<X11Desktop*>(desktop)->lost = true; }, this);
    ErrorTrap trap(display);
    atoms = std::make_unique<Atoms>(display);
    // Only for readRootEvents(): nothing else reads events on this connection.
    XSelectInput(display, DefaultRootWindow(display), SubstructureNotifyMask | PropertyChangeMask);
}

X11Desktop::~X11Desktop() {
    ErrorTrap trap(display);
    XCloseDisplay(display);
}

QList<WindowInfo> X11Desktop::windows() {
    owners.reset();
    if (lost)
        return {};
    ErrorTrap trap(display);
    readRootEvents(); // what changes from here on is seen by the next call
    const QList<XWindow> order = stackingOrder();
    QList<WindowInfo> result;
    QList<pid_t> windowOwners;
    for (auto window = order.crbegin(); window != order.crend(); ++window) {
        const int errorsBefore = trap.errors();
        WindowInfo info;
        if (describe(*window, &info) && trap.errors() == errorsBefore) {
            result.append(info);
            windowOwners.append(info.owner);
        }
    }
    if (lost)
        return {};
    owners = std::move(windowOwners);
    return result;
}

QList<pid_t> X11Desktop::windowOwners() {
    {
        ErrorTrap trap(display);
        readRootEvents();
    }
    if (!owners)
        windows();
    return lost ? QList<pid_t>() : owners.value_or(QList<pid_t>());
}

// Under an ErrorTrap: reading events finds a server that has gone away. One round trip first, so
// that every change the server made before this call has sent its event.
void X11Desktop::readRootEvents() {
    if (!lost)
        XSync(display, False);
    bool changed = false;
    while (!lost && XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        changed = true;
    }
    if (changed) {
        owners.reset();
        activeOwner.reset();
    }
}

// Bottom to top. The root's children are the true stacking order, but with a window manager
// they are its frames and helper windows; its _NET_CLIENT_LIST_STACKING names the clients. The
// override-redirect windows, which no manager lists, are placed among the clients by the
// position of the clients' frames.
QList<X11Desktop::XWindow> X11Desktop::stackingOrder() {
    const Window root = DefaultRootWindow(display);
    const Window check = managerCheckWindow();
    Property clients;
    const bool managed = check != None &&
                         readProperty(display, root, atoms->netClientListStacking, &clients) &&
                         clients.type == XA_WINDOW && clients.format == 32;

    Window parent = None;
    QList<Window> topLevels;
    if (!queryTree(display, root, &parent, &topLevels))
        return {};
    QList<Ranked> applicationWindows, popups;
    QHash<Window, int> rankOf;
    for (int rank = 0; rank < topLevels.size(); ++rank) {
        const Window topLevel = topLevels[rank];
        rankOf.insert(topLevel, rank);
        if (topLevel == check)
            continue; // some managers map it, out of sight
        XWindowAttributes attributes;
        if (!XGetWindowAttributes(display, topLevel, &attributes) || attributes.c_class == InputOnly)
            continue;
        if (attributes.override_redirect) {
            if (attributes.map_state == IsViewable)
                popups.append({topLevel, rank});
        } else if (!managed) {
            applicationWindows.append({clientOf(topLevel), rank});
        }
    }
    for (unsigned long i = 0; managed && i < clients.count; ++i) {
        const Window client = Window(clients.items()[i]);
        const Window topLevel = topLevelOf(client);
        if (topLevel == None)
            continue; // gone
        // Inside a virtual root: keep the manager's order.
        const int previous = applicationWindows.isEmpty() ? -1 : applicationWindows.last().rank;
        applicationWindows.append({client, rankOf.value(topLevel, previous)});
    }

    QList<XWindow> order;
    int a = 0, p = 0;
    while (a < applicationWindows.size() || p < popups.size()) {
        if (p < popups.size() &&
            (a == applicationWindows.size() || popups[p].rank < applicationWindows[a].rank))
            order.append(popups[p++].window);
        else
            order.append(applicationWindows[a++].window);
    }
    return order;
}

// The window that carries WM_STATE: the top-level itself, or one below it when a manager has
// put the client into a frame; the top-level itself when none does (no manager).
X11Desktop::XWindow X11Desktop::clientOf(XWindow topLevel) {
    QList<Window> level{topLevel};
    for (int depth = 0; depth <= kClientSearchDepth && !level.isEmpty(); ++depth) {
        QList<Window> below;
        for (Window window : level) {
            Property state;
            if (readProperty(display, window, atoms->wmState, &state))
                return window;
            Window parent = None;
            QList<Window> children;
            if (queryTree(display, window, &parent, &children))
                below += children;
        }
        level = below;
    }
    return topLevel;
}

// The root's child that holds the window; None when the window is gone.
X11Desktop::XWindow X11Desktop::topLevelOf(XWindow window) {
    const Window root = DefaultRootWindow(display);
    for (;;) {
        Window parent = None;
        if (!queryTree(display, window, &parent, nullptr))
            return None;
        if (parent == root || parent == None)
            return window;
        window = parent;
    }
}

bool X11Desktop::describe(XWindow window, WindowInfo* info) {
    XWindowAttributes attributes;
    Window child = None;
    int x = 0, y = 0;
    if (!XGetWindowAttributes(display, window, &attributes) ||
        !XTranslateCoordinates(display, window, attributes.root, 0, 0, &x, &y, &child))
        return false;
    info->id = CGWindowID(window);
    info->frame = CGRectMake(x, y, attributes.width, attributes.height);
    info->onScreen = attributes.map_state == IsViewable && !isIconic(window);
    info->title = title(window);
    info->owner = ownerOf(window);
    return true;
}

pid_t X11Desktop::ownerOf(XWindow window) {
    Property pid;
    const unsigned long owner =
        readProperty(display, window, atoms->netWmPid, &pid) && pid.hasItems(XA_CARDINAL)
            ? static_cast<unsigned long>(pid.items()[0])
            : 0;
    return owner <= INT_MAX ? pid_t(owner) : 0;
}

// _NET_WM_NAME is UTF-8 by definition; WM_NAME is Latin-1, UTF-8 or compound text.
QString X11Desktop::title(XWindow window) {
    const Atom utf8 = atoms->utf8String;
    Property name;
    if (readProperty(display, window, atoms->netWmName, &name) && name.type == utf8 && name.format == 8)
        return QString::fromUtf8(name.bytes());
    Property legacy;
    if (!readProperty(display, window, XA_WM_NAME, &legacy) || legacy.format != 8)
        return {};
    if (legacy.type == utf8)
        return QString::fromUtf8(legacy.bytes());
    if (legacy.type == XA_STRING)
        return QString::fromLatin1(legacy.bytes());
    XTextProperty text{legacy.data, legacy.type, legacy.format, legacy.count};
    char** list = nullptr;
    int count = 0;
    QString decoded;
    if (Xutf8TextPropertyToTextList(display, &text, &list, &count) >= Success && count > 0)
        decoded = QString::fromUtf8(list[0]);
    if (list)
        XFreeStringList(list);
    return decoded;
}

bool X11Desktop::isIconic(XWindow window) {
    Property state;
    if (readProperty(display, window, atoms->wmState, &state) && state.format == 32 && state.count > 0 &&
        state.items()[0] == IconicState)
        return true;
    return atomList(window, atoms->netWmState).contains(atoms->netWmStateHidden);
}

// The atoms of a property that lists them (_NET_WM_STATE, WM_PROTOCOLS); empty when it is not set.
QList<unsigned long> X11Desktop::atomList(XWindow window, unsigned long name) {
    Property list;
    if (!readProperty(display, window, name, &list) || !list.hasItems(XA_ATOM))
        return {};
    return QList<unsigned long>(list.items(), list.items() + list.count);
}

QList<ScreenInfo> X11Desktop::screens() {
    if (lost)
        return {};
    ErrorTrap trap(display);
    QList<ScreenInfo> result = monitors();
    if (result.isEmpty())
        result = rootScreens();
    return lost ? QList<ScreenInfo>() : result;
}

// The RandR monitors of the default screen, the primary one first, then in the server's order.
// Empty when the server has no RandR 1.5 or lists no monitor.
QList<ScreenInfo> X11Desktop::monitors() {
    int eventBase = 0, errorBase = 0, major = 0, minor = 0;
    if (!XRRQueryExtension(display, &eventBase, &errorBase) || !XRRQueryVersion(display, &major, &minor) ||
        major * 100 + minor < 105)
        return {};
    int count = 0;
    XRRMonitorInfo* list = XRRGetMonitors(display, DefaultRootWindow(display), True, &count);
    QList<ScreenInfo> result;
    for (int n = 0; n < count; ++n) {
        const XRRMonitorInfo& monitor = list[n];
        ScreenInfo screen;
        screen.frame = CGRectMake(monitor.x, monitor.y, monitor.width, monitor.height);
        char* name = monitor.name != None ? XGetAtomName(display, monitor.name) : nullptr;
        screen.name = QString::fromUtf8(name);
        if (name)
            XFree(name);
        screen.physicalSize = CGSizeMake(monitor.mwidth, monitor.mheight);
        if (monitor.primary)
            result.prepend(screen);
        else
            result.append(screen);
    }
    if (list)
        XRRFreeMonitors(list);
    return result;
}

// One per X screen, named after the display: a server without RandR monitors.
QList<ScreenInfo> X11Desktop::rootScreens() {
    QList<ScreenInfo> result;
    // The display's name without a screen number: ":1" of ":1.0".
    QString server = QString::fromLocal8Bit(DisplayString(display));
    const int dot = server.indexOf(QLatin1Char('.'), server.lastIndexOf(QLatin1Char(':')));
    if (dot >= 0)
        server.truncate(dot);
    for (int n = 0; !lost && n < ScreenCount(display); ++n) {
        Window root = None;
        int x = 0, y = 0;
        unsigned int width = 0, height = 0, border = 0, depth = 0;
        // Asked each time: the server may have resized the screen since the connection opened.
        if (!XGetGeometry(display, RootWindow(display, n), &root, &x, &y, &width, &height, &border, &depth))
            continue;
        ScreenInfo screen;
        screen.frame = CGRectMake(x, y, width, height);
        screen.name = QStringLiteral("%1.%2").arg(server).arg(n);
        screen.physicalSize = CGSizeMake(DisplayWidthMM(display, n), DisplayHeightMM(display, n));
        result.append(screen);
    }
    return result;
}

int X11Desktop::workAreaTop() {
    if (lost)
        return 0;
    ErrorTrap trap(display);
    const Window root = DefaultRootWindow(display);
    Property current;
    const long desktop =
        readProperty(display, root, atoms->netCurrentDesktop, &current) && current.hasItems(XA_CARDINAL)
            ? current.items()[0]
            : 0;
    Property area; // x, y, width and height for each desktop
    if (lost || !readProperty(display, root, atoms->netWorkarea, &area) || !area.hasItems(XA_CARDINAL) ||
        desktop < 0 || area.count < 4 * (unsigned long)(desktop + 1))
        return 0;
    return int(std::clamp(area.items()[4 * desktop + 1], 0L, long(INT_MAX)));
}

CGPoint X11Desktop::mousePosition() {
    if (lost)
        return CGPointMake(0, 0);
    ErrorTrap trap(display);
    Window root = None, child = None;
    int x = 0, y = 0, windowX = 0, windowY = 0;
    unsigned int buttons = 0;
    // False only when the pointer is on another X screen; its position there is still the answer.
    XQueryPointer(display, DefaultRootWindow(display), &root, &child, &x, &y, &windowX, &windowY, &buttons);
    return lost ? CGPointMake(0, 0) : CGPointMake(x, y);
}

// The window by which a running manager shows itself; None when none runs. A manager that has
// gone leaves its check window's id behind, no longer naming itself.
X11Desktop::XWindow X11Desktop::managerCheckWindow() {
    const Window check = windowIn(display, DefaultRootWindow(display), atoms->netSupportingWmCheck);
    return check != None && windowIn(display, check, atoms->netSupportingWmCheck) == check ? check : None;
}

bool X11Desktop::hasWindowManager() {
    if (lost)
        return false;
    ErrorTrap trap(display);
    const bool runs = managerCheckWindow() != None;
    return runs && !lost;
}

std::optional<pid_t> X11Desktop::activeWindowOwner() {
    if (lost)
        return std::nullopt;
    ErrorTrap trap(display);
    readRootEvents();
    if (activeOwner)
        return *activeOwner;
    if (managerCheckWindow() == None) {
        activeOwner = std::optional<pid_t>();
        return std::nullopt;
    }
    const Window active = windowIn(display, DefaultRootWindow(display), atoms->netActiveWindow);
    const pid_t owner = active != None ? ownerOf(active) : 0;
    if (lost)
        return std::nullopt;
    if (trap.errors() != 0)
        return 0;
    activeOwner = std::optional<pid_t>(owner);
    return owner;
}

namespace {

// Its own connection, on which only the root's property changes arrive, read as the socket has
// data. It makes no request that could fail, so it needs no error trap (which would meet the
// provider's on another thread); a connection that breaks is read no more.
class RootPropertyWatcher : public QObject {
public:
    RootPropertyWatcher(Display* display, QList<Atom> properties, std::function<void()> changed)
        : display(display), properties(std::move(properties)), changed(std::move(changed)),
          notifier(ConnectionNumber(display), QSocketNotifier::Read) {
        XSetIOErrorExitHandler(
            display, [](Display*, void* watcher) { static_cast<RootPropertyWatcher*>(watcher)->lost = true; },
            this);
        XSelectInput(display, DefaultRootWindow(display), PropertyChangeMask);
        XFlush(display);
        connect(&notifier, &QSocketNotifier::activated, this, &RootPropertyWatcher::readEvents);
    }
    ~RootPropertyWatcher() override { XCloseDisplay(display); }

private:
    void readEvents() {
        bool relevant = false;
        while (!lost && XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
            relevant =
                relevant || (event.type == PropertyNotify && properties.contains(event.xproperty.atom));
        }
        if (lost)
            notifier.setEnabled(false);
        if (relevant)
            changed();
    }

    Display* const display;
    bool lost = false;
    const QList<Atom> properties;
    const std::function<void()> changed;
    QSocketNotifier notifier;
};

} // namespace

std::unique_ptr<QObject> X11Desktop::watchRootProperties(const QStringList& properties,
                                                         std::function<void()> changed) {
    Display* display = XOpenDisplay(nullptr);
    if (!display)
        return nullptr;
    QList<Atom> atoms;
    for (const QString& property : properties)
        atoms.append(XInternAtom(display, property.toLatin1().constData(), False));
    return std::make_unique<RootPropertyWatcher>(display, atoms, std::move(changed));
}

// Makes the requests of an action on a window that exists, and returns once the server has
// handled them: a window that vanishes meanwhile fails them, and the result says so.
bool X11Desktop::act(CGWindowID id, const std::function<bool(XWindow window, bool managed)>& requests) {
    if (lost || id == 0)
        return false;
    ErrorTrap trap(display);
    XWindowAttributes attributes;
    if (!XGetWindowAttributes(display, id, &attributes))
        return false;
    const bool managed = managerCheckWindow() != None;
    const int errorsBefore = trap.errors();
    const bool made = requests(id, managed);
    XSync(display, False);
    return made && trap.errors() == errorsBefore && !lost;
}

bool X11Desktop::activate(CGWindowID window) {
    return act(window, [this](XWindow window, bool managed) {
        if (managed)
            return sendToWindowManager(display, window, atoms->netActiveWindow,
                                       {kSourceTool, CurrentTime, None});
        // The window may be nested in a top-level of its own (left behind by a manager).
        const Window topLevel = topLevelOf(window);
        if (topLevel != window)
            XMapWindow(display, window);
        XMapRaised(display, topLevel);
        XSetInputFocus(display, window, RevertToParent, CurrentTime);
        return true;
    });
}

// Without a manager nothing listens to WM_CHANGE_STATE and no window is iconic: unmapped is what
// leaves the screen. Toolkits see an unmap that they did not ask for; GTK then reports the window
// iconified, Qt as no longer exposed.
bool X11Desktop::setMinimized(CGWindowID window, bool minimized) {
    if (!minimized)
        return activate(window);
    return act(window, [this](XWindow window, bool managed) {
        if (managed)
            return XIconifyWindow(display, window, DefaultScreen(display)) != 0;
        XUnmapWindow(display, topLevelOf(window));
        return true;
    });
}

// Without a manager nothing holds a window maximized: a _NET_WM_STATE then is a request that no
// one carried out, or what a manager that has gone left behind.
bool X11Desktop::isMaximized(CGWindowID window) {
    if (lost || window == 0)
        return false;
    ErrorTrap trap(display);
    const QList<unsigned long> state =
        managerCheckWindow() != None ? atomList(window, atoms->netWmState) : QList<unsigned long>();
    return state.contains(atoms->netWmStateMaximizedVert) && state.contains(atoms->netWmStateMaximizedHorz) &&
           !lost;
}

// Refused without a manager: there is no title bar with a zoom button, and a window resized
// behind its application's back could not be told from one that the application sized itself.
bool X11Desktop::setMaximized(CGWindowID window, bool maximized) {
    return act(window, [this, maximized](XWindow window, bool managed) {
        return managed && sendToWindowManager(display, window, atoms->netWmState,
                                              {maximized ? 1 : 0, long(atoms->netWmStateMaximizedVert),
                                               long(atoms->netWmStateMaximizedHorz), kSourceTool});
    });
}

// Only a window that takes WM_DELETE_WINDOW is asked; for any other, a manager's close kills its
// whole client, with every window and what is unsaved in them, and that is refused here.
bool X11Desktop::close(CGWindowID window) {
    return act(window, [this](XWindow window, bool managed) {
        if (!atomList(window, atoms->wmProtocols).contains(atoms->wmDeleteWindow))
            return false;
        if (managed)
            return sendToWindowManager(display, window, atoms->netCloseWindow, {CurrentTime, kSourceTool});
        return sendMessage(display, window, NoEventMask, window, atoms->wmProtocols,
                           {long(atoms->wmDeleteWindow), CurrentTime});
    });
}
