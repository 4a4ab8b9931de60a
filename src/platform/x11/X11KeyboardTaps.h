#pragma once

// The taps of key events on the X server, each on a connection of its own.
//
// The active tap (key down and key up) takes keystrokes away from the other clients with a
// passive grab of every key under every modifier on the root window, keyboard mode synchronous:
// each key press freezes the keyboard and reaches only the tap, until the tap answers. Passed on,
// the press is replayed (XAllowEvents with ReplayKeyboard): the server ends the grab and delivers
// the press, and later its release, as if there had been no grab. Swallowed, the keyboard thaws
// with the grab kept (AsyncKeyboard) until the key is released, so that the release comes to the
// tap too and is swallowed with it. A key pressed while a swallowed key is held reaches the tap
// within that grab and cannot be replayed: it is swallowed whatever the answer. The modifier
// keys are answered on their own as passed on: on the Apple keyboard they give flags-changed
// events, which a tap of key down and key up never sees. Keys without a virtual key code are
// passed on too.
//
// The listening tap (flags changed) reads the keyboard extension's state notifications of the
// modifiers, which come whatever grab another client holds.
//
// Both tell injected input from the user's by XInput 2 raw key events, which name their source
// device: a key of an XTEST device carries kCGEventSourceStatePrivate, any other
// kCGEventSourceStateHIDSystemState.
//
// The grab is the X server's, so whether another client's grab stands in the way is known when
// the active tap is made: its channel is not opened while another client grabs the keyboard, or
// holds a passive grab of any key on the root window. A grab made later, while the tap exists,
// goes unnoticed until the tap is enabled; the grab of the tap then fails silently and the tap
// sees nothing.

#include "platformEvents.h"

#include <QHash>
#include <QList>
#include <QPair>
#include <QSet>

#include <memory>
#include <optional>

#include "X11EventTaps.h"

class X11Connection;

class X11KeyboardTapChannel final : public EventTapChannel {
public:
    // Null when no X display can be reached, the server lacks XInput 2.1 or the keyboard
    // extension, or (active) another client grabs the keyboard.
    static std::unique_ptr<X11KeyboardTapChannel> open(CGEventMask eventsOfInterest, bool active);
    ~X11KeyboardTapChannel() override;

    int socket() const override;
    // Grabs (active) or selects the notifications while enabled, and neither otherwise.
    void setEnabled(bool enabled) override;
    QList<Event> readPending() override;
    // Events in Xlib's queue, read with the replies to its own requests.
    bool hasQueuedEvents() override;
    // Thaws the keyboard after a key press: replayed to the applications, or kept.
    void answer(const Event& event, bool passOn) override;

private:
    X11KeyboardTapChannel(std::unique_ptr<X11Connection> connection, int inputOpcode, int xkbEventBase,
                          bool active);
    CGEventSourceStateID sourceOf(int xKeyCode);
    std::optional<Event> keyEvent(int xKeyCode, unsigned int state, bool press);

    std::unique_ptr<X11Connection> connection;
    const int inputOpcode;
    const int xkbEventBase;
    const bool active;
    bool enabled = false;
    X11XTestDevices xtestDevices;
    // The source device of the last raw event of each X key code.
    QHash<int, int> sourceByKeyCode;
    // The X key codes of the modifier keys, as mapped when the tap was last enabled.
    QSet<int> modifierKeyCodes;
    // The key events given out and not yet answered, oldest first: X key code, press.
    QList<QPair<int, bool>> unanswered;
    // The key whose press activated the grab that is kept, until its release ends it; 0 for none.
    // Only a press outside such a grab froze the keyboard and can be replayed.
    int keptGrabKeyCode = 0;
};

class X11KeyboardTapPlatform final : public KeyboardTapPlatform {
public:
    std::unique_ptr<EventTapChannel> openEventTapChannel(CGEventMask eventsOfInterest, bool active) override;
};
