// Counts the D-Bus messages that a process sends, whatever library sends them: loaded with
// LD_PRELOAD into the benchmark's walkers (ours and the Python ones), it wraps libdbus's three ways
// of sending and its two ways of waiting for a reply, and writes the count of method calls that
// expect a reply to the file named by DBUS_CALL_COUNT_FILE at exit. Each such call is one round
// trip. A wait holds the caller until a reply is in: dbus_connection_send_with_reply_and_block,
// and dbus_pending_call_block or dbus_connection_read_write_dispatch (libatspi's way on an
// application's direct connection) after a call was sent with a pending reply. Calls sent one
// after the other before the first wait share that wait, as their round trips overlap: the waits
// are the round trips on the critical path.

#include <dbus/dbus.h>
#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>

namespace {

std::atomic<unsigned long long> calls{0};
std::atomic<unsigned long long> messages{0};
std::atomic<unsigned long long> waits{0};
std::mutex tallyMutex;
std::map<std::string, unsigned long long> tally; // method calls that expect a reply, by name
thread_local int depth = 0;             // libdbus may send or wait through one of these from inside another
thread_local bool replyAwaited = false; // a call was sent with a pending reply since the last wait

// "Member", or for a property read "Get Interface.Property", the interface without its
// "org.a11y.atspi." prefix.
std::string callName(DBusMessage* message) {
    const char* member = dbus_message_get_member(message);
    std::string name = member ? member : "?";
    const char* interface = dbus_message_get_interface(message);
    const char* read = nullptr;
    if (interface && std::strcmp(interface, DBUS_INTERFACE_PROPERTIES) == 0 &&
        !dbus_message_get_args(message, nullptr, DBUS_TYPE_STRING, &interface, DBUS_TYPE_STRING, &read,
                               DBUS_TYPE_INVALID))
        read = nullptr;
    if (read) {
        constexpr const char prefix[] = "org.a11y.atspi.";
        if (std::strncmp(interface, prefix, sizeof prefix - 1) == 0)
            interface += sizeof prefix - 1;
        name += ' ' + std::string(interface) + '.' + read;
    }
    return name;
}

void count(DBusMessage* message, bool waiting, bool pending = false) {
    if (depth != 0 || !message)
        return;
    replyAwaited = replyAwaited || pending;
    ++messages;
    waits += waiting ? 1 : 0;
    if (dbus_message_get_type(message) != DBUS_MESSAGE_TYPE_METHOD_CALL || dbus_message_get_no_reply(message))
        return;
    ++calls;
    const std::string name = callName(message);
    const std::lock_guard<std::mutex> lock(tallyMutex);
    ++tally[name];
}

struct Nested {
    Nested() { ++depth; }
    ~Nested() { --depth; }
};

template <typename Function, typename... Arguments> auto forward(const char* name, Arguments... arguments) {
    static auto* real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
    const Nested nested;
    return real(arguments...);
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

// The counts so far, for a walker that measures one question at a time: it finds them with
// dlsym(RTLD_DEFAULT, "dbusCallCount") and so on when the counter is preloaded.
unsigned long long dbusCallCount() {
    return calls.load();
}

// Every message sent: method calls with or without a reply, signals, replies.
unsigned long long dbusMessageCount() {
    return messages.load();
}

unsigned long long dbusWaitCount() {
    return waits.load();
}

// The method calls that expected a reply so far, one "COUNT NAME" line per name (see callName),
// into buffer, cut at size; returns the length of the whole text.
size_t dbusCallTally(char* buffer, size_t size) {
    std::string text;
    {
        const std::lock_guard<std::mutex> lock(tallyMutex);
        for (const auto& [name, n] : tally)
            text += std::to_string(n) + ' ' + name + '\n';
    }
    if (buffer && size > 0)
        std::snprintf(buffer, size, "%s", text.c_str());
    return text.size();
}

dbus_bool_t dbus_connection_send(DBusConnection* connection, DBusMessage* message, dbus_uint32_t* serial) {
    count(message, false);
    return forward<decltype(dbus_connection_send)>("dbus_connection_send", connection, message, serial);
}

dbus_bool_t dbus_connection_send_with_reply(DBusConnection* connection, DBusMessage* message,
                                            DBusPendingCall** pending, int timeout) {
    count(message, false, pending != nullptr);
    return forward<decltype(dbus_connection_send_with_reply)>("dbus_connection_send_with_reply", connection,
                                                              message, pending, timeout);
}

DBusMessage* dbus_connection_send_with_reply_and_block(DBusConnection* connection, DBusMessage* message,
                                                       int timeout, DBusError* error) {
    count(message, true);
    replyAwaited = false;
    return forward<decltype(dbus_connection_send_with_reply_and_block)>(
        "dbus_connection_send_with_reply_and_block", connection, message, timeout, error);
}

void dbus_pending_call_block(DBusPendingCall* pending) {
    waits += depth == 0 && std::exchange(replyAwaited, false) ? 1 : 0;
    forward<decltype(dbus_pending_call_block)>("dbus_pending_call_block", pending);
}

dbus_bool_t dbus_connection_read_write_dispatch(DBusConnection* connection, int timeout) {
    waits += depth == 0 && std::exchange(replyAwaited, false) ? 1 : 0;
    return forward<decltype(dbus_connection_read_write_dispatch)>("dbus_connection_read_write_dispatch",
                                                                  connection, timeout);
}
}
