// The program starts itself once more, with the test's name as an argument and one pipe behind standard output and
// standard error. Events are marked lines in what comes from there, everything else is the plug-in's own output. The
// process leads a group of its own, which is killed when the test is done, when its process has ended, and when the
// time is over. A test that isn't done by then has crashed or timed out at its last step.
#include "host/check/sandbox.h"

#include "host/base/system.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <sstream>
#include <system_error>
#include <utility>

extern char** environ; // NOLINT(readability-redundant-declaration): POSIX leaves it to programs

namespace fmxhost::check {
namespace {

using Clock = std::chrono::steady_clock;

// What the process writes, taken apart as it comes.
class Transcript {
public:
    void read(std::string_view bytes)
    {
        constexpr std::size_t longestLine = std::size_t{1024} * 1024;
        pending_.append(bytes);
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = pending_.find('\n', begin)) != std::string::npos; begin = end + 1) {
            readLine(std::string_view(pending_).substr(begin, end + 1 - begin));
        }
        pending_.erase(0, begin);
        if (pending_.size() > longestLine) {
            keep(std::exchange(pending_, {}));
        }
    }

    // What came of the test, when its process ended as `end` says.
    Result finish(const std::string& end, bool timedOut)
    {
        keep(pending_);
        if (!done_) {
            result_.verdict = timedOut ? Verdict::timeOut : Verdict::crash;
            result_.reasons.push_back(end + (step_.empty() ? "" : " at " + step_));
        } else if (result_.verdict == Verdict::pass && !result_.notes.empty()) {
            result_.verdict = Verdict::note;
        }
        return std::move(result_);
    }

    bool done() const { return done_; }

private:
    void readLine(std::string_view line)
    {
        const std::size_t mark = line.find('\x1E');
        keep(line.substr(0, mark));
        if (mark != std::string_view::npos && line.size() >= mark + 3) {
            take(static_cast<Event>(line[mark + 1]), std::string(line.substr(mark + 2, line.size() - mark - 3)));
        }
    }

    void take(Event event, std::string text)
    {
        switch (event) {
        case Event::step:
            step_ = std::move(text);
            break;
        case Event::reached:
            result_.reached = std::max(result_.reached, static_cast<Stage>(text.empty() ? 0 : text.front() - '0'));
            break;
        case Event::failure:
        case Event::skipped:
            result_.verdict = event == Event::failure ? Verdict::fail : Verdict::skipped;
            result_.reasons.push_back(std::move(text));
            break;
        case Event::note:
            result_.notes.push_back(std::move(text));
            break;
        case Event::done:
            done_ = true;
            break;
        }
    }

    void keep(std::string_view output)
    {
        constexpr std::size_t limit = std::size_t{4} * 1024;
        result_.output.append(output);
        if (result_.output.size() > limit) {
            result_.output.erase(0, result_.output.size() - limit);
        }
    }

    std::string pending_; // the line that isn't complete
    std::string step_;
    bool done_ = false;
    Result result_;
};

// What waitpid(2) says of a process that didn't come to the end of its test.
std::string endText(int status)
{
    if (WIFSIGNALED(status)) {
        return strsignal(WTERMSIG(status));
    }
    return WEXITSTATUS(status) == eventsLostStatus
               ? "every file descriptor of the host's was closed"
               : "the process was ended with exit status " + std::to_string(WEXITSTATUS(status));
}

std::string timeOutText(std::chrono::duration<double> limit)
{
    std::ostringstream text;
    text << "no end after " << limit.count() << " s";
    return text.str();
}

[[noreturn]] void throwError(int code, const char* what)
{
    throw std::system_error(code, std::generic_category(), what);
}

