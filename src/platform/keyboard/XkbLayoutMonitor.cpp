#include "XkbLayoutMonitor.h"

#include "XkbServer.h"
#include "appkit/NSDistributedNotificationCenter.h"
#include "platformKeyboard.h"

#include <QCoreApplication>
#include <QDebug>
#include <QSocketNotifier>
#include <QThread>

#include <xcb/xcb.h>
// xcb/xkb.h names a field 'explicit', a keyword of C++.
#define explicit xkbExplicit
#include <xcb/xkb.h>
#undef explicit

#include <cstdlib>

namespace {

constexpr std::uint16_t kGroupParts = XCB_XKB_STATE_PART_GROUP_STATE | XCB_XKB_STATE_PART_GROUP_BASE |
                                      XCB_XKB_STATE_PART_GROUP_LATCH | XCB_XKB_STATE_PART_GROUP_LOCK;
constexpr std::uint16_t kMapParts =
    XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS | XCB_XKB_MAP_PART_MODIFIER_MAP;

// Selects the keyboard extension's events of a new keymap and of the group, and the root window's
// property changes, on this client's connection only.
bool selectEvents(XkbServerConnection& server) {
    xcb_connection_t* xcb = server.connection();
    xcb_xkb_select_events_details_t details{};
    details.affectNewKeyboard = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
    details.affectState = kGroupParts;
    details.stateDetails = kGroupParts;
    const std::uint16_t events = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY |
                                 XCB_XKB_EVENT_TYPE_STATE_NOTIFY;
    xcb_generic_error_t* error = xcb_request_check(
        xcb, xcb_xkb_select_events_aux_checked(xcb, xcb_xkb_device_spec_t(server.deviceId()), events, 0, 0,
                                               kMapParts, kMapParts, &details));
    const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_generic_error_t* rootError = xcb_request_check(
        xcb, xcb_change_window_attributes_checked(xcb, server.rootWindow(), XCB_CW_EVENT_MASK, &mask));
    const bool selected = !error && !rootError;
    std::free(error);
    std::free(rootError);
    return selected;
}

} // namespace

XkbLayoutMonitor& XkbLayoutMonitor::instance() {
    // Never destroyed: notifications may be asked for until the process ends.
    static XkbLayoutMonitor* const monitor = new XkbLayoutMonitor;
    return *monitor;
}

XkbLayoutMonitor::~XkbLayoutMonitor() {
    stop();
}

void XkbLayoutMonitor::setWatching(bool watching) {
    QCoreApplication* application = QCoreApplication::instance();
    if (!application) {
        qDebug().noquote()
            << "Note: without an application object, no keyboard layout notifications are posted";
        return;
    }
    if (thread() != application->thread())
        moveToThread(application->thread());
    auto apply = [this, watching] { watching ? start() : stop(); };
    // The first observer is normally added on the main thread, and changes from then on count.
    if (QThread::currentThread() == thread())
        apply();
    else
        QMetaObject::invokeMethod(this, apply, Qt::QueuedConnection);
}

void XkbLayoutMonitor::start() {
    if (server)
        return;
    server = XkbServerConnection::open();
    if (!server) {
        qDebug().noquote()
            << "Note: no X server with a keyboard extension; keyboard layout changes are not seen";
        return;
    }
    rulesNamesAtom = server->rulesNamesAtom();
    if (!selectEvents(*server)) {
        qDebug().noquote()
            << "Note: the X server refused the keyboard events; keyboard layout changes are not seen";
        server.reset();
        return;
    }
    notifier =
        new QSocketNotifier(xcb_get_file_descriptor(server->connection()), QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &XkbLayoutMonitor::readEvents);
    readEvents();
}

void XkbLayoutMonitor::stop() {
    // Maybe called from the notifier's own signal.
    if (notifier) {
        notifier->setEnabled(false);
        notifier->deleteLater();
    }
    notifier = nullptr;
    server.reset();
}

void XkbLayoutMonitor::readEvents() {
    if (!server)
        return;
    xcb_connection_t* xcb = server->connection();
    bool changed = false;
    while (xcb_generic_event_t* event = xcb_poll_for_event(xcb)) {
        const std::uint8_t type = event->response_type & 0x7f;
        if (type == server->firstEvent()) {
            // The keyboard extension's events share one code; the second byte tells them apart.
            const auto* xkbEvent = reinterpret_cast<const xcb_xkb_state_notify_event_t*>(event);
            if (xkbEvent->xkbType == XCB_XKB_STATE_NOTIFY)
                changed |= (xkbEvent->changed & kGroupParts) != 0;
            else if (xkbEvent->xkbType == XCB_XKB_NEW_KEYBOARD_NOTIFY ||
                     xkbEvent->xkbType == XCB_XKB_MAP_NOTIFY)
                changed = true;
        } else if (type == XCB_PROPERTY_NOTIFY) {
            changed |= reinterpret_cast<const xcb_property_notify_event_t*>(event)->atom == rulesNamesAtom;
        }
        std::free(event);
    }
    if (xcb_connection_has_error(xcb)) {
        qDebug().noquote()
            << "Note: the connection to the X server was lost; keyboard layout changes are not seen";
        stop();
    }
    if (changed)
        NSDistributedNotificationCenter::defaultCenter()->postNotification(
            NSNotification{kTISNotifySelectedKeyboardInputSourceChanged, {}});
}
