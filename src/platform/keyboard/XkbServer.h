#pragma once

// A connection of the keyboard services' own to the X server's keyboard extension, through XCB
// (which libxkbcommon-x11 reads keymaps over). XCB connections may be used from any thread, and
// failed requests give errors to their caller, never to a process-wide handler.

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

struct xcb_connection_t;

class XkbServerConnection {
public:
    // Null when no X server can be reached or it has no keyboard extension.
    static std::unique_ptr<XkbServerConnection> open();
    ~XkbServerConnection();
    XkbServerConnection(const XkbServerConnection&) = delete;
    XkbServerConnection& operator=(const XkbServerConnection&) = delete;

    struct Layout {
        // The layout's name as the keymap was chosen by ("de", "fr(azerty)"): the group's entry of
        // the layouts and variants of the root window's _XKB_RULES_NAMES, or else the name in the
        // keymap ("German"). Empty when neither has one.
        QString id;
        QByteArray keymapText;
        std::uint32_t group = 0;
    };
    // The core keyboard's keymap and its effective group now; empty when the server did not answer.
    std::optional<Layout> currentLayout();
    // Whether the key of this X key code is held down now.
    bool isKeyDown(unsigned int xKeyCode);

    xcb_connection_t* connection() const { return xcb; }
    // The event code of the first of the keyboard extension's events.
    std::uint8_t firstEvent() const { return eventBase; }
    std::int32_t deviceId() const { return device; }
    std::uint32_t rootWindow() const { return root; }
    // The atom _XKB_RULES_NAMES.
    std::uint32_t rulesNamesAtom();

private:
    XkbServerConnection(xcb_connection_t* connection, std::uint8_t eventBase, std::int32_t device,
                        std::uint32_t root);
    QString layoutName(std::uint32_t group);

    xcb_connection_t* const xcb;
    const std::uint8_t eventBase;
    const std::int32_t device;
    const std::uint32_t root;
    std::uint32_t rulesNames = 0;
};
