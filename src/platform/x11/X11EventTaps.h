#pragma once

// The event taps of cursor hiding on the X server: XInput 2 raw pointer events of all master
// pointers, read on a connection of the tap's own (Xlib may not be shared between threads).
//
// Raw events tell the device that produced them. Those of the XTEST devices, through which
// programs inject input, carry kCGEventSourceStatePrivate; those of real devices
// kCGEventSourceStateHIDSystemState. An XTEST device is one that the server marks with its
// "XTEST Device" property. Motion of XTEST devices is dropped, as only the user's own movement
// may end hiding; clicks of every source are passed on, so that a caller can tell them apart.
// Raw motion does not say whether a button is held, so all of it is kCGEventMouseMoved; the
// wheel's buttons (4 to 7) are not clicks.

#include "platformCursor.h"

#include <QHash>

#include <memory>
#include <optional>

class X11Connection;

// The major opcode of XInput, when the server has XInput 2.1 or later.
std::optional<int> xinputOpcode(X11Connection& connection);

// Which input devices are XTEST devices: the server's answers, kept until clear() (when the
// device hierarchy changes).
class X11XTestDevices {
public:
    explicit X11XTestDevices(X11Connection& connection) : connection(connection) {}
    bool contains(int device);
    void clear() { known.clear(); }

private:
    X11Connection& connection;
    QHash<int, bool> known;
};

class X11EventTapChannel final : public EventTapChannel {
public:
    // Null when no X display can be reached, or the server lacks XInput 2.1 or XFixes 4.
    static std::unique_ptr<X11EventTapChannel> open(CGEventMask eventsOfInterest);
    ~X11EventTapChannel() override;

    // -1 once the server has gone away.
    int socket() const override;
    // Selects the raw events on the server while enabled, and none otherwise; in effect on return.
    void setEnabled(bool enabled) override;
    QList<Event> readPending() override;

    // The tap's event for one raw event (XI_RawMotion, XI_RawButtonPress, XI_RawButtonRelease)
    // with its button and source device; none when the tap does not take it.
    std::optional<Event> eventForRawEvent(int rawEventType, int detail, int sourceDevice);

private:
    X11EventTapChannel(std::unique_ptr<X11Connection> connection, int inputOpcode,
                       CGEventMask eventsOfInterest);

    std::unique_ptr<X11Connection> connection;
    const int inputOpcode;
    const CGEventMask eventsOfInterest;
    bool enabled = false;
    X11XTestDevices xtestDevices;
};