// Starts this program, writing to `output`. Answers the error number, or 0.
int spawn(const std::vector<std::string>& arguments, int output, pid_t& child)
{
    std::vector<char*> pointers(arguments.size() + 1, nullptr);
    std::transform(arguments.begin(), arguments.end(), pointers.begin(),
                   [](const std::string& argument) { return const_cast<char*>(argument.c_str()); });
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    posix_spawnattr_t attributes{};
    posix_spawnattr_init(&attributes);
    sigset_t signals{};
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    const int error = posix_spawn(&child, executableFile().c_str(), &actions, &attributes, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return error;
}

// Waits for something to read, so many milliseconds at most; at the end of the pipe but a moment. Answers whether there
// was something.
bool readSome(int pipe, int wait, Transcript& transcript)
{
    pollfd waiting{pipe, POLLIN, 0};
    if (poll(&waiting, 1, wait) <= 0) {
        return false;
    }
    std::array<char, 16384> buffer{};
    const ssize_t count = read(pipe, buffer.data(), buffer.size());
    if (count <= 0) {
        poll(nullptr, 0, 1);
        return false;
    }
    transcript.read({buffer.data(), static_cast<std::size_t>(count)});
    return true;
}

bool hasEnded(pid_t child, int& status, int options)
{
    pid_t ended = 0;
    while ((ended = waitpid(child, &status, options)) == -1 && errno == EINTR) {
    }
    return ended == child;
}

} // namespace

bool isFailure(Verdict verdict)
{
    return verdict >= Verdict::fail;
}

Result runIsolated(const Test& test, const Settings& settings)
{
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) {
        throwError(errno, "pipe");
    }
    fcntl(pipe[0], F_SETFD, FD_CLOEXEC);
    fcntl(pipe[1], F_SETFD, FD_CLOEXEC);
    pid_t child = 0;
    std::vector<std::string> arguments{
        "fmxhost",    "--plugin", settings.plugin.string(), "--api", std::to_string(settings.apiVersion), "check",
        "--isolated", test.name};
    if (!settings.libraries.empty()) {
        arguments.insert(arguments.end(), {"--libraries", settings.libraries.string()});
    }
    const int error = spawn(arguments, pipe[1], child);
    close(pipe[1]);
    if (error != 0) {
        close(pipe[0]);
        throwError(error, "posix_spawn");
    }

    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(settings.timeLimit);
    Transcript transcript;
    int status = 0;
    bool ended = false;
    bool timedOut = false;
    while (!transcript.done() && !ended && !timedOut) {
        // The pipe tells of the end, unless the process has left it to others.
        readSome(pipe[0], 50, transcript);
        ended = hasEnded(child, status, WNOHANG);
        timedOut = !ended && Clock::now() >= deadline;
    }
    kill(-child, SIGKILL);
    if (!ended) {
        hasEnded(child, status, 0);
    }
    // What is still in the pipe: all of it, unless a process that left the group goes on writing.
    for (int round = 0; round < 64 && readSome(pipe[0], 0, transcript); ++round) {
    }
    close(pipe[0]);
    return transcript.finish(timedOut ? timeOutText(settings.timeLimit) : endText(status), timedOut);
}

void runHere(const Test& test, const Settings& settings)
{
#ifdef __linux__
    prctl(PR_SET_PDEATHSIG, SIGKILL); // macOS has nothing of the kind: there the test comes to its own end
#endif
    // Signals that a sanitizer handles end the process as anywhere else, and none leaves a core file behind.
    for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGILL, SIGFPE, SIGTRAP}) {
        std::signal(number, SIG_DFL);
    }
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    // Out of the way of plug-ins that close or write to the first few descriptors.
    constexpr int lowest = 100;
    // Never destroyed: what unloading goes wrong with belongs to the tests of unloading.
    auto& examination = *new Examination(settings, fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, lowest)); // NOLINT
    try {
        test.examine(examination);
    } catch (const Skipped& reason) {
        examination.tell(Event::skipped, reason.what());
    } catch (const std::exception& error) {
        examination.fail(error.what());
    } catch (...) {
        examination.fail("an exception of an unknown kind came out");
    }
    examination.tell(Event::done);
    _exit(0);
}

} // namespace fmxhost::check
