#include "host/check/isolated_run.h"

#include "host/check/child.h"
#include "host/check/system.h"
#include "host/check/tests.h"
#include "host/base/system.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <utility>

namespace fmxhost::check {
namespace {

// What the events say, and where the test had got to.
class EventReader {
public:
    explicit EventReader(RunResult& result) : result_(result) {}

    // The plug-in may have written to the descriptor too: what isn't an event is left out.
    void read(std::string_view lines)
    {
        while (!lines.empty()) {
            const std::size_t end = lines.find('\n');
            readLine(lines.substr(0, end));
            lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
        }
    }

    bool done() const { return done_; }
    const std::string& step() const { return step_; }

private:
    void readLine(std::string_view line)
    {
        const auto object = nlohmann::json::parse(line, nullptr, false);
        if (!object.is_object() || object.size() != 1 || !object.begin()->is_string()) {
            return;
        }
        take(object.begin().key(), object.begin()->get<std::string>());
    }

    void take(std::string_view kind, std::string text)
    {
        if (kind == event::step) {
            step_ = std::move(text);
        } else if (kind == event::reached) {
            result_.reached = std::max(result_.reached, stageOf(text));
        } else if (kind == event::failure) {
            result_.reasons.push_back(std::move(text));
            result_.verdict = Verdict::fail;
        } else if (kind == event::note) {
            result_.notes.push_back(std::move(text));
        } else if (kind == event::skipped) {
            result_.reasons.push_back(std::move(text));
            result_.verdict = Verdict::skipped;
        } else if (kind == event::done) {
            done_ = true;
        }
    }

    static Stage stageOf(std::string_view name)
    {
        constexpr std::array stages{Stage::loaded, Stage::started, Stage::ended};
        const auto* found =
            std::find_if(stages.begin(), stages.end(), [name](Stage stage) { return stageName(stage) == name; });
        return found != stages.end() ? *found : Stage::file;
    }

    RunResult& result_;
    std::string step_;
    bool done_ = false;
};

std::string signalName(int number)
{
    constexpr std::array<std::pair<int, const char*>, 12> names{{{SIGSEGV, "SIGSEGV"},
                                                                 {SIGABRT, "SIGABRT"},
                                                                 {SIGBUS, "SIGBUS"},
                                                                 {SIGILL, "SIGILL"},
                                                                 {SIGFPE, "SIGFPE"},
                                                                 {SIGTRAP, "SIGTRAP"},
                                                                 {SIGSYS, "SIGSYS"},
                                                                 {SIGPIPE, "SIGPIPE"},
                                                                 {SIGKILL, "SIGKILL"},
                                                                 {SIGTERM, "SIGTERM"},
                                                                 {SIGHUP, "SIGHUP"},
                                                                 {SIGALRM, "SIGALRM"}}};
    for (const auto& [known, name] : names) {
        if (known == number) {
            return name;
        }
    }
    return "signal " + std::to_string(number);
}

std::string secondsText(std::chrono::duration<double> time)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g", time.count());
    return text.data();
}

// How a process that didn't finish its test ended.
std::string endText(const ChildEnd& end, std::chrono::duration<double> timeLimit)
{
    if (end.timedOut) {
        return "no end after " + secondsText(timeLimit) + " s";
    }
    if (end.signal == 0 && end.exitStatus == eventsLostStatus) {
        return "every file descriptor of the host's was closed";
    }
    return end.signal != 0 ? signalName(end.signal)
                           : "the process was ended with exit status " + std::to_string(end.exitStatus);
}

void judge(RunResult& result, const EventReader& events, const ChildEnd& end, const RunOptions& options)
{
    if (!events.done()) {
        result.verdict = end.timedOut ? Verdict::timeOut : Verdict::crash;
        result.reasons.push_back(endText(end, options.timeLimit) +
                                 (events.step().empty() ? "" : " at " + events.step()));
    } else if (result.verdict == Verdict::pass && !result.notes.empty()) {
        result.verdict = Verdict::note;
    }
}

// Signals that a sanitizer handles end the process as anywhere else, and none leaves a core file behind.
void endPlainlyOnSignals()
{
    for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGILL, SIGFPE, SIGTRAP}) {
        std::signal(number, SIG_DFL);
    }
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

void examine(const Test& test, Examination& examination, const EventWriter& events)
{
    try {
        test.examine(examination);
    } catch (const Skipped& reason) {
        events.write(event::skipped, reason.what());
    } catch (const std::exception& error) {
        events.write(event::failure, error.what());
    } catch (...) {
        events.write(event::failure, "an exception of an unknown kind came out");
    }
}

} // namespace

const char* verdictName(Verdict verdict)
{
    switch (verdict) {
    case Verdict::pass:
        return "pass";
    case Verdict::note:
        return "note";
    case Verdict::skipped:
        return "skipped";
    case Verdict::fail:
        return "fail";
    case Verdict::crash:
        return "crash";
    default:
        return "timeout";
    }
}

bool isFailure(Verdict verdict)
{
    return verdict == Verdict::fail || verdict == Verdict::crash || verdict == Verdict::timeOut;
}

RunResult runIsolated(const Test& test, const RunOptions& options)
{
    const std::vector<std::string> arguments{
        "fmxhost",    "--plugin", options.plugin.string(), "--api", std::to_string(options.apiVersion), "check",
        "--isolated", test.name};
    ChildOutput output;
    const ChildEnd end = runChild(executableFile(), arguments, options.timeLimit, output);
    RunResult result;
    EventReader events(result);
    events.read(output.report);
    judge(result, events, end, options);
    result.output = std::move(output.standard);
    return result;
}

void runHere(const Test& test, const std::filesystem::path& plugin, std::int16_t apiVersion)
{
    endWithParent();
    endPlainlyOnSignals();
    // Out of the way, as far as the process may have so many: plug-ins that close or write to the first few descriptors
    // do no harm then.
    constexpr int lowest = 100;
    int descriptor = fcntl(reportDescriptor, F_DUPFD_CLOEXEC, lowest);
    if (descriptor == -1) {
        descriptor = fcntl(reportDescriptor, F_DUPFD_CLOEXEC, reportDescriptor + 1);
    }
    close(reportDescriptor);

    const EventWriter events(descriptor);
    {
        // Never destroyed: what unloading goes wrong with belongs to the tests of unloading.
        auto& examination = *new Examination(plugin, apiVersion, events); // NOLINT
        examine(test, examination, events);
    }
    events.write(event::done, "");
    _exit(0);
}

} // namespace fmxhost::check
