#include "desktop/fake_portal.h"

#include <algorithm>
#include <string_view>
#include <thread>
#include <utility>

namespace folidex::test {

namespace {

using Fate = PortalBehaviour::Fate;

constexpr const char* backendName = "org.freedesktop.impl.portal.desktop.fake";

struct Reading {
    ChooserRequest request;
    std::string token;
};

void waitUntilGone(sd_bus* bus, const char* name)
{
    for (int owned = 1; owned != 0;) {
        sd_bus_message* reply = nullptr;
        if (sd_bus_call_method(bus, "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "NameHasOwner", nullptr,
                               &reply, "s", name) < 0) {
            return;
        }
        sd_bus_message_read(reply, "b", &owned);
        sd_bus_message_unref(reply);
    }
}

bool readFlag(sd_bus_message* message)
{
    int value = 0;
    sd_bus_message_read(message, "v", "b", &value);
    return value != 0;
}

std::string readText(sd_bus_message* message)
{
    const char* value = "";
    sd_bus_message_read(message, "v", "s", &value);
    return value;
}

Reading readRequest(sd_bus_message* call)
{
    Reading reading;
    sd_bus_message_skip(call, "ss");
    sd_bus_message_enter_container(call, 'a', "{sv}");
    while (sd_bus_message_enter_container(call, 'e', "sv") > 0) {
        const char* key = "";
        sd_bus_message_read(call, "s", &key);
        const std::string_view option = key;
        if (option == "handle_token") {
            reading.token = readText(call);
        } else if (option == "accept_label") {
            reading.request.acceptLabel = readText(call);
        } else if (option == "directory") {
            reading.request.directory = readFlag(call);
        } else if (option == "multiple") {
            reading.request.multiple = readFlag(call);
        } else if (option == "modal") {
            reading.request.modal = readFlag(call);
        } else {
            reading.request.otherOptions.emplace_back(option);
            sd_bus_message_skip(call, "v");
        }
        sd_bus_message_exit_container(call);
    }
    return reading;
}

} // namespace

FakePortal::FakePortal(const std::string& address, PortalBehaviour behaviour)
    : behaviour_(std::move(behaviour)),
      backend_(behaviour_.fate == Fate::losesBackend
                   ? std::make_unique<FakeService>(address, backendName, FakeService::frozen())
                   : nullptr),
      service_(
          address, "org.freedesktop.portal.Desktop",
          behaviour_.fate == Fate::isFrozen ? FakeService::frozen()
                                            : [this](sd_bus* bus, sd_bus_message* call) { return serve(bus, call); })
{
}

bool FakePortal::serve(sd_bus* bus, sd_bus_message* call)
{
    if (sd_bus_message_is_method_call(call, "org.freedesktop.portal.FileChooser", "OpenFile") <= 0) {
        return true;
    }
    if (behaviour_.fate == Fate::dies) {
        return false;
    }
    if (behaviour_.fate == Fate::refuses) {
        sd_bus_reply_method_errorf(call, SD_BUS_ERROR_UNKNOWN_METHOD, "no file chooser here");
        return true;
    }
    Reading reading = readRequest(call);
    std::string sender = std::string(sd_bus_message_get_sender(call)).substr(1);
    std::replace(sender.begin(), sender.end(), '.', '_');
    const std::string handle = "/org/freedesktop/portal/desktop/request/" + sender + "/" +
                               (behaviour_.requestName.empty() ? reading.token : behaviour_.requestName);
    sd_bus_reply_method_return(call, "o", handle.c_str());
    sd_bus_flush(bus);
    request_.set_value(std::move(reading.request));
    std::this_thread::sleep_for(behaviour_.thinkingTime);
    if (behaviour_.fate == Fate::diesWithDialogOpen) {
        return false;
    }
    if (backend_) {
        backend_->vanish();
        waitUntilGone(bus, backendName);
    }
    answer(bus, handle);
    return true;
}

void FakePortal::answer(sd_bus* bus, const std::string& handle) const
{
    sd_bus_message* response = nullptr;
    sd_bus_message_new_signal(bus, &response, handle.c_str(), "org.freedesktop.portal.Request", "Response");
    sd_bus_message_append(response, "u", behaviour_.code);
    sd_bus_message_open_container(response, 'a', "{sv}");
    // Portals send more than the URIs, and in no particular order.
    sd_bus_message_append(response, "{sv}", "choices", "a(ss)", 1, "encoding", "utf8");
    if (behaviour_.uris) {
        std::vector<char*> uris;
        for (const std::string& uri : *behaviour_.uris) {
            uris.push_back(const_cast<char*>(uri.c_str()));
        }
        uris.push_back(nullptr);
        sd_bus_message_open_container(response, 'e', "sv");
        sd_bus_message_append(response, "s", "uris");
        sd_bus_message_open_container(response, 'v', "as");
        sd_bus_message_append_strv(response, uris.data());
        sd_bus_message_close_container(response);
        sd_bus_message_close_container(response);
    }
    sd_bus_message_close_container(response);
    sd_bus_send(bus, response, nullptr);
    sd_bus_message_unref(response);
}

} // namespace folidex::test
