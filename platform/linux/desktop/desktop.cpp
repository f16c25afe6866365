// The open panel is the desktop portal's (xdg-desktop-portal, interfaces org.freedesktop.portal.FileChooser and
// org.freedesktop.portal.Request): each desktop shows its own dialog for it. An alert is a desktop notification
// (freedesktop.org, org.freedesktop.Notifications 1.2). Opening a file is in desktop_opener.cpp.

#include "platform/desktop.h"
#include "platform/linux/desktop/bus.h"
#include "platform/linux/desktop/session.h"
#include "platform/linux/desktop/uri.h"
#include "platform/unicode.h"

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace platform {

namespace {

using namespace linux_os;

constexpr const char* portalName = "org.freedesktop.portal.Desktop";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
// The programs that draw the dialogs for the portal are org.freedesktop.impl.portal.desktop.gtk, ….kde and so on.
constexpr const char* backendNames = "org.freedesktop.impl.portal.desktop";
// Names this connection's only request.
constexpr const char* handleToken = "folidex";

// A label as the portal wants it: an underscore marks the letter that presses the button.
std::string mnemonicLabel(std::string_view text)
{
    std::string label = "_";
    for (const char letter : text) {
        label.append(letter == '_' ? "__" : std::string(1, letter));
    }
    return label;
}

// The first of the result's "uris"; nothing when there is none. Expects the results, a{sv}, next in the message.
std::optional<std::string> firstUri(sd_bus_message* response)
{
    const SdBus& sd = *sdBus();
    if (sd.sd_bus_message_enter_container(response, 'a', "{sv}") <= 0) {
        return std::nullopt;
    }
    while (sd.sd_bus_message_enter_container(response, 'e', "sv") > 0) {
        const char* key = nullptr;
        if (sd.sd_bus_message_read(response, "s", &key) < 0) {
            return std::nullopt;
        }
        if (std::string_view(key) == "uris") {
            const char* uri = nullptr;
            const bool found = sd.sd_bus_message_enter_container(response, 'v', "as") > 0 &&
                               sd.sd_bus_message_enter_container(response, 'a', "s") > 0 &&
                               sd.sd_bus_message_read(response, "s", &uri) > 0;
            return found ? std::optional<std::string>(uri) : std::nullopt;
        }
        if (sd.sd_bus_message_skip(response, "v") < 0 || sd.sd_bus_message_exit_container(response) < 0) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

// Portals before version 3 of the interface choose files only, whatever was asked for.
bool isKind(const std::string& path, ChooserKind kind)
{
    struct stat status {};
    return stat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode) == (kind == ChooserKind::folder);
}

class PortalChooser {
public:
    PortalChooser(SessionBus bus, ChooserKind kind) : bus_(std::move(bus)), kind_(kind) {}

    bool show(std::string_view prompt, Deadline deadline);
    Choice waitForAnswer();

private:
    bool hasVanished(sd_bus_message* ownerChange);
    Choice answer(sd_bus_message* response) const;

    SessionBus bus_;
    ChooserKind kind_;
    std::string portal_;  // unique name, so that only the portal itself can answer
    std::string request_; // object path
    bool backendLost_ = false;
};

// False when the dialog can't be shown or isn't by the deadline.
bool PortalChooser::show(std::string_view prompt, Deadline deadline)
{
    const std::string ownerChanges = "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                                     "interface='org.freedesktop.DBus',member='NameOwnerChanged',";
    if (!bus_.subscribe(ownerChanges + "arg0='" + portalName + "'", deadline) ||
        !bus_.subscribe(ownerChanges + "arg0namespace='" + backendNames + "'", deadline)) {
        return false;
    }
    // The answer may come before the request's path is known. Some portals choose a path of their own, so that it can't
    // be computed either: all of the portal's answers are subscribed to, and the right one picked.
    portal_ = bus_.startService(portalName, deadline);
    if (portal_.empty() || !bus_.subscribe("type='signal',sender='" + portal_ +
                                               "',interface='org.freedesktop.portal.Request',member='Response'",
                                           deadline)) {
        return false;
    }
    const char* noParentWindow = "";
    const std::string title(prompt);
    const std::string label = mnemonicLabel(prompt);
    const int options = 5;
    const Message reply = bus_.call(portal_.c_str(), portalPath, "org.freedesktop.portal.FileChooser", "OpenFile",
                                    deadline, "ssa{sv}", noParentWindow, title.c_str(), options, //
                                    "handle_token", "s", handleToken,                            //
                                    "accept_label", "s", label.c_str(),                          //
                                    "multiple", "b", 0,                                          //
                                    "directory", "b", kind_ == ChooserKind::folder ? 1 : 0,      //
                                    "modal", "b", 1);
    const char* request = nullptr;
    if (!reply || sdBus()->sd_bus_message_read(reply.get(), "o", &request) < 0) {
        return false;
    }
    request_ = request;
    return true;
}

Choice PortalChooser::waitForAnswer()
{
    const SdBus& sd = *sdBus();
    while (const Message signal = bus_.nextSignal(unlimited)) {
        sd_bus_message* message = signal.get();
        if (sd.sd_bus_message_is_signal(message, "org.freedesktop.DBus", "NameOwnerChanged") > 0) {
            if (hasVanished(message)) {
                break;
            }
        } else if (sd.sd_bus_message_is_signal(message, "org.freedesktop.portal.Request", "Response") > 0 &&
                   sd.sd_bus_message_get_sender(message) == portal_ &&
                   sd.sd_bus_message_get_path(message) == request_) {
            return answer(message);
        }
    }
    return {};
}

// Whether the portal is gone. The loss of a backend is only noted: there may be several, and the portal knows which of
// them showed the dialog.
bool PortalChooser::hasVanished(sd_bus_message* ownerChange)
{
    const char* name = nullptr;
    const char* before = nullptr;
    const char* after = nullptr;
    if (sdBus()->sd_bus_message_read(ownerChange, "sss", &name, &before, &after) < 0) {
        return false;
    }
    if (std::string_view(name) != portalName) {
        backendLost_ = backendLost_ || std::string_view(after).empty();
        return false;
    }
    return before == portal_;
}

// A portal whose backend died answers with the same code as for a window that the user closed.
Choice PortalChooser::answer(sd_bus_message* response) const
{
    constexpr std::uint32_t chosen = 0;
    constexpr std::uint32_t cancelledByUser = 1;
    std::uint32_t code = 0;
    if (sdBus()->sd_bus_message_read(response, "u", &code) < 0) {
        return {};
    }
    if (code != chosen) {
        const bool lost = backendLost_ && code != cancelledByUser;
        return {lost ? Choice::Answer::failed : Choice::Answer::cancelled, {}};
    }
    const std::optional<std::string> uri = firstUri(response);
    std::optional<std::string> path = uri ? pathFromFileUri(*uri) : std::nullopt;
    if (!path || !isKind(*path, kind_)) {
        return {};
    }
    return {Choice::Answer::chosen, *std::move(path)};
}

constexpr const char* notificationsName = "org.freedesktop.Notifications";
constexpr const char* notificationsPath = "/org/freedesktop/Notifications";

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
    const Message capabilities =
        bus.call(server.c_str(), notificationsPath, notificationsName, "GetCapabilities", deadline, "");
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

Choice chooseItem(ChooserKind kind, std::string_view prompt)
{
    if (!hasDisplay()) {
        return {};
    }
    const Deadline deadline = answerDeadline();
    std::optional<SessionBus> bus = SessionBus::connect(deadline);
    if (!bus) {
        return {};
    }
    PortalChooser chooser(*std::move(bus), kind);
    return chooser.show(prompt, deadline) ? chooser.waitForAnswer() : Choice{};
}

bool showAlert(std::string_view header, std::string_view message)
{
    if (!hasDisplay()) {
        return false;
    }
    const Deadline deadline = answerDeadline();
    std::optional<SessionBus> bus = SessionBus::connect(deadline);
    const std::string server = bus ? bus->startService(notificationsName, deadline) : std::string();
    if (server.empty()) {
        return false;
    }
    const std::string summary = validText(header);
    const std::string text = validText(message);
    const std::string body = understandsMarkup(*bus, server, deadline) ? markupText(text) : text;
    constexpr std::int32_t neverExpires = 0;
    return bus->call(server.c_str(), notificationsPath, notificationsName, "Notify", deadline, "susssasa{sv}i",
                     "Folidex", std::uint32_t{0} /* replaces none */, "" /* no icon */, summary.c_str(), body.c_str(),
                     0 /* actions */, 0 /* hints */, neverExpires) != nullptr;
}

} // namespace platform
