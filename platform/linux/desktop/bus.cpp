#include "platform/linux/desktop/bus.h"

#include <dlfcn.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

namespace platform::linux_os {

namespace {

template <typename Function>
bool find(void* library, const char* name, Function& function)
{
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

std::optional<SdBus> load()
{
    void* library = dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr) {
        return std::nullopt;
    }
    SdBus functions;
#define FOLIDEX_FIND(name) &&find(library, #name, functions.name)
    const bool complete = true FOLIDEX_SD_BUS_FUNCTIONS(FOLIDEX_FIND);
#undef FOLIDEX_FIND
    return complete ? std::optional(functions) : std::nullopt;
}

std::uint64_t microsecondsUntil(Deadline deadline)
{
    return deadline == unlimited ? UINT64_MAX : static_cast<std::uint64_t>(millisecondsUntil(deadline)) * 1000;
}

} // namespace

const SdBus* sdBus()
{
    static const std::optional<SdBus> functions = load();
    return functions ? &*functions : nullptr;
}

std::optional<SessionBus> SessionBus::connect(Deadline deadline)
{
    const std::string address = sessionBusAddress();
    const SdBus* sd = address.empty() ? nullptr : sdBus();
    sd_bus* created = nullptr;
    if (sd == nullptr || sd->sd_bus_new(&created) < 0) {
        return std::nullopt;
    }
    SessionBus bus(created);
    // No peer may send descriptors into the host.
    if (sd->sd_bus_set_address(created, address.c_str()) < 0 || sd->sd_bus_set_bus_client(created, 1) < 0 ||
        sd->sd_bus_negotiate_fds(created, 0) < 0 || sd->sd_bus_start(created) < 0) {
        return std::nullopt;
    }
    while (sd->sd_bus_is_ready(created) <= 0) {
        Message unasked;
        if (!bus.advance(deadline, unasked)) {
            return std::nullopt;
        }
    }
    return bus;
}

bool SessionBus::subscribe(const std::string& rule, Deadline deadline)
{
    return call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "AddMatch", deadline, "s",
                rule.c_str()) != nullptr;
}

std::string SessionBus::startService(const char* name, Deadline deadline)
{
    // The answer to starting doesn't matter: a service that can't be started may be running all the same.
    call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "StartServiceByName", deadline, "su",
         name, std::uint32_t{0});
    const Message answer = call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetNameOwner",
                                deadline, "s", name);
    const char* owner = nullptr;
    if (!answer || sdBus()->sd_bus_message_read(answer.get(), "s", &owner) < 0) {
        return {};
    }
    return owner;
}

Message SessionBus::nextSignal(Deadline deadline)
{
    if (signals_.empty()) {
        return receive(deadline);
    }
    Message first = std::move(signals_.front());
    signals_.pop_front();
    return first;
}

Message SessionBus::methodCall(const char* destination, const char* path, const char* interface,
                               const char* member) const
{
    sd_bus_message* request = nullptr;
    sdBus()->sd_bus_message_new_method_call(bus_.get(), &request, destination, path, interface, member);
    return Message(request);
}

Message SessionBus::answerTo(const Message& request, Deadline deadline)
{
    const SdBus& sd = *sdBus();
    std::uint64_t cookie = 0;
    if (sd.sd_bus_send(bus_.get(), request.get(), &cookie) < 0) {
        return {};
    }
    while (Message message = receive(deadline)) {
        std::uint64_t answered = 0;
        if (sd.sd_bus_message_get_reply_cookie(message.get(), &answered) < 0) {
            signals_.push_back(std::move(message));
        } else if (answered == cookie) {
            return sd.sd_bus_message_is_method_error(message.get(), nullptr) > 0 ? Message() : std::move(message);
        }
    }
    return {};
}

// Does one step of the connection's work, and waits where there is none to do. A peer that keeps the connection busy
// can't hold the caller beyond the deadline. False when that has passed or the connection is lost.
bool SessionBus::advance(Deadline deadline, Message& received)
{
    const SdBus& sd = *sdBus();
    if (std::chrono::steady_clock::now() >= deadline) {
        return false;
    }
    sd_bus_message* message = nullptr;
    const int processed = sd.sd_bus_process(bus_.get(), &message);
    received.reset(message);
    if (processed != 0) {
        return processed > 0 || processed == -EINTR;
    }
    const int waited = sd.sd_bus_wait(bus_.get(), microsecondsUntil(deadline));
    return waited >= 0 || waited == -EINTR;
}

Message SessionBus::receive(Deadline deadline)
{
    Message message;
    while (!message && advance(deadline, message)) {
    }
    return message;
}

} // namespace platform::linux_os
