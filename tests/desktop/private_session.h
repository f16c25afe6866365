// A desktop session of a test's own: environment, message bus, and services that behave as the test wants.
#pragma once

#include "support/scratch_folder.h"

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

namespace folidex::test {

// Sets environment variables and restores them. Not while other threads read the environment.
class Environment {
public:
    Environment() = default;
    ~Environment();
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    void set(const std::string& name, const std::optional<std::string>& value); // nothing: unset

private:
    std::map<std::string, std::optional<std::string>> before_;
};

// A session bus without any services of the machine. The environment points to it, and to a display that isn't used.
class PrivateSession {
public:
    // Throws std::system_error when the daemon can't be started.
    PrivateSession();
    ~PrivateSession();
    PrivateSession(const PrivateSession&) = delete;
    PrivateSession& operator=(const PrivateSession&) = delete;

    // Whether the machine has what a session needs: dbus-daemon(1) and setpriv(1).
    static bool available();

    const std::string& address() const { return address_; }
    const ScratchFolder& folder() const { return folder_; }
    Environment& environment() { return environment_; }
    void signal(int number) const; // to the bus

private:
    ScratchFolder folder_;
    Environment environment_;
    std::string address_;
    pid_t daemon_ = 0;
};

// A service on a bus, served by a thread of its own.
class FakeService {
public:
    // Called on the service's thread for each method call; false ends the service without warning, as a crash does.
    using Handler = std::function<bool(sd_bus* bus, sd_bus_message* call)>;

    // The service has its name when the constructor returns. Throws std::system_error when it can't have it.
    FakeService(const std::string& address, const std::string& name, Handler handler);

    // A service that has its name and answers nothing.
    static Handler frozen();

    void vanish();

private:
    void serve(const std::stop_token& stopped, const Handler& handler);

    std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> bus_;
    std::jthread thread_;
};

// Numbers of a process that a call must leave as they were.
struct ProcessCounts {
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    bool children = false;
    bool operator==(const ProcessCounts&) const = default;
};
ProcessCounts processCounts();
void PrintTo(const ProcessCounts& counts, std::ostream* stream);

} // namespace folidex::test
