#pragma once

// Small blocking questions over libdbus for the platform services that read a desktop service's
// state: a private connection to a bus, one method call, and the reading of its reply. Private
// connections, read from the bus address variables at every connection, so that a test that points
// them elsewhere reaches the new bus.

#include <dbus/dbus.h>

#include <QByteArray>

#include <functional>
#include <memory>
#include <optional>

struct DBusConnectionCloser {
    void operator()(DBusConnection* connection) const;
};
struct DBusMessageUnref {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using DBusConnectionPtr = std::unique_ptr<DBusConnection, DBusConnectionCloser>;
using DBusMessagePtr = std::unique_ptr<DBusMessage, DBusMessageUnref>;

// Null when the bus cannot be reached. A lost bus does not end the process.
DBusConnectionPtr openPrivateBus(DBusBusType type);

// One call; null when it fails or times out. appendArguments adds the call's arguments.
DBusMessagePtr callDBusMethod(DBusConnection* connection, const char* service, const char* path,
                              const char* interface, const char* method, int timeoutMs,
                              const std::function<bool(DBusMessage*)>& appendArguments = {});

// org.freedesktop.DBus.Properties: Get of one property, and Set of a boolean one.
DBusMessagePtr getDBusProperty(DBusConnection* connection, const char* service, const char* path,
                               const char* interface, const char* property, int timeoutMs);
bool setDBusBooleanProperty(DBusConnection* connection, const char* service, const char* path,
                            const char* interface, const char* property, bool value, int timeoutMs);

// The value at iter, looking through a variant and, in a structure, taking the first member of the
// type (of logind's (so) pair the id as text, of (uo) the uid); nullopt when there is none.
std::optional<bool> readDBusBoolean(DBusMessageIter* iter);
std::optional<quint32> readDBusUInt32(DBusMessageIter* iter);
// type: DBUS_TYPE_STRING or DBUS_TYPE_OBJECT_PATH.
std::optional<QByteArray> readDBusText(DBusMessageIter* iter, int type = DBUS_TYPE_STRING);
// The same of a reply's first argument.
std::optional<bool> replyBoolean(DBusMessage* reply);
std::optional<quint32> replyUInt32(DBusMessage* reply);
std::optional<QByteArray> replyText(DBusMessage* reply, int type = DBUS_TYPE_STRING);
