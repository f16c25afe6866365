#include "host/check/child.h"

#include "host/check/processes.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

extern char** environ; // NOLINT(readability-redundant-declaration): POSIX leaves it to programs

namespace fmxhost::check {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t reportLimit = std::size_t{4} * 1024 * 1024;
constexpr std::size_t outputLimit = std::size_t{4} * 1024;
// How soon the end of a process is noticed that has closed its descriptors, or left them to others.
constexpr std::chrono::milliseconds tick{50};
constexpr std::chrono::milliseconds shortTick{1}; // when both are closed: it is about to end

[[noreturn]] void throwError(int code, const char* what)
{
    throw std::system_error(code, std::generic_category(), what);
}

class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number_, other.number_);
        return *this;
    }

    int number() const { return number_; }
    void reset()
    {
        if (number_ != -1) {
            close(number_);
        }
        number_ = -1;
    }

private:
    int number_;
};

struct Pipe {
    Descriptor reading;
    Descriptor writing;
};

// Both ends close-on-exec, and above the numbers that the child's descriptors get.
Pipe makePipe()
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) == -1) {
        throwError(errno, "pipe");
    }
    const Descriptor first(ends[0]);
    const Descriptor second(ends[1]);
    constexpr int lowest = reportDescriptor + 1;
    Pipe result{Descriptor(fcntl(first.number(), F_DUPFD_CLOEXEC, lowest)),
                Descriptor(fcntl(second.number(), F_DUPFD_CLOEXEC, lowest))};
    if (result.reading.number() == -1 || result.writing.number() == -1) {
        throwError(errno, "pipe");
    }
    fcntl(result.reading.number(), F_SETFL, O_NONBLOCK);
    return result;
}

// posix_spawn(3)'s two sets of instructions.
class SpawnInstructions {
public:
    SpawnInstructions()
    {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnInstructions()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnInstructions(const SpawnInstructions&) = delete;
    SpawnInstructions& operator=(const SpawnInstructions&) = delete;

    void open(int descriptor, const char* file)
    {
        posix_spawn_file_actions_addopen(&actions_, descriptor, file, O_RDONLY, 0);
    }
    void duplicate(int from, int to) { posix_spawn_file_actions_adddup2(&actions_, from, to); }

    // Errors: std::system_error.
    pid_t spawn(const std::filesystem::path& program, const std::vector<std::string>& arguments) const
    {
        std::vector<char*> pointers;
        pointers.reserve(arguments.size() + 1);
        for (const std::string& argument : arguments) {
            pointers.push_back(const_cast<char*>(argument.c_str()));
        }
        pointers.push_back(nullptr);
        pid_t child = 0;
        const int error = posix_spawn(&child, program.c_str(), &actions_, &attributes_, pointers.data(), environ);
        if (error != 0) {
            throwError(error, program.c_str());
        }
        return child;
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

// What is there to be read now. Closes the descriptor at its end.
void drain(Descriptor& descriptor, std::string& text)
{
    std::array<char, 4096> buffer{};
    while (descriptor.number() != -1) {
        const ssize_t count = read(descriptor.number(), buffer.data(), buffer.size());
        if (count > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
            descriptor.reset();
        } else if (errno == EAGAIN) {
            return;
        }
        if (text.size() > reportLimit) {
            return; // a process that never stops writing mustn't keep its time limit from being seen
        }
    }
}

void keepBeginning(std::string& text)
{
    text.resize(std::min(text.size(), reportLimit));
}

void keepEnd(std::string& text)
{
    if (text.size() > outputLimit) {
        text.erase(0, text.size() - outputLimit);
        text.erase(0, text.find('\n') + 1); // an npos leaves it as it is
    }
}

// Whether the child has ended; it isn't reaped yet, so that its number stays its own.
bool hasEnded(pid_t child)
{
    siginfo_t information{};
    return waitid(P_PID, static_cast<id_t>(child), &information, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           information.si_pid == child;
}

ChildEnd reap(pid_t child, bool timedOut)
{
    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return {timedOut, WIFSIGNALED(status) ? WTERMSIG(status) : 0, WIFEXITED(status) ? WEXITSTATUS(status) : 0};
}

ChildEnd readToTheEnd(pid_t child, Descriptor report, Descriptor standard, Clock::time_point deadline,
                      ChildOutput& output)
{
    bool timedOut = false;
    while (!timedOut && !hasEnded(child)) {
        std::array<pollfd, 2> waiting{{{report.number(), POLLIN, 0}, {standard.number(), POLLIN, 0}}};
        const bool bothClosed = report.number() == -1 && standard.number() == -1;
        poll(waiting.data(), waiting.size(), static_cast<int>((bothClosed ? shortTick : tick).count()));
        drain(report, output.report);
        keepBeginning(output.report);
        drain(standard, output.standard);
        keepEnd(output.standard);
        timedOut = Clock::now() >= deadline;
    }
    kill(-child, SIGKILL); // it isn't reaped yet, so the number is still its group's
    drain(report, output.report);
    keepBeginning(output.report);
    drain(standard, output.standard);
    keepEnd(output.standard);
    const ChildEnd end = reap(child, timedOut);
    endChildProcesses(); // those that left the group
    return end;
}

} // namespace

ChildEnd runChild(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                  std::chrono::duration<double> timeLimit, ChildOutput& output)
{
    adoptOrphans();
    Pipe report = makePipe();
    Pipe standard = makePipe();
    SpawnInstructions instructions;
    instructions.open(STDIN_FILENO, "/dev/null");
    instructions.duplicate(standard.writing.number(), STDOUT_FILENO);
    instructions.duplicate(standard.writing.number(), STDERR_FILENO);
    instructions.duplicate(report.writing.number(), reportDescriptor);
    const pid_t child = instructions.spawn(program, arguments);
    report.writing.reset();
    standard.writing.reset();
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(timeLimit);
    return readToTheEnd(child, std::move(report.reading), std::move(standard.reading), deadline, output);
}

} // namespace fmxhost::check
