// Opens a file with the user's application for it through the desktop's own opener: gio(1), else xdg-open(1).
//
// An opener may live as long as the application does (xdg-open runs some in the foreground). It must then neither be
// killed nor become a zombie of the host, and its status must arrive although the host may ignore SIGCHLD or reap all
// children itself. So it isn't a child of the host: setsid(1) leaves at once and hands it to init, in a session of its
// own that no signal of the host's terminal reaches, and a shell reports its exit status through a pipe.

#include "platform/desktop.h"
#include "platform/linux/desktop/session.h"
#include "platform/linux/desktop/uri.h"
#include "platform/posix/descriptor.h"
#include "platform/unicode.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

namespace {

using namespace linux_os;
using posix::Descriptor;
using posix::retried;

constexpr int statusDescriptor = 3;
// Runs its arguments as they are, without the pipe, and reports how they ended.
constexpr const char* statusScript = R"("$@" 3>&-; echo "$?" >&3)";

std::string searchPath()
{
    if (const char* path = secure_getenv("PATH")) {
        return path;
    }
    return "/usr/local/bin:/usr/bin:/bin";
}

// Absolute path of an executable on the user's search path; empty when there is none. Relative entries are passed
// over: the host's current folder isn't a place to run programs from.
std::string findProgram(std::string_view name)
{
    const std::string path = searchPath();
    std::string_view folders = path;
    while (!folders.empty()) {
        const std::size_t end = std::min(folders.find(':'), folders.size());
        std::string candidate = std::string(folders.substr(0, end)).append("/").append(name);
        struct stat status {};
        if (candidate.front() == '/' && end > 0 && stat(candidate.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
            access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
        folders.remove_prefix(std::min(end + 1, folders.size()));
    }
    return {};
}

// The opener with its arguments; empty when the desktop has none. A leading "./" keeps a relative path from being read
// as an option ("-x") or a URI ("http:x").
std::vector<std::string> openerCommand(const std::string& path)
{
    const std::string argument = path.front() == '/' ? path : "./" + path;
    if (const std::string gio = findProgram("gio"); !gio.empty()) {
        return {gio, "open", argument};
    }
    if (const std::string xdgOpen = findProgram("xdg-open"); !xdgOpen.empty()) {
        return {xdgOpen, argument};
    }
    return {};
}

// What a program starts with: nothing of the host's but the pipe, no blocked or ignored signals.
class SpawnSettings {
public:
    explicit SpawnSettings(int statusPipe)
    {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        // The pipe first: in a host without standard streams it may have one of their numbers.
        posix_spawn_file_actions_adddup2(&actions_, statusPipe, statusDescriptor);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDWR, 0);
        posix_spawn_file_actions_adddup2(&actions_, STDIN_FILENO, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, STDIN_FILENO, STDERR_FILENO);
        posix_spawn_file_actions_addclosefrom_np(&actions_, statusDescriptor + 1);

        sigset_t signals;
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&attributes_, &signals);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&attributes_, &signals);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }

    const posix_spawn_file_actions_t* actions() const { return &actions_; }
    const posix_spawnattr_t* attributes() const { return &attributes_; }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

// Starts the command on its own; its exit status will be written to `statusPipe` as a decimal number and a line end.
bool startDetached(const std::vector<std::string>& command, int statusPipe)
{
    std::vector<std::string> words{"setsid", "--fork", "/bin/sh", "-c", statusScript, "sh"};
    words.insert(words.end(), command.begin(), command.end());
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);

    const SpawnSettings settings(statusPipe);
    pid_t starter = 0;
    if (posix_spawn(&starter, "/usr/bin/setsid", settings.actions(), settings.attributes(), arguments.data(),
                    environ) != 0) {
        return false;
    }
    // It forks and leaves. ECHILD, where the host has children reaped otherwise, serves as well: it has left then.
    while (waitpid(starter, nullptr, 0) == -1 && errno != ECHILD) {
    }
    return true;
}

// What the shell reported; nothing when the opener is still running at the deadline. An end without a report, as when
// the shell was killed, counts as a failure.
std::optional<int> reportedStatus(int pipe, Deadline deadline)
{
    constexpr int noReport = -1;
    std::string report;
    for (;;) {
        pollfd ready{pipe, POLLIN, 0};
        const int events = retried([&] { return poll(&ready, 1, millisecondsUntil(deadline)); });
        if (events <= 0) {
            return events == 0 ? std::nullopt : std::optional(noReport);
        }
        std::array<char, 16> buffer{};
        const ssize_t count = retried([&] { return read(pipe, buffer.data(), buffer.size()); });
        if (count <= 0) {
            return noReport;
        }
        report.append(buffer.data(), static_cast<std::size_t>(count));
        if (report.ends_with('\n')) {
            return std::atoi(report.c_str());
        }
    }
}

} // namespace

bool openWithDefaultApplication(PathView path)
{
    const std::optional<std::string> file = fileSystemRepresentation(path);
    if (!hasDisplay() || !file || file->empty()) {
        return false;
    }
    const Deadline deadline = answerDeadline();
    const std::vector<std::string> command = openerCommand(*file);
    std::array<int, 2> ends{};
    if (command.empty() || pipe2(ends.data(), O_CLOEXEC) != 0) {
        return false;
    }
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    if (!startDetached(command, writing.get())) {
        return false;
    }
    writing.close();
    // An opener that is still running hasn't failed: it waits for the application that it started.
    return reportedStatus(reading.get(), deadline).value_or(0) == 0;
}

} // namespace platform
