// Alerts as desktop notifications (freedesktop.org, org.freedesktop.Notifications 1.2).

#include "platform/desktop.h"
#include "platform/linux/desktop_bus.h"
#include "platform/linux/desktop_session.h"
#include "platform/unicode.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

namespace {

using namespace linux_os;

constexpr const char* serverName = "org.freedesktop.Notifications";
constexpr const char* serverPath = "/org/freedesktop/Notifications";

// The bus disconnects whoever sends text that isn't UTF-8.
std::string validText(std::string_view text)
{
    return utf8FromUtf16(utf16FromUtf8(text)).value_or(std::string());
}

std::string markupText(std::string_view text)
{
    std::string markup;
    for (const char letter : text) {
        switch (letter) {
        case '&':
            markup += "&amp;";
            break;
        case '<':
            markup += "&lt;";
            break;
        case '>':
            markup += "&gt;";
            break;
        default:
            markup += letter;
        }
    }
    return markup;
}

bool understandsMarkup(SessionBus& bus, const std::string& server, Deadline deadline)
{
    const SdBus& sd = *sdBus();
    const Message capabilities = bus.call(server.c_str(), serverPath, serverName, "GetCapabilities", deadline, "");
    if (!capabilities || sd.sd_bus_message_enter_container(capabilities.get(), 'a', "s") <= 0) {
        return false;
    }
    const char* capability = nullptr;
    while (sd.sd_bus_message_read(capabilities.get(), "s", &capability) > 0) {
        if (std::string_view(capability) == "body-markup") {
            return true;
        }
    }
    return false;
}

} // namespace

bool showAlert(std::string_view header, std::string_view message)
{
    if (!hasDisplay()) {
        return false;
    }
    const Deadline deadline = answerDeadline();
    std::optional<SessionBus> bus = SessionBus::connect(deadline);
    const std::string server = bus ? bus->startService(serverName, deadline) : std::string();
    if (server.empty()) {
        return false;
    }
    const std::string summary = validText(header);
    const std::string text = validText(message);
    const std::string body = understandsMarkup(*bus, server, deadline) ? markupText(text) : text;
    constexpr std::int32_t neverExpires = 0;
    return bus->call(server.c_str(), serverPath, serverName, "Notify", deadline, "susssasa{sv}i", "Folidex",
                     std::uint32_t{0} /* replaces none */, "" /* no icon */, summary.c_str(), body.c_str(),
                     0 /* actions */, 0 /* hints */, neverExpires) != nullptr;
}

} // namespace platform
