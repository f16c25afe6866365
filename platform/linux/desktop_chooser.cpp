// The open panel of the desktop portal (xdg-desktop-portal, interfaces org.freedesktop.portal.FileChooser and
// org.freedesktop.portal.Request): each desktop shows its own dialog for it.

#include "platform/desktop.h"
#include "platform/linux/desktop_bus.h"
#include "platform/linux/desktop_session.h"
#include "platform/linux/desktop_uri.h"

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
    PortalChooser(SessionBus bus, ChooserKind kind) : m_bus(std::move(bus)), m_kind(kind) {}

    bool show(std::string_view prompt, Deadline deadline);
    Choice waitForAnswer();

private:
    bool hasVanished(sd_bus_message* ownerChange);
    Choice answer(sd_bus_message* response) const;

    SessionBus m_bus;
    ChooserKind m_kind;
    std::string m_portal;  // unique name, so that only the portal itself can answer
    std::string m_request; // object path
    bool m_backendLost = false;
};

// False when the dialog can't be shown or isn't by the deadline.
bool PortalChooser::show(std::string_view prompt, Deadline deadline)
{
    const std::string ownerChanges = "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                                     "interface='org.freedesktop.DBus',member='NameOwnerChanged',";
    if (!m_bus.subscribe(ownerChanges + "arg0='" + portalName + "'", deadline) ||
        !m_bus.subscribe(ownerChanges + "arg0namespace='" + backendNames + "'", deadline)) {
        return false;
    }
    // The answer may come before the request's path is known. Some portals choose a path of their own, so that it can't
    // be computed either: all of the portal's answers are subscribed to, and the right one picked.
    m_portal = m_bus.startService(portalName, deadline);
    if (m_portal.empty() || !m_bus.subscribe("type='signal',sender='" + m_portal +
                                                 "',interface='org.freedesktop.portal.Request',member='Response'",
                                             deadline)) {
        return false;
    }
    const char* noParentWindow = "";
    const std::string title(prompt);
    const std::string label = mnemonicLabel(prompt);
    const int options = 5;
    const Message reply = m_bus.call(m_portal.c_str(), portalPath, "org.freedesktop.portal.FileChooser", "OpenFile",
                                     deadline, "ssa{sv}", noParentWindow, title.c_str(), options, //
                                     "handle_token", "s", handleToken,                            //
                                     "accept_label", "s", label.c_str(),                          //
                                     "multiple", "b", 0,                                          //
                                     "directory", "b", m_kind == ChooserKind::folder ? 1 : 0,     //
                                     "modal", "b", 1);
    const char* request = nullptr;
    if (!reply || sdBus()->sd_bus_message_read(reply.get(), "o", &request) < 0) {
        return false;
    }
    m_request = request;
    return true;
}

Choice PortalChooser::waitForAnswer()
{
    const SdBus& sd = *sdBus();
    while (const Message signal = m_bus.nextSignal(unlimited)) {
        sd_bus_message* message = signal.get();
        if (sd.sd_bus_message_is_signal(message, "org.freedesktop.DBus", "NameOwnerChanged") > 0) {
            if (hasVanished(message)) {
                break;
            }
        } else if (sd.sd_bus_message_is_signal(message, "org.freedesktop.portal.Request", "Response") > 0 &&
                   sd.sd_bus_message_get_sender(message) == m_portal &&
                   sd.sd_bus_message_get_path(message) == m_request) {
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
        m_backendLost = m_backendLost || std::string_view(after).empty();
        return false;
    }
    return before == m_portal;
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
        const bool lost = m_backendLost && code != cancelledByUser;
        return {lost ? Choice::Answer::failed : Choice::Answer::cancelled, {}};
    }
    const std::optional<std::string> uri = firstUri(response);
    std::optional<std::string> path = uri ? pathFromFileUri(*uri) : std::nullopt;
    if (!path || !isKind(*path, m_kind)) {
        return {};
    }
    return {Choice::Answer::chosen, *std::move(path)};
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

} // namespace platform
