#include "desktop/private_session.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <system_error>
#include <vector>

namespace folidex::test {

namespace {

constexpr const char* busDaemon = "/usr/bin/dbus-daemon";
constexpr const char* parentBound = "/usr/bin/setpriv"; // setpriv(1)

[[noreturn]] void throwError(int error, const char* what)
{
    throw std::system_error(error, std::generic_category(), what);
}

std::string busConfiguration(const std::string& socket)
{
    return R"(<busconfig>
  <type>session</type>
  <listen>unix:path=)" +
           socket + R"(</listen>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";
}

std::size_t entriesOf(const char* folder)
{
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()));
}

} // namespace

Environment::~Environment()
{
    for (const auto& [name, value] : before_) {
        value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
    }
}

void Environment::set(const std::string& name, const std::optional<std::string>& value)
{
    const char* now = std::getenv(name.c_str());
    before_.try_emplace(name, now != nullptr ? std::optional<std::string>(now) : std::nullopt);
    value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
}

bool PrivateSession::available()
{
    return access(busDaemon, X_OK) == 0 && access(parentBound, X_OK) == 0;
}

PrivateSession::PrivateSession()
{
    const std::string socket = folder_.text("bus");
    const std::string configuration = "--config-file=" + folder_.write("bus.conf", busConfiguration(socket)).string();
    address_ = "unix:path=" + socket;
    environment_.set("DBUS_SESSION_BUS_ADDRESS", address_);
    environment_.set("XDG_RUNTIME_DIR", folder_.text());
    environment_.set("DISPLAY", ":99");
    environment_.set("WAYLAND_DISPLAY", std::nullopt);

    // It prints its address once it listens.
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throwError(errno, "pipe2");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0); // it complains about limits
    // A test that is killed takes its bus along.
    std::string words[] = {parentBound,  "--pdeathsig",       "KILL",       busDaemon, "--nofork", "--nopidfile",
                           "--nosyslog", "--print-address=1", configuration};
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const int error = posix_spawn(&daemon_, parentBound, &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    char printed = 0;
    const bool listens = error == 0 && read(ends[0], &printed, 1) == 1;
    close(ends[0]);
    if (!listens) {
        throwError(error != 0 ? error : ECONNREFUSED, busDaemon);
    }
}

PrivateSession::~PrivateSession()
{
    signal(SIGKILL);
    while (waitpid(daemon_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void PrivateSession::signal(int number) const
{
    kill(daemon_, number);
}

FakeService::FakeService(const std::string& address, const std::string& name, Handler handler)
    : bus_(nullptr, sd_bus_close_unref)
{
    sd_bus* bus = nullptr;
    int result = sd_bus_new(&bus);
    bus_.reset(bus);
    result = result < 0 ? result : sd_bus_set_address(bus, address.c_str());
    result = result < 0 ? result : sd_bus_set_bus_client(bus, 1);
    result = result < 0 ? result : sd_bus_start(bus);
    result = result < 0 ? result : sd_bus_request_name(bus, name.c_str(), 0);
    if (result < 0) {
        throwError(-result, name.c_str());
    }
    if (handler) {
        thread_ = std::jthread(
            [this, handle = std::move(handler)](const std::stop_token& stopped) { serve(stopped, handle); });
    }
}

FakeService::Handler FakeService::frozen()
{
    return {};
}

void FakeService::vanish()
{
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
    }
    bus_.reset();
}

void FakeService::serve(const std::stop_token& stopped, const Handler& handler)
{
    while (!stopped.stop_requested()) {
        sd_bus_message* message = nullptr;
        const int processed = sd_bus_process(bus_.get(), &message);
        const bool goesOn = message == nullptr || sd_bus_message_is_method_call(message, nullptr, nullptr) <= 0 ||
                            handler(bus_.get(), message);
        sd_bus_message_unref(message);
        if (!goesOn || processed < 0) {
            bus_.reset();
            return;
        }
        if (processed == 0) {
            sd_bus_wait(bus_.get(), 20'000);
        }
    }
}

ProcessCounts processCounts()
{
    siginfo_t child{};
    const bool children = waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) == 0 && child.si_pid != 0;
    return {entriesOf("/proc/self/task"), entriesOf("/proc/self/fd"), children};
}

void PrintTo(const ProcessCounts& counts, std::ostream* stream)
{
    *stream << counts.threads << " threads, " << counts.descriptors << " descriptors, "
            << (counts.children ? "a zombie" : "no zombie");
}

} // namespace folidex::test
