#include "X11EventTaps.h"

#include "X11Connection.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

namespace {

constexpr CGEventMask kMotionEvents =
    CGEventMaskBit(kCGEventMouseMoved) | CGEventMaskBit(kCGEventLeftMouseDragged) |
    CGEventMaskBit(kCGEventRightMouseDragged) | CGEventMaskBit(kCGEventOtherMouseDragged);
constexpr CGEventMask kButtonEvents =
    CGEventMaskBit(kCGEventLeftMouseDown) | CGEventMaskBit(kCGEventLeftMouseUp) |
    CGEventMaskBit(kCGEventRightMouseDown) | CGEventMaskBit(kCGEventRightMouseUp) |
    CGEventMaskBit(kCGEventOtherMouseDown) | CGEventMaskBit(kCGEventOtherMouseUp);

std::optional<CGEventType> buttonEventType(int button, bool down) {
    if (button >= 4 && button <= 7)
        return std::nullopt;
    if (button == Button1)
        return down ? kCGEventLeftMouseDown : kCGEventLeftMouseUp;
    if (button == Button3)
        return down ? kCGEventRightMouseDown : kCGEventRightMouseUp;
    return down ? kCGEventOtherMouseDown : kCGEventOtherMouseUp;
}

} // namespace

std::optional<int> xinputOpcode(X11Connection& connection) {
    int opcode = 0;
    int eventBase = 0;
    int errorBase = 0;
    if (!XQueryExtension(connection.display(), "XInputExtension", &opcode, &eventBase, &errorBase))
        return std::nullopt;
    // From 2.1 on raw events reach the root window while another client grabs the device.
    int major = 2;
    int minor = 2;
    if (XIQueryVersion(connection.display(), &major, &minor) != Success || major < 2 ||
        (major == 2 && minor < 1))
        return std::nullopt;
    return opcode;
}

std::unique_ptr<X11EventTapChannel> X11EventTapChannel::open(CGEventMask eventsOfInterest) {
    std::unique_ptr<X11Connection> connection = X11Connection::open();
    if (!connection || !connection->supportsCursorHiding())
        return nullptr;
    const std::optional<int> opcode = xinputOpcode(*connection);
    if (!opcode)
        return nullptr;
    return std::unique_ptr<X11EventTapChannel>(
        new X11EventTapChannel(std::move(connection), *opcode, eventsOfInterest));
}

X11EventTapChannel::X11EventTapChannel(std::unique_ptr<X11Connection> connection, int inputOpcode,
                                       CGEventMask eventsOfInterest)
    : connection(std::move(connection)), inputOpcode(inputOpcode), eventsOfInterest(eventsOfInterest),
      xtestDevices(*this->connection) {}

X11EventTapChannel::~X11EventTapChannel() = default;

int X11EventTapChannel::socket() const {
    return connection->isLost() ? -1 : ConnectionNumber(connection->display());
}

void X11EventTapChannel::setEnabled(bool enable) {
    enabled = enable;
    if (connection->isLost())
        return;
    unsigned char rawBits[XIMaskLen(XI_LASTEVENT)] = {};
    unsigned char hierarchyBits[XIMaskLen(XI_LASTEVENT)] = {};
    if (enabled) {
        if (eventsOfInterest & kMotionEvents)
            XISetMask(rawBits, XI_RawMotion);
        if (eventsOfInterest & kButtonEvents) {
            XISetMask(rawBits, XI_RawButtonPress);
            XISetMask(rawBits, XI_RawButtonRelease);
        }
        XISetMask(hierarchyBits, XI_HierarchyChanged);
    }
    // Raw events of the master pointers name the slave device that produced them.
    XIEventMask masks[] = {{XIAllMasterDevices, int(sizeof rawBits), rawBits},
                           {XIAllDevices, int(sizeof hierarchyBits), hierarchyBits}};
    XISelectEvents(connection->display(), DefaultRootWindow(connection->display()), masks, 2);
    connection->syncAndTakeErrors();
}

QList<EventTapChannel::Event> X11EventTapChannel::readPending() {
    QList<Event> events;
    Display* display = connection->display();
    // Until Xlib's queue is empty too: a reply awaited below may have brought events with it,
    // which the socket would not announce again.
    while (!connection->isLost() && XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        XGenericEventCookie* cookie = &event.xcookie;
        if (cookie->type != GenericEvent || cookie->extension != inputOpcode ||
            !XGetEventData(display, cookie))
            continue;
        const int type = cookie->evtype;
        int detail = 0;
        int source = 0;
        if (type != XI_HierarchyChanged) {
            const auto* raw = static_cast<const XIRawEvent*>(cookie->data);
            detail = raw->detail;
            source = raw->sourceid;
        }
        XFreeEventData(display, cookie);
        if (type == XI_HierarchyChanged)
            xtestDevices.clear();
        else if (enabled)
            if (const std::optional<Event> tapEvent = eventForRawEvent(type, detail, source))
                events.append(*tapEvent);
    }
    return events;
}

std::optional<EventTapChannel::Event> X11EventTapChannel::eventForRawEvent(int rawEventType, int detail,
                                                                           int sourceDevice) {
    std::optional<CGEventType> type;
    if (rawEventType == XI_RawMotion)
        type = kCGEventMouseMoved;
    else if (rawEventType == XI_RawButtonPress || rawEventType == XI_RawButtonRelease)
        type = buttonEventType(detail, rawEventType == XI_RawButtonPress);
    if (!type || !(eventsOfInterest & CGEventMaskBit(*type)))
        return std::nullopt;
    const bool injected = xtestDevices.contains(sourceDevice);
    if (injected && *type == kCGEventMouseMoved)
        return std::nullopt;
    return Event{*type, injected ? kCGEventSourceStatePrivate : kCGEventSourceStateHIDSystemState};
}

bool X11XTestDevices::contains(int device) {
    const auto found = known.constFind(device);
    if (found != known.cend())
        return *found;
    Display* display = connection.display();
    bool xtest = false;
    const Atom property = XInternAtom(display, "XTEST Device", True);
    if (property != None) {
        Atom type = None;
        int format = 0;
        unsigned long count = 0;
        unsigned long after = 0;
        unsigned char* data = nullptr;
        // A device that is gone meanwhile fails the request (counted, not fatal): not XTEST then.
        if (XIGetProperty(display, device, property, 0, 1, False, AnyPropertyType, &type, &format, &count,
                          &after, &data) == Success &&
            data) {
            xtest = format == 8 && count >= 1 && data[0] != 0;
            XFree(data);
        }
        connection.syncAndTakeErrors();
    }
    known.insert(device, xtest);
    return xtest;
}
