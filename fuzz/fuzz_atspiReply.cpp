// The readers of the replies that applications send over the accessibility bus, and those of the
// desktop's services (the accessibility switch, logind). libdbus checks every message it receives
// against its signature; what it lets through is any well-formed message, of any signature, and
// the readers must take each one without a fault.

#include "atspi/AtspiReadBatch.h"
#include "dbus/DBusCalls.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    DBusError error;
    dbus_error_init(&error);
    DBusMessage* reply = dbus_message_demarshal(reinterpret_cast<const char*>(data), int(size), &error);
    dbus_error_free(&error);
    if (!reply)
        return 0;
    (void)atspiStringOfReply(reply);
    (void)atspiUintOfReply(reply);
    (void)atspiStatesOfReply(reply);
    (void)atspiInterfacesOfReply(reply);
    (void)replyBoolean(reply);
    (void)replyUInt32(reply);
    (void)replyText(reply);
    (void)replyText(reply, DBUS_TYPE_OBJECT_PATH);
    // The items' interfaces and states are read later, from the reply as it was received.
    if (const std::optional<std::vector<AtspiCacheItem>> items = atspiItemsOfReply(reply)) {
        for (const AtspiCacheItem& item : *items) {
            (void)item.interfaces();
            (void)item.states();
        }
    }
    dbus_message_unref(reply);
    return 0;
}
