#include "Logind.h"

#include <unistd.h>

namespace {

constexpr char kService[] = "org.freedesktop.login1";
constexpr char kManagerPath[] = "/org/freedesktop/login1";
constexpr char kManager[] = "org.freedesktop.login1.Manager";
constexpr char kSession[] = "org.freedesktop.login1.Session";
constexpr char kSeat[] = "org.freedesktop.login1.Seat";
constexpr char kSeat0Path[] = "/org/freedesktop/login1/seat/seat0";
// How long the watch waits for the bus before it looks whether it is to stop.
constexpr int kWatchSliceMs = 100;

std::optional<bool> sessionProperty(DBusConnection* connection, const QByteArray& path,
                                    const char* property) {
    const DBusMessagePtr reply =
        getDBusProperty(connection, kService, path.constData(), kSession, property, logindTimeoutMs);
    return replyBoolean(reply.get());
}

// The object of this process's session; empty when logind knows none.
QByteArray ownSessionPath(DBusConnection* connection) {
    DBusMessagePtr reply;
    const QByteArray id = qgetenv("XDG_SESSION_ID");
    if (!id.isEmpty()) {
        const char* idText = id.constData();
        reply = callDBusMethod(connection, kService, kManagerPath, kManager, "GetSession", logindTimeoutMs,
                               [&](DBusMessage* request) {
                                   return dbus_message_append_args(request, DBUS_TYPE_STRING, &idText,
                                                                   DBUS_TYPE_INVALID);
                               });
    } else {
        const dbus_uint32_t pid = dbus_uint32_t(getpid());
        reply = callDBusMethod(connection, kService, kManagerPath, kManager, "GetSessionByPID",
                               logindTimeoutMs, [&](DBusMessage* request) {
                                   return dbus_message_append_args(request, DBUS_TYPE_UINT32, &pid,
                                                                   DBUS_TYPE_INVALID);
                               });
    }
    const auto path = replyText(reply.get(), DBUS_TYPE_OBJECT_PATH);
    // A session that logind names but cannot describe is none.
    if (!path || !sessionProperty(connection, *path, "Active"))
        return QByteArray();
    return *path;
}

} // namespace

LogindConsoleUser logindConsoleUser() {
    LogindConsoleUser user;
    const DBusConnectionPtr connection = openPrivateBus(DBUS_BUS_SYSTEM);
    const DBusMessagePtr seat = connection ? getDBusProperty(connection.get(), kService, kSeat0Path, kSeat,
                                                             "ActiveSession", logindTimeoutMs)
                                           : nullptr;
    if (!seat)
        return user;
    user.reachable = true;
    const auto sessionPath = replyText(seat.get(), DBUS_TYPE_OBJECT_PATH);
    // A seat without an active session names the root object.
    if (!sessionPath || *sessionPath == "/")
        return user;
    const DBusMessagePtr owner = getDBusProperty(connection.get(), kService, sessionPath->constData(),
                                                 kSession, "User", logindTimeoutMs);
    const auto uid = replyUInt32(owner.get());
    user.present = uid.has_value();
    user.uid = uid_t(uid.value_or(0));
    return user;
}

std::unique_ptr<LogindSessionWatch> LogindSessionWatch::start(std::function<void(bool)> changed) {
    std::unique_ptr<LogindSessionWatch> watch(new LogindSessionWatch);
    watch->connection = openPrivateBus(DBUS_BUS_SYSTEM);
    if (!watch->connection)
        return nullptr;
    watch->sessionPath = ownSessionPath(watch->connection.get());
    if (watch->sessionPath.isEmpty())
        return nullptr;
    // The rule comes before the first reading, so that no change falls between the two.
    const QByteArray rule = "type='signal',sender='" + QByteArray(kService) + "',path='" +
                            watch->sessionPath +
                            "',interface='" DBUS_INTERFACE_PROPERTIES "',member='PropertiesChanged'";
    DBusError error;
    dbus_error_init(&error);
    dbus_bus_add_match(watch->connection.get(), rule.constData(), &error);
    const bool matched = !dbus_error_is_set(&error);
    dbus_error_free(&error);
    const auto active = matched ? watch->readActive() : std::nullopt;
    if (!active)
        return nullptr;
    watch->active = *active;
    watch->changed = std::move(changed);
    watch->thread = std::thread([raw = watch.get()] { raw->run(); });
    return watch;
}

LogindSessionWatch::~LogindSessionWatch() {
    stopping = true;
    if (thread.joinable())
        thread.join();
}

std::optional<bool> LogindSessionWatch::readActive() {
    const auto inFront = sessionProperty(connection.get(), sessionPath, "Active");
    const auto locked = sessionProperty(connection.get(), sessionPath, "LockedHint");
    if (!inFront)
        return std::nullopt;
    return *inFront && !locked.value_or(false);
}

void LogindSessionWatch::run() {
    while (!stopping && dbus_connection_read_write(connection.get(), kWatchSliceMs)) {
        bool propertiesChanged = false;
        while (DBusMessage* raw = dbus_connection_pop_message(connection.get())) {
            const DBusMessagePtr message(raw);
            propertiesChanged |=
                dbus_message_is_signal(message.get(), DBUS_INTERFACE_PROPERTIES, "PropertiesChanged") &&
                sessionPath == dbus_message_get_path(message.get());
        }
        // The values are read anew rather than taken from the signal, which may only name them.
        const auto now = propertiesChanged ? readActive() : std::nullopt;
        if (now && *now != active.exchange(*now))
            changed(*now);
    }
}
