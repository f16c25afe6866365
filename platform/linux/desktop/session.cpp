#include "platform/linux/desktop/session.h"

#include "platform/linux/desktop/uri.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <string_view>

namespace platform::linux_os {

namespace {

// A host that runs with other rights than its user's own can't trust that user's environment (secure_getenv(3)).
std::string_view environment(const char* name)
{
    const char* value = secure_getenv(name);
    return value != nullptr ? value : "";
}

std::string localAddresses(std::string_view addresses)
{
    std::string local;
    while (!addresses.empty()) {
        const std::size_t end = std::min(addresses.find(';'), addresses.size());
        const std::string_view address = addresses.substr(0, end);
        if (address.starts_with("unix:")) {
            local.append(local.empty() ? "" : ";").append(address);
        }
        addresses.remove_prefix(std::min(end + 1, addresses.size()));
    }
    return local;
}

} // namespace

Deadline answerDeadline()
{
    using namespace std::chrono_literals;
    return std::chrono::steady_clock::now() + 4500ms;
}

int millisecondsUntil(Deadline deadline)
{
    if (deadline == unlimited) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::clamp<decltype(left)::rep>(left.count(), 0, INT_MAX));
}

bool hasDisplay()
{
    return !environment("DISPLAY").empty() || !environment("WAYLAND_DISPLAY").empty();
}

std::string sessionBusAddress()
{
    const std::string_view addresses = environment("DBUS_SESSION_BUS_ADDRESS");
    if (!addresses.empty()) {
        return localAddresses(addresses);
    }
    const std::string_view runtimeFolder = environment("XDG_RUNTIME_DIR");
    return runtimeFolder.starts_with('/') ? "unix:path=" + percentEncoded(runtimeFolder) + "/bus" : "";
}

} // namespace platform::linux_os
