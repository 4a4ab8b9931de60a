#include "DBusCalls.h"

namespace {

// Steps into variants, and in a structure to its first member of the wanted type, until a basic
// value of that type; false when there is none.
bool descendTo(DBusMessageIter* iter, int type, DBusMessageIter* inner) {
    const int found = dbus_message_iter_get_arg_type(iter);
    if (found == type) {
        *inner = *iter;
        return true;
    }
    if (found != DBUS_TYPE_VARIANT && found != DBUS_TYPE_STRUCT)
        return false;
    DBusMessageIter member;
    dbus_message_iter_recurse(iter, &member);
    do {
        if (descendTo(&member, type, inner))
            return true;
    } while (found == DBUS_TYPE_STRUCT && dbus_message_iter_next(&member));
    return false;
}

template <typename T> std::optional<T> readBasic(DBusMessageIter* iter, int type) {
    DBusMessageIter inner;
    if (!descendTo(iter, type, &inner))
        return std::nullopt;
    T value{};
    dbus_message_iter_get_basic(&inner, &value);
    return value;
}

template <typename Read> auto firstArgument(DBusMessage* reply, Read read) -> decltype(read(nullptr)) {
    DBusMessageIter iter;
    if (!reply || !dbus_message_iter_init(reply, &iter))
        return std::nullopt;
    return read(&iter);
}

} // namespace

void DBusConnectionCloser::operator()(DBusConnection* connection) const {
    dbus_connection_close(connection);
    dbus_connection_unref(connection);
}

// libdbus reads the buses' addresses once per process; here they are read at every connection.
DBusConnectionPtr openPrivateBus(DBusBusType type) {
    const bool system = type == DBUS_BUS_SYSTEM;
    QByteArray address = qgetenv(system ? "DBUS_SYSTEM_BUS_ADDRESS" : "DBUS_SESSION_BUS_ADDRESS");
    if (address.isEmpty() && system)
        address = "unix:path=/var/run/dbus/system_bus_socket";
    DBusError error;
    dbus_error_init(&error);
    // A session bus without an address is found by libdbus's own means (autolaunch).
    DBusConnectionPtr connection(address.isEmpty()
                                     ? dbus_bus_get_private(type, &error)
                                     : dbus_connection_open_private(address.constData(), &error));
    if (connection && !address.isEmpty() && !dbus_bus_register(connection.get(), &error))
        connection.reset();
    dbus_error_free(&error);
    if (connection)
        dbus_connection_set_exit_on_disconnect(connection.get(), false);
    return connection;
}

DBusMessagePtr callDBusMethod(DBusConnection* connection, const char* service, const char* path,
                              const char* interface, const char* method, int timeoutMs,
                              const std::function<bool(DBusMessage*)>& appendArguments) {
    DBusMessagePtr request(dbus_message_new_method_call(service, path, interface, method));
    if (!request || (appendArguments && !appendArguments(request.get())))
        return nullptr;
    DBusError error;
    dbus_error_init(&error);
    DBusMessagePtr reply(
        dbus_connection_send_with_reply_and_block(connection, request.get(), timeoutMs, &error));
    dbus_error_free(&error);
    return reply;
}

DBusMessagePtr getDBusProperty(DBusConnection* connection, const char* service, const char* path,
                               const char* interface, const char* property, int timeoutMs) {
    return callDBusMethod(connection, service, path, DBUS_INTERFACE_PROPERTIES, "Get", timeoutMs,
                          [&](DBusMessage* request) {
                              return dbus_message_append_args(request, DBUS_TYPE_STRING, &interface,
                                                              DBUS_TYPE_STRING, &property, DBUS_TYPE_INVALID);
                          });
}

bool setDBusBooleanProperty(DBusConnection* connection, const char* service, const char* path,
                            const char* interface, const char* property, bool value, int timeoutMs) {
    const DBusMessagePtr reply = callDBusMethod(
        connection, service, path, DBUS_INTERFACE_PROPERTIES, "Set", timeoutMs, [&](DBusMessage* request) {
            DBusMessageIter iter, variant;
            const dbus_bool_t boolean = value;
            dbus_message_iter_init_append(request, &iter);
            if (!dbus_message_iter_append_basic(&iter, DBUS_TYPE_STRING, &interface) ||
                !dbus_message_iter_append_basic(&iter, DBUS_TYPE_STRING, &property) ||
                !dbus_message_iter_open_container(&iter, DBUS_TYPE_VARIANT, DBUS_TYPE_BOOLEAN_AS_STRING,
                                                  &variant))
                return false;
            if (!dbus_message_iter_append_basic(&variant, DBUS_TYPE_BOOLEAN, &boolean)) {
                dbus_message_iter_abandon_container(&iter, &variant);
                return false;
            }
            return bool(dbus_message_iter_close_container(&iter, &variant));
        });
    return reply && dbus_message_get_type(reply.get()) == DBUS_MESSAGE_TYPE_METHOD_RETURN;
}

std::optional<bool> readDBusBoolean(DBusMessageIter* iter) {
    const auto value = readBasic<dbus_bool_t>(iter, DBUS_TYPE_BOOLEAN);
    return value ? std::optional<bool>(*value != 0) : std::nullopt;
}

std::optional<quint32> readDBusUInt32(DBusMessageIter* iter) {
    return readBasic<dbus_uint32_t>(iter, DBUS_TYPE_UINT32);
}

std::optional<QByteArray> readDBusText(DBusMessageIter* iter, int type) {
    const auto text = readBasic<const char*>(iter, type);
    return text ? std::optional<QByteArray>(QByteArray(*text)) : std::nullopt;
}

std::optional<bool> replyBoolean(DBusMessage* reply) {
    return firstArgument(reply, readDBusBoolean);
}

std::optional<quint32> replyUInt32(DBusMessage* reply) {
    return firstArgument(reply, readDBusUInt32);
}

std::optional<QByteArray> replyText(DBusMessage* reply, int type) {
    return firstArgument(reply, [type](DBusMessageIter* iter) { return readDBusText(iter, type); });
}
