#include "GnomeMagnifier.h"

#include "dbus/DBusCalls.h"

#include <QByteArray>
#include <QList>

namespace {

constexpr char kService[] = "org.gnome.Magnifier";
constexpr char kPath[] = "/org/gnome/Magnifier";
constexpr char kRegionInterface[] = "org.gnome.Magnifier.ZoomRegion";

// One question; null when it fails or times out.
DBusMessagePtr call(DBusConnection* connection, const char* service, const char* path, const char* interface,
                    const char* method, int timeoutMs, const char* argument = nullptr) {
    return callDBusMethod(connection, service, path, interface, method, timeoutMs,
                          [argument](DBusMessage* request) {
                              return !argument || dbus_message_append_args(request, DBUS_TYPE_STRING,
                                                                           &argument, DBUS_TYPE_INVALID);
                          });
}

template <typename T> bool readBasic(DBusMessageIter* iter, int type, T* value) {
    if (dbus_message_iter_get_arg_type(iter) != type)
        return false;
    dbus_message_iter_get_basic(iter, value);
    dbus_message_iter_next(iter);
    return true;
}

// The items of an array argument of basic type.
template <typename T> QList<T> readArray(DBusMessage* reply, int itemType) {
    DBusMessageIter iter, items;
    QList<T> result;
    if (!dbus_message_iter_init(reply, &iter) || dbus_message_iter_get_arg_type(&iter) != DBUS_TYPE_ARRAY)
        return result;
    dbus_message_iter_recurse(&iter, &items);
    T item{};
    while (readBasic(&items, itemType, &item))
        result.append(item);
    return result;
}

} // namespace

ZoomInfo readMagnifierZoom(int timeoutMs) {
    const DBusConnectionPtr connection = openPrivateBus(DBUS_BUS_SESSION);
    if (!connection)
        return {};

    // The bus itself always answers: without an owner there is nobody to wait for.
    dbus_bool_t owned = false;
    DBusMessageIter iter;
    const DBusMessagePtr hasOwner = call(connection.get(), DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                         DBUS_INTERFACE_DBUS, "NameHasOwner", timeoutMs, kService);
    if (!hasOwner || !dbus_message_iter_init(hasOwner.get(), &iter) ||
        !readBasic(&iter, DBUS_TYPE_BOOLEAN, &owned) || !owned)
        return {};

    dbus_bool_t active = false;
    const DBusMessagePtr isActive = call(connection.get(), kService, kPath, kService, "isActive", timeoutMs);
    if (!isActive || !dbus_message_iter_init(isActive.get(), &iter) ||
        !readBasic(&iter, DBUS_TYPE_BOOLEAN, &active) || !active)
        return {};

    const DBusMessagePtr regions =
        call(connection.get(), kService, kPath, kService, "getZoomRegions", timeoutMs);
    const QList<const char*> paths =
        regions ? readArray<const char*>(regions.get(), DBUS_TYPE_OBJECT_PATH) : QList<const char*>();
    if (paths.isEmpty())
        return {};
    const QByteArray region(paths.first());

    double factor = 0, verticalFactor = 0;
    const DBusMessagePtr magnification =
        call(connection.get(), kService, region.constData(), kRegionInterface, "getMagFactor", timeoutMs);
    if (!magnification || !dbus_message_iter_init(magnification.get(), &iter) ||
        !readBasic(&iter, DBUS_TYPE_DOUBLE, &factor) ||
        !readBasic(&iter, DBUS_TYPE_DOUBLE, &verticalFactor) || !(factor > 0))
        return {};

    // [left, top, right, bottom] of what the magnified view shows.
    const DBusMessagePtr roi =
        call(connection.get(), kService, region.constData(), kRegionInterface, "getRoi", timeoutMs);
    const QList<dbus_int32_t> sides =
        roi ? readArray<dbus_int32_t>(roi.get(), DBUS_TYPE_INT32) : QList<dbus_int32_t>();
    if (sides.size() != 4)
        return {};
    ZoomInfo zoom;
    zoom.factor = factor;
    zoom.origin = CGPointMake((double(sides[0]) + sides[2]) / 2, (double(sides[1]) + sides[3]) / 2);
    return zoom;
}
