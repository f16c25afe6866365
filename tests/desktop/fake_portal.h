// The desktop portal's file chooser with a user who always answers the same.
#pragma once

#include "desktop/private_session.h"

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace folidex::test {

struct PortalBehaviour {
    enum class Fate { answers, refuses, dies, diesWithDialogOpen, losesBackend, isFrozen };
    Fate fate = Fate::answers;
    std::uint32_t code = 0;
    std::optional<std::vector<std::string>> uris; // nothing: the answer has none
    std::chrono::milliseconds thinkingTime{};
    std::string requestName; // replaces the token that the caller gave, as portals before 0.9 do
};

// What the portal was asked for.
struct ChooserRequest {
    std::string acceptLabel;
    bool directory = false;
    bool multiple = true;
    bool modal = false;
    std::vector<std::string> otherOptions;
};

class FakePortal {
public:
    FakePortal(const std::string& address, PortalBehaviour behaviour);

    // The first request, once it has come.
    ChooserRequest request() { return request_.get_future().get(); }

private:
    bool serve(sd_bus* bus, sd_bus_message* call);
    void answer(sd_bus* bus, const std::string& handle) const;

    PortalBehaviour behaviour_;
    std::promise<ChooserRequest> request_;
    std::unique_ptr<FakeService> backend_;
    FakeService service_;
};

} // namespace folidex::test
