// The user's session bus, on a connection of its own, driven by the calling thread alone.
//
// libsystemd's sd-bus does the protocol. It is loaded at the first connection rather than linked, so that the plug-in
// loads in no time and on a machine without it; it stays loaded, as it keeps memory per thread (and says so itself, by
// being linked with -z nodelete).
//
// Every wait has a deadline: sd-bus's own blocking calls wait 90 s for a handshake and 25 s for an answer, and some
// versions give up when a signal interrupts them. So messages are sent without waiting and answers picked from the
// stream here.
#pragma once

#include "platform/linux/desktop/session.h"

#include <systemd/sd-bus.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace platform::linux_os {

#define FOLIDEX_SD_BUS_FUNCTIONS(X)                                                                                    \
    X(sd_bus_close_unref)                                                                                              \
    X(sd_bus_is_ready)                                                                                                 \
    X(sd_bus_message_append)                                                                                           \
    X(sd_bus_message_enter_container)                                                                                  \
    X(sd_bus_message_exit_container)                                                                                   \
    X(sd_bus_message_get_path)                                                                                         \
    X(sd_bus_message_get_reply_cookie)                                                                                 \
    X(sd_bus_message_get_sender)                                                                                       \
    X(sd_bus_message_is_method_error)                                                                                  \
    X(sd_bus_message_is_signal)                                                                                        \
    X(sd_bus_message_new_method_call)                                                                                  \
    X(sd_bus_message_read)                                                                                             \
    X(sd_bus_message_skip)                                                                                             \
    X(sd_bus_message_unref)                                                                                            \
    X(sd_bus_negotiate_fds)                                                                                            \
    X(sd_bus_new)                                                                                                      \
    X(sd_bus_process)                                                                                                  \
    X(sd_bus_send)                                                                                                     \
    X(sd_bus_set_address)                                                                                              \
    X(sd_bus_set_bus_client)                                                                                           \
    X(sd_bus_start)                                                                                                    \
    X(sd_bus_wait)

// The functions of libsystemd.so.0 that are used here, under their own names (sd-bus(3)).
struct SdBus {
#define FOLIDEX_DECLARE(name) decltype(&::name) name = nullptr; // NOLINT(bugprone-macro-parentheses)
    FOLIDEX_SD_BUS_FUNCTIONS(FOLIDEX_DECLARE)
#undef FOLIDEX_DECLARE
};

// Loads the library at the first call; nullptr when it is missing or lacks a function. Any thread.
const SdBus* sdBus();

struct BusDeleter {
    void operator()(sd_bus* bus) const noexcept { sdBus()->sd_bus_close_unref(bus); }
};
struct MessageDeleter {
    void operator()(sd_bus_message* message) const noexcept { sdBus()->sd_bus_message_unref(message); }
};

// A reference to a message; empty where there is none. A message is read from its start, once.
using Message = std::unique_ptr<sd_bus_message, MessageDeleter>;

class SessionBus {
public:
    // Nothing when there is no bus, it refuses, or the handshake isn't done by the deadline.
    static std::optional<SessionBus> connect(Deadline deadline);

    // Sends a method call and waits for its answer. `types` and `values`: as for sd_bus_message_append(3). Empty when
    // the answer is an error or doesn't come by the deadline, or when the connection is lost.
    template <typename... Values>
    Message call(const char* destination, const char* path, const char* interface, const char* member,
                 Deadline deadline, const char* types, Values... values)
    {
        Message request = methodCall(destination, path, interface, member);
        if (!request || sdBus()->sd_bus_message_append(request.get(), types, values...) < 0) {
            return {};
        }
        return answerTo(request, deadline);
    }

    // Asks the bus for the signals that fit a match rule; false when it doesn't agree.
    bool subscribe(const std::string& rule, Deadline deadline);

    // Starts the service where it can be started and isn't running. Returns its unique name; empty when the service
    // isn't there.
    std::string startService(const char* name, Deadline deadline);

    // The next message that is no answer, in the order of arrival, those that arrived during a call() included. Empty
    // when none comes by the deadline or the connection is lost.
    Message nextSignal(Deadline deadline);

private:
    explicit SessionBus(sd_bus* bus) : bus_(bus) {}

    Message methodCall(const char* destination, const char* path, const char* interface, const char* member) const;
    Message answerTo(const Message& request, Deadline deadline);
    bool advance(Deadline deadline, Message& received);
    Message receive(Deadline deadline);

    std::unique_ptr<sd_bus, BusDeleter> bus_;
    std::deque<Message> signals_;
};

} // namespace platform::linux_os
