#include "X11KeyboardTaps.h"

#include "X11Connection.h"
#include "X11Modifiers.h"
#include "keyboard/XkbLayouts.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

namespace {

// X key codes are evdev codes plus 8.
constexpr int kXKeyCodeOffset = 8;

// A passive grab of every key on the root window, the keyboard frozen at each press.
bool grabAllKeys(X11Connection& connection) {
    Display* display = connection.display();
    connection.syncAndTakeErrors();
    XGrabKey(display, AnyKey, AnyModifier, DefaultRootWindow(display), False, GrabModeAsync, GrabModeSync);
    // Another client's grab of any key there fails the whole request (BadAccess).
    return connection.syncAndTakeErrors() == 0;
}

void ungrabAllKeys(X11Connection& connection) {
    Display* display = connection.display();
    XUngrabKey(display, AnyKey, AnyModifier, DefaultRootWindow(display));
    // A grab that a press activated lasts until the key's release; it ends now, and a frozen
    // keyboard thaws with it.
    XUngrabKeyboard(display, CurrentTime);
    connection.syncAndTakeErrors();
}

// Whether this client could take the keyboard now: no other client grabs it, actively or with a
// passive grab of a key on the root window.
bool keyboardCanBeGrabbed(X11Connection& connection) {
    Display* display = connection.display();
    if (XGrabKeyboard(display, DefaultRootWindow(display), False, GrabModeAsync, GrabModeAsync,
                      CurrentTime) != GrabSuccess)
        return false;
    XUngrabKeyboard(display, CurrentTime);
    if (!grabAllKeys(connection))
        return false;
    ungrabAllKeys(connection);
    return true;
}

QSet<int> modifierKeyCodesOf(Display* display) {
    QSet<int> codes;
    XModifierKeymap* map = XGetModifierMapping(display);
    if (!map)
        return codes;
    for (int i = 0; i < 8 * map->max_keypermod; ++i)
        if (map->modifiermap[i] != 0)
            codes.insert(map->modifiermap[i]);
    XFreeModifiermap(map);
    return codes;
}

} // namespace

std::unique_ptr<X11KeyboardTapChannel> X11KeyboardTapChannel::open(CGEventMask, bool active) {
    std::unique_ptr<X11Connection> connection = X11Connection::open();
    if (!connection)
        return nullptr;
    const std::optional<int> inputOpcode = xinputOpcode(*connection);
    int xkbOpcode = 0;
    int xkbEventBase = 0;
    int xkbErrorBase = 0;
    int major = XkbMajorVersion;
    int minor = XkbMinorVersion;
    if (!inputOpcode ||
        !XkbQueryExtension(connection->display(), &xkbOpcode, &xkbEventBase, &xkbErrorBase, &major, &minor))
        return nullptr;
    if (active && !keyboardCanBeGrabbed(*connection))
        return nullptr;
    return std::unique_ptr<X11KeyboardTapChannel>(
        new X11KeyboardTapChannel(std::move(connection), *inputOpcode, xkbEventBase, active));
}

X11KeyboardTapChannel::X11KeyboardTapChannel(std::unique_ptr<X11Connection> connection, int inputOpcode,
                                             int xkbEventBase, bool active)
    : connection(std::move(connection)), inputOpcode(inputOpcode), xkbEventBase(xkbEventBase), active(active),
      xtestDevices(*this->connection) {}

X11KeyboardTapChannel::~X11KeyboardTapChannel() {
    if (!connection->isLost() && enabled && active)
        ungrabAllKeys(*connection);
}

int X11KeyboardTapChannel::socket() const {
    return connection->isLost() ? -1 : ConnectionNumber(connection->display());
}

void X11KeyboardTapChannel::setEnabled(bool enable) {
    const bool wasEnabled = enabled;
    enabled = enable;
    if (connection->isLost())
        return;
    Display* display = connection->display();
    unsigned char rawBits[XIMaskLen(XI_LASTEVENT)] = {};
    unsigned char hierarchyBits[XIMaskLen(XI_LASTEVENT)] = {};
    if (enabled) {
        XISetMask(rawBits, XI_RawKeyPress);
        XISetMask(rawBits, XI_RawKeyRelease);
        XISetMask(hierarchyBits, XI_HierarchyChanged);
        modifierKeyCodes = modifierKeyCodesOf(display);
    }
    XIEventMask masks[] = {{XIAllMasterDevices, int(sizeof rawBits), rawBits},
                           {XIAllDevices, int(sizeof hierarchyBits), hierarchyBits}};
    XISelectEvents(display, DefaultRootWindow(display), masks, 2);
    if (active) {
        if (enabled && !wasEnabled)
            grabAllKeys(*connection);
        else if (!enabled && wasEnabled) {
            ungrabAllKeys(*connection);
            keptGrabKeyCode = 0;
        }
    } else {
        const unsigned long details = enabled ? XkbModifierStateMask : 0;
        XkbSelectEventDetails(display, XkbUseCoreKbd, XkbStateNotify, XkbModifierStateMask, details);
    }
    connection->syncAndTakeErrors();
}

