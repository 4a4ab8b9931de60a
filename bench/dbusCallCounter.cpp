// Counts the D-Bus method calls that a process sends, whatever library makes them: loaded with
// LD_PRELOAD into the benchmark's walkers (ours and the Python one), it wraps libdbus's three
// ways of sending and writes the count to the file named by DBUS_CALL_COUNT_FILE at exit. Each
// method call that expects a reply is one round trip.

#include <dbus/dbus.h>
#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {

std::atomic<unsigned long long> calls{0};
thread_local int depth = 0; // libdbus may send through one of these from inside another

template <typename Function, typename... Arguments>
auto forward(const char* name, DBusMessage* message, Arguments... arguments) {
    static auto* real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
    if (depth == 0 && message && dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL &&
        !dbus_message_get_no_reply(message))
        ++calls;
    ++depth;
    auto result = real(arguments...);
    --depth;
    return result;
}

struct Report {
    ~Report() {
        const char* path = std::getenv("DBUS_CALL_COUNT_FILE");
        if (FILE* file = path ? std::fopen(path, "w") : nullptr) {
            std::fprintf(file, "%llu\n", calls.load());
            std::fclose(file);
        }
    }
} report;

} // namespace

extern "C" {

// The count so far, for a walker that measures one question at a time: it finds this with
// dlsym(RTLD_DEFAULT, "dbusCallCount") when the counter is preloaded.
unsigned long long dbusCallCount() {
    return calls.load();
}

dbus_bool_t dbus_connection_send(DBusConnection* connection, DBusMessage* message, dbus_uint32_t* serial) {
    return forward<decltype(dbus_connection_send)>("dbus_connection_send", message, connection, message,
                                                   serial);
}

dbus_bool_t dbus_connection_send_with_reply(DBusConnection* connection, DBusMessage* message,
                                            DBusPendingCall** pending, int timeout) {
    return forward<decltype(dbus_connection_send_with_reply)>("dbus_connection_send_with_reply", message,
                                                              connection, message, pending, timeout);
}

DBusMessage* dbus_connection_send_with_reply_and_block(DBusConnection* connection, DBusMessage* message,
                                                       int timeout, DBusError* error) {
    return forward<decltype(dbus_connection_send_with_reply_and_block)>(
        "dbus_connection_send_with_reply_and_block", message, connection, message, timeout, error);
}
}
