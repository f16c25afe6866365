// The program starts itself once more, with the test's name as an argument. The process writes events to one temporary
// file, and has another one behind standard output and standard error. It leads a group of its own, which is killed
// when it has ended and when the time is over. A test that isn't done by then has crashed or timed out at its last
// step.
#include "host/check/test.h"

#include "host/base/system.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <sstream>
#include <system_error>
#include <thread>

namespace fmxhost::check {
namespace {

using Clock = std::chrono::steady_clock;
using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// Where the process finds the events' file: out of the way of plug-ins that close or write to the first few
// descriptors.
constexpr int eventsDescriptor = 100;

// How a process ends whose plug-in has closed the descriptor of the events, and everything else with it.
constexpr int eventsLostStatus = 97;

File temporaryFile()
{
    File file(std::tmpfile(), &std::fclose);
    if (!file) {
        throw std::system_error(errno, std::generic_category(), "a temporary file");
    }
    fcntl(fileno(file.get()), F_SETFD, FD_CLOEXEC);
    return file;
}

std::size_t sizeOf(const File& file)
{
    struct stat status = {};
    fstat(fileno(file.get()), &status);
    return static_cast<std::size_t>(status.st_size);
}

std::string endOf(const File& file, std::size_t bytes)
{
    const std::size_t size = sizeOf(file);
    std::string text(std::min(size, bytes), '\0');
    const ssize_t count = pread(fileno(file.get()), text.data(), text.size(), static_cast<off_t>(size - text.size()));
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return text;
}

// Returns the process.
pid_t start(const Test& test, const Options& options, const File& events, const File& output)
{
    const std::string program = executableFile().string();
    const std::string version = std::to_string(options.apiVersion);
    const char* const more = options.libraries.empty() ? nullptr : "--libraries"; // null ends the arguments
    const pid_t child = fork();
    if (child == 0) {
        setpgid(0, 0);
        dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        dup2(fileno(output.get()), STDOUT_FILENO);
        dup2(fileno(output.get()), STDERR_FILENO);
        dup2(fileno(events.get()), eventsDescriptor);
        execl(program.c_str(), "fmxhost", "--plugin", options.plugin.c_str(), "--api", version.c_str(), "check",
              "--isolated", test.name, more, options.libraries.c_str(), nullptr);
        _exit(127);
    }
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    return child;
}

// What waitpid(2) says of a process that didn't come to the end of its test.
std::string endText(int status)
{
    const int code = WEXITSTATUS(status);
    return WIFSIGNALED(status)        ? strsignal(WTERMSIG(status))
           : code == eventsLostStatus ? "every file descriptor of the host's was closed"
                                      : "the process was ended with exit status " + std::to_string(code);
}

// `end`: how the process ended, in case the test didn't.
Result resultOf(std::istringstream events, const std::string& end, bool timedOut)
{
    Result result;
    std::string step;
    bool done = false;
    for (std::string line; std::getline(events, line);) {
        const std::string text = line.substr(1);
        if (line.front() == 's') {
            step = " at " + text;
        } else if (line.front() == 'r') {
            result.reached = std::max(result.reached, static_cast<Stage>(std::stoi(text)));
        } else if (line.front() == 'd') {
            done = true;
        } else {
            const auto verdict = static_cast<Verdict>(line.front());
            result.verdict = std::max(result.verdict, verdict);
            (verdict == Verdict::note ? result.notes : result.reasons).push_back(text);
        }
    }
    if (!done) {
        result.verdict = timedOut ? Verdict::timeOut : Verdict::crash;
        result.reasons.push_back(end + step);
    }
    return result;
}

} // namespace

Result runIsolated(const Test& test, const Options& options)
{
    constexpr std::size_t mostOutput = std::size_t{64} * 1024 * 1024;
    constexpr std::size_t keptOutput = std::size_t{4} * 1024;
    const File events = temporaryFile();
    const File output = temporaryFile();
    const pid_t child = start(test, options, events, output);
    const auto begin = Clock::now();
    std::string end;
    bool timedOut = false;
    for (int status = 0; end.empty();) {
        if (waitpid(child, &status, WNOHANG) != 0) {
            end = endText(status);
        } else if (std::chrono::duration<double>(Clock::now() - begin).count() > options.timeLimit) {
            end = (std::ostringstream() << "no end after " << options.timeLimit << " s").str();
            timedOut = true;
        } else if (sizeOf(output) > mostOutput) {
            end = "it wrote more than 64 MiB";
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    kill(-child, SIGKILL);
    waitpid(child, nullptr, 0); // unless that was done above
    Result result = resultOf(std::istringstream(endOf(events, sizeOf(events))), end, timedOut);
    result.output = endOf(output, keptOutput);
    return result;
}

Examination::Examination(const Options& options, int events) : options_(options), events_(events), process_(getpid()) {}

void Examination::tell(char kind, std::string_view text) const
{
    if (getpid() != process_) {
        _exit(0);
    }
    std::string line{kind};
    line.append(text);
    std::replace(line.begin(), line.end(), '\n', ' ');
    line.push_back('\n');
    if (write(events_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        _exit(eventsLostStatus);
    }
}

Plugin& Examination::loaded()
{
    if (!plugin_) {
        step("loading it and asking for its options string");
        plugin_ = std::make_unique<Plugin>(options_.plugin, options_.apiVersion);
        plugin_->options();
        reach(Stage::loaded);
    }
    return *plugin_;
}

Plugin& Examination::started()
{
    Plugin& plugin = loaded();
    if (!isStarted_) {
        if (!plugin.wantsStartUp()) {
            throw PluginError(PluginError::Kind::refused,
                              "character 8 of the options string is \"n\": FileMaker sends no start-up message, so "
                              "nothing gets registered");
        }
        step("the start-up message");
        plugin.start();
        isStarted_ = true;
        reach(Stage::started);
    }
    return plugin;
}

void Examination::shutDown() const
{
    step("the shut-down message");
    plugin_->shutDown();
    reach(Stage::ended);
}

void Examination::unload()
{
    step("unloading it");
    plugin_->unload();
    plugin_.reset();
    isStarted_ = false;
}

void runHere(const Test& test, const Options& options)
{
#ifdef __linux__
    prctl(PR_SET_PDEATHSIG, SIGKILL); // macOS has nothing of the kind: there the test comes to its own end
#endif
    // Signals that are ignored, blocked or handled by a sanitizer end the process as anywhere else, and none leaves a
    // core file behind.
    for (int number = 1; number < NSIG; ++number) {
        std::signal(number, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    fcntl(eventsDescriptor, F_SETFD, FD_CLOEXEC);
    // Never destroyed: what unloading goes wrong with belongs to the tests of unloading.
    auto& examination = *new Examination(options, eventsDescriptor); // NOLINT
    try {
        test.examine(examination);
    } catch (const Skipped& reason) {
        examination.find(Verdict::skipped, reason.what());
    } catch (const std::exception& error) {
        examination.fail(error.what());
    } catch (...) {
        examination.fail("an exception of an unknown kind came out");
    }
    examination.done();
    _exit(0);
}

} // namespace fmxhost::check