QList<EventTapChannel::Event> X11KeyboardTapChannel::readPending() {
    QList<Event> events;
    Display* display = connection->display();
    // Until Xlib's queue is empty too, as replies may have brought events that the socket does not
    // announce again.
    while (!connection->isLost() && XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type == GenericEvent) {
            XGenericEventCookie* cookie = &event.xcookie;
            if (cookie->extension != inputOpcode || !XGetEventData(display, cookie))
                continue;
            if (cookie->evtype == XI_HierarchyChanged) {
                xtestDevices.clear();
            } else if (cookie->evtype == XI_RawKeyPress || cookie->evtype == XI_RawKeyRelease) {
                const auto* raw = static_cast<const XIRawEvent*>(cookie->data);
                sourceByKeyCode.insert(raw->detail, raw->sourceid);
            }
            XFreeEventData(display, cookie);
        } else if (event.type == KeyPress || event.type == KeyRelease) {
            // Every key event of the grab is answered, also while the tap is off.
            if (const std::optional<Event> keyed =
                    keyEvent(int(event.xkey.keycode), event.xkey.state, event.type == KeyPress))
                events.append(*keyed);
        } else if (event.type == MappingNotify) {
            XRefreshKeyboardMapping(&event.xmapping);
            modifierKeyCodes = modifierKeyCodesOf(display);
        } else if (event.type == xkbEventBase && enabled) {
            const auto& xkb = reinterpret_cast<const XkbEvent&>(event);
            if (xkb.any.xkb_type == XkbStateNotify && (xkb.state.changed & XkbModifierStateMask))
                events.append({kCGEventFlagsChanged, sourceOf(xkb.state.keycode), 0,
                               CGEventFlagsFromX11ModifierState(display, xkb.state.mods)});
        }
    }
    return events;
}

bool X11KeyboardTapChannel::hasQueuedEvents() {
    return !connection->isLost() && QLength(connection->display()) > 0;
}

std::optional<EventTapChannel::Event> X11KeyboardTapChannel::keyEvent(int xKeyCode, unsigned int state,
                                                                      bool press) {
    if (!active)
        return std::nullopt;
    unanswered.append({xKeyCode, press});
    const int virtualKeyCode = virtualKeyCodeForEvdevKeyCode(xKeyCode - kXKeyCodeOffset);
    CGEventType type = press ? kCGEventKeyDown : kCGEventKeyUp;
    if (modifierKeyCodes.contains(xKeyCode))
        type = kCGEventFlagsChanged;
    else if (virtualKeyCode < 0)
        type = kCGEventNull;
    return Event{type, sourceOf(xKeyCode), virtualKeyCode,
                 CGEventFlagsFromX11ModifierState(connection->display(), state)};
}

CGEventSourceStateID X11KeyboardTapChannel::sourceOf(int xKeyCode) {
    const auto source = sourceByKeyCode.constFind(xKeyCode);
    return source != sourceByKeyCode.cend() && xtestDevices.contains(*source)
               ? kCGEventSourceStatePrivate
               : kCGEventSourceStateHIDSystemState;
}

void X11KeyboardTapChannel::answer(const Event&, bool passOn) {
    if (!active || unanswered.isEmpty())
        return;
    const auto [xKeyCode, press] = unanswered.takeFirst();
    if (!press) {
        if (xKeyCode == keptGrabKeyCode)
            keptGrabKeyCode = 0;
        return;
    }
    // A press within a kept grab came without freezing the keyboard and cannot be replayed.
    if (keptGrabKeyCode != 0 || connection->isLost())
        return;
    if (!passOn)
        keptGrabKeyCode = xKeyCode;
    XAllowEvents(connection->display(), passOn ? ReplayKeyboard : AsyncKeyboard, CurrentTime);
    // The events that the thaw lets through come before the reply, into Xlib's queue, where the
    // tap reads them next (hasQueuedEvents()).
    connection->syncAndTakeErrors();
}

std::unique_ptr<EventTapChannel> X11KeyboardTapPlatform::openEventTapChannel(CGEventMask eventsOfInterest,
                                                                             bool active) {
    return X11KeyboardTapChannel::open(eventsOfInterest, active);
}
