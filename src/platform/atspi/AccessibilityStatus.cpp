#include "AccessibilityStatus.h"

#include "dbus/DBusCalls.h"

namespace {

constexpr char kService[] = "org.a11y.Bus";
constexpr char kPath[] = "/org/a11y/bus";
constexpr char kInterface[] = "org.a11y.Status";
constexpr char kProperty[] = "IsEnabled";

} // namespace

std::optional<bool> accessibilityStatusEnabled(int timeoutMs) {
    const DBusConnectionPtr connection = openPrivateBus(DBUS_BUS_SESSION);
    if (!connection)
        return std::nullopt;
    const DBusMessagePtr reply =
        getDBusProperty(connection.get(), kService, kPath, kInterface, kProperty, timeoutMs);
    return replyBoolean(reply.get());
}

bool enableAccessibilityStatus(int timeoutMs) {
    const DBusConnectionPtr connection = openPrivateBus(DBUS_BUS_SESSION);
    return connection &&
           setDBusBooleanProperty(connection.get(), kService, kPath, kInterface, kProperty, true, timeoutMs);
}
