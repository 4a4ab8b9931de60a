#include "X11Desktop.h"

#include <QByteArray>
#include <QHash>

// Xlib defines macros (None, Bool, Status...) that collide with Qt's names: after every Qt header.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <climits>

namespace {

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
}

X11Desktop::~X11Desktop() {
    ErrorTrap trap(display);
    XCloseDisplay(display);
}

QList<WindowInfo> X11Desktop::windows() {
    if (lost)
        return {};
    ErrorTrap trap(display);
    const QList<XWindow> order = stackingOrder();
    QList<WindowInfo> result;
    for (auto window = order.crbegin(); window != order.crend(); ++window) {
        const int errorsBefore = trap.errors();
        WindowInfo info;
        if (describe(*window, &info) && trap.errors() == errorsBefore)
            result.append(info);
    }
    return lost ? QList<WindowInfo>() : result;
}

// Bottom to top. The root's children are the true stacking order, but with a window manager
// they are its frames and helper windows; its _NET_CLIENT_LIST_STACKING names the clients. The
// override-redirect windows, which no manager lists, are placed among the clients by the
// position of the clients' frames.
QList<X11Desktop::XWindow> X11Desktop::stackingOrder() {
    const Window root = DefaultRootWindow(display);
    // A manager that has gone leaves its check window's id behind, no longer naming itself.
    const Window check = windowIn(display, root, atoms->netSupportingWmCheck);
    Property clients;
    const bool managed = check != None && windowIn(display, check, atoms->netSupportingWmCheck) == check &&
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
    Property pid;
    const unsigned long owner =
        readProperty(display, window, atoms->netWmPid, &pid) && pid.hasItems(XA_CARDINAL)
            ? static_cast<unsigned long>(pid.items()[0])
            : 0;
    info->owner = owner <= INT_MAX ? pid_t(owner) : 0;
    return true;
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
    Property netState;
    if (!readProperty(display, window, atoms->netWmState, &netState) || !netState.hasItems(XA_ATOM))
        return false;
    const long* end = netState.items() + netState.count;
    return std::find(netState.items(), end, long(atoms->netWmStateHidden)) != end;
}

QList<ScreenInfo> X11Desktop::screens() {
    ErrorTrap trap(display);
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
        screen.scale = 1.0;
        screen.name = QStringLiteral("%1.%2").arg(server).arg(n);
        screen.physicalSize = CGSizeMake(DisplayWidthMM(display, n), DisplayHeightMM(display, n));
        result.append(screen);
    }
    return lost ? QList<ScreenInfo>() : result;
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
