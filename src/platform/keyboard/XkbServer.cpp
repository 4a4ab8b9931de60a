#include "XkbServer.h"

#include <QList>

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon-x11.h>

#include <cstdlib>
#include <cstring>

namespace {

template <class Reply> struct Freed {
    Reply* reply;
    ~Freed() { std::free(reply); }
    Reply* operator->() const { return reply; }
    explicit operator bool() const { return reply != nullptr; }
};

} // namespace

std::unique_ptr<XkbServerConnection> XkbServerConnection::open() {
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return nullptr;
    }
    std::uint8_t eventBase = 0;
    if (!xkb_x11_setup_xkb_extension(connection, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, &eventBase,
                                     nullptr)) {
        xcb_disconnect(connection);
        return nullptr;
    }
    const std::int32_t device = xkb_x11_get_core_keyboard_device_id(connection);
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    if (device < 0 || !screen) {
        xcb_disconnect(connection);
        return nullptr;
    }
    return std::unique_ptr<XkbServerConnection>(
        new XkbServerConnection(connection, eventBase, device, screen->root));
}

XkbServerConnection::XkbServerConnection(xcb_connection_t* connection, std::uint8_t eventBase,
                                         std::int32_t device, std::uint32_t root)
    : xcb(connection), eventBase(eventBase), device(device), root(root) {}

XkbServerConnection::~XkbServerConnection() {
    xcb_disconnect(xcb);
}

std::uint32_t XkbServerConnection::rulesNamesAtom() {
    if (rulesNames)
        return rulesNames;
    static const char name[] = "_XKB_RULES_NAMES";
    Freed<xcb_intern_atom_reply_t> reply{
        xcb_intern_atom_reply(xcb, xcb_intern_atom(xcb, 0, sizeof name - 1, name), nullptr)};
    if (reply)
        rulesNames = reply->atom;
    return rulesNames;
}

// The property holds rules, model, layouts, variants and options, each ended by a NUL; layouts
// and variants are lists by group, separated by commas.
QString XkbServerConnection::layoutName(std::uint32_t group) {
    const std::uint32_t atom = rulesNamesAtom();
    if (!atom)
        return {};
    Freed<xcb_get_property_reply_t> reply{
        xcb_get_property_reply(xcb, xcb_get_property(xcb, 0, root, atom, XCB_ATOM_STRING, 0, 1024), nullptr)};
    if (!reply || reply->format != 8)
        return {};
    const QByteArray value(static_cast<const char*>(xcb_get_property_value(reply.reply)),
                           xcb_get_property_value_length(reply.reply));
    const QList<QByteArray> fields = value.split('\0');
    if (fields.size() < 4)
        return {};
    const QList<QByteArray> layouts = fields[2].split(',');
    const QList<QByteArray> variants = fields[3].split(',');
    if (group >= std::uint32_t(layouts.size()) || layouts[group].isEmpty())
        return {};
    const QByteArray variant = group < std::uint32_t(variants.size()) ? variants[group] : QByteArray();
    return QString::fromUtf8(variant.isEmpty() ? layouts[group] : layouts[group] + '(' + variant + ')');
}

std::optional<XkbServerConnection::Layout> XkbServerConnection::currentLayout() {
    xkb_context* context = xkb_context_new(
        xkb_context_flags(XKB_CONTEXT_NO_DEFAULT_INCLUDES | XKB_CONTEXT_NO_ENVIRONMENT_NAMES));
    if (!context)
        return std::nullopt;
    xkb_context_set_log_level(context, XKB_LOG_LEVEL_CRITICAL);
    xkb_keymap* keymap = xkb_x11_keymap_new_from_device(context, xcb, device, XKB_KEYMAP_COMPILE_NO_FLAGS);
    xkb_state* state = keymap ? xkb_x11_state_new_from_device(keymap, xcb, device) : nullptr;
    std::optional<Layout> layout;
    if (state) {
        layout.emplace();
        layout->group = xkb_state_serialize_layout(state, XKB_STATE_LAYOUT_EFFECTIVE);
        char* text = xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1);
        layout->keymapText = QByteArray(text);
        std::free(text);
        layout->id = layoutName(layout->group);
        if (layout->id.isEmpty())
            layout->id = QString::fromUtf8(xkb_keymap_layout_get_name(keymap, layout->group));
    }
    xkb_state_unref(state);
    xkb_keymap_unref(keymap);
    xkb_context_unref(context);
    return layout;
}

bool XkbServerConnection::isKeyDown(unsigned int xKeyCode) {
    Freed<xcb_query_keymap_reply_t> reply{xcb_query_keymap_reply(xcb, xcb_query_keymap(xcb), nullptr)};
    return reply && xKeyCode < 256 && (reply->keys[xKeyCode / 8] >> (xKeyCode % 8)) & 1;
}
