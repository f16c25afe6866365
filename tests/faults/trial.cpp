#include "faults/trial.h"

#include "faults/injector_access.h"
#include "faults/tree_snapshot.h"
#include "support/child_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <sstream>
#include <vector>

namespace folidex::test {
namespace {

constexpr unsigned patience = 60; // seconds that one trial may take
constexpr int mostDescriptors = 256;

struct Fault {
    int error;
    bool isTransparent = false; // the call is repeated or goes on, and nobody notices
    bool isReported = false;    // the function has to fail
};

struct CallFaults {
    Call call;
    const char* name;
    std::vector<Fault> faults;
};

const std::vector<CallFaults>& faultTable()
{
    constexpr Fault interrupted{EINTR, true};
    constexpr Fault cutShort{shortCount, true};
    const auto reported = [](int error) { return Fault{error, false, true}; };
    static const std::vector<CallFaults> table{
        {Call::allocate, "malloc", {{ENOMEM}}},
        {Call::open, "open", {{EACCES}, {EMFILE}, {EIO}, {ENOMEM}, interrupted}},
        {Call::create, "open O_CREAT", {{EACCES}, {EMFILE}, {ENOSPC}, {EIO}, interrupted}},
        {Call::unnamed, "open O_TMPFILE", {{EACCES}, {EMFILE}, {ENOSPC}, {EOPNOTSUPP, true}, interrupted}},
        {Call::read, "read", {reported(EIO), interrupted, cutShort}},
        {Call::write, "write", {reported(ENOSPC), reported(EIO), interrupted, cutShort}},
        {Call::copyRange, "copy_file_range", {{ENOSPC}, {EIO, true}, {ENOSYS, true}, interrupted, cutShort}},
        {Call::clone, "ioctl FICLONE", {{EIO, true}, {EOPNOTSUPP, true}, {ENOSPC, true}, interrupted}},
        {Call::link, "linkat", {{EACCES}, {ENOSPC}, {EIO}}},
        {Call::rename, "renameat2", {{EACCES}, {ENOSPC}, {EIO}, {EINVAL, true}}},
        {Call::renamePlain, "renameat", {{EACCES}, {ENOSPC}, {EIO}}},
        {Call::unlink, "unlinkat", {{EACCES}, {EIO}}},
        {Call::makeFolder, "mkdirat", {{EACCES}, {ENOSPC}, {EIO}}},
        {Call::makeSpecial, "symlinkat, mknodat", {{EACCES}, {ENOSPC}, {EIO}}},
        {Call::readLink, "readlinkat", {{EACCES}, {EIO}}},
        {Call::listFolder, "getdents64", {reported(EIO), reported(ENOMEM), interrupted}},
        {Call::statx, "statx", {{EACCES}, {EIO}, {ENOMEM}}},
        {Call::stat, "fstat, fstatat", {{EACCES}, {EIO}, {ENOMEM}}},
        {Call::volumeSpace, "statvfs", {{EACCES}, {EIO}, interrupted}},
        {Call::access, "access", {{EACCES}, {EIO}}},
        {Call::changeMode, "fchmod", {{EACCES}, {EIO}, {ENOSPC}}},
        {Call::changeOwner, "fchown", {{EACCES}, {EPERM}, {EIO}}},
        {Call::changeTimes, "futimens, utimensat", {{EACCES}, {EIO}}},
        {Call::setAttribute, "fsetxattr", {{EACCES}, {ENOSPC}, {EIO}}},
        {Call::readAttribute, "flistxattr, fgetxattr", {{EACCES}, {EIO}}},
        {Call::removeAttribute, "fremovexattr", {{EACCES}, {EIO}}},
        {Call::flush, "fsync, syncfs", {reported(EIO), reported(ENOSPC), interrupted}},
        {Call::truncate, "ftruncate", {reported(EIO), reported(ENOSPC), interrupted}},
        {Call::seek, "lseek", {{EIO}, {EINVAL}}},
        {Call::controlDescriptor, "fcntl", {{EMFILE}, {EACCES}}},
        {Call::memoryFile, "memfd_create", {{EMFILE}, {ENOMEM}, {EACCES}}},
        {Call::random, "getrandom", {{EAGAIN, true}, interrupted}},
        {Call::changeFolder, "chdir", {{EACCES}, {EIO}}},
        {Call::openStream, "fopen", {{EACCES}, {EMFILE}, {ENOSPC}}},
        {Call::openPipe, "popen", {{EMFILE}, {ENOMEM}, {EAGAIN}}},
        {Call::closePipe, "pclose", {{ECHILD}}},
        {Call::makePipe, "pipe2", {{EMFILE}}},
        {Call::spawn, "posix_spawn", {{EAGAIN}, {ENOMEM}, {EACCES}}},
        {Call::waitChild, "waitpid", {{ECHILD, true}, {EIO, true}, {ENOMEM, true}, interrupted}},
        {Call::poll, "poll", {{ENOMEM}, interrupted}},
    };
    return table;
}

struct Injection {
    const CallFaults* call;
    unsigned at;
    Fault fault;
};

struct CallResult {
    std::string answer;
    bool isError = false;
    bool threw = false;
    bool threwSomethingElse = false; // than for want of memory
    int code = 0;
    FaultReport report;
};

bool isPermissionLoss(const Injection& injection)
{
    return (injection.fault.error == EACCES || injection.fault.error == EPERM) &&
           (injection.call->call == Call::changeMode || injection.call->call == Call::changeOwner ||
            injection.call->call == Call::changeTimes);
}

std::vector<int> openDescriptors()
{
    std::vector<int> open;
    for (int number = 0; number < mostDescriptors; ++number) {
        if (fcntl(number, F_GETFD) >= 0) {
            open.push_back(number);
        }
    }
    return open;
}

class ScenarioRun {
public:
    ScenarioRun(const Scenario& scenario, const PluginUnderTest& plugin, const Places& places)
        : m_scenario(scenario), m_plugin(plugin), m_places(places), m_plan(planFor(plugin))
    {
        m_plan.denied = scenario.denied;
        m_plan.deniedError = scenario.deniedError;
    }

    void runUndisturbed();
    std::vector<Injection> injections(Extent extent) const;

    // In a process of its own: "" when the injection couldn't be made, "held", or what is wrong.
    std::string attempt(const Injection& injection) const;

private:
    Snapshot build() const;
    CallResult call(const FaultPlan& plan) const;
    std::string judge(const Injection& injection, const CallResult& result, const Snapshot& before) const;
    std::string judgeSuccess(const Injection& injection, const CallResult& result, const Snapshot& now) const;
    bool mayLeave(const Snapshot& before, const Snapshot& now, bool threw) const;

    const Scenario& m_scenario;
    const PluginUnderTest& m_plugin;
    const Places& m_places;
    Injector m_injector;
    FaultPlan m_plan;
    CallResult m_undisturbed;
    Snapshot m_after;
};

Snapshot ScenarioRun::build() const
{
    if (chdir("/") != 0) {
        throw std::runtime_error("chdir");
    }
    buildTree(m_places);
    if (m_scenario.prepare) {
        m_scenario.prepare(m_places);
    }
    if (m_scenario.logs) {
        setenv("HOME", m_places.home.c_str(), 1);
        m_plugin.call("KORB_LogSet", {u"1"});
    }
    return takeSnapshot(m_places.folders());
}

// As fmxhost::Plugin::call, with faults around the handler alone.
CallResult ScenarioRun::call(const FaultPlan& plan) const
{
    const auto* function = m_plugin.plugin().find(fmxhost::Value(m_scenario.function).text());
    const fmx::ExprEnvUniquePtr environment;
    const fmx::DataVectUniquePtr arguments;
    for (const std::string& argument : m_scenario.arguments(m_places)) {
        arguments->PushBack(fmxhost::Value(argument).data());
    }
    fmx::DataUniquePtr value;
    CallResult result;
    m_injector.arm(&plan);
    try {
        function->handler(function->id, *environment, *arguments, *value);
    } catch (const std::bad_alloc&) {
        result.threw = true;
    } catch (...) {
        result.threw = result.threwSomethingElse = true;
    }
    result.report = m_injector.disarm();
    if (!result.threw) {
        const fmxhost::Value answer(std::move(value));
        result.answer = answer.type() == fmxhost::ValueType::timestamp ? isoText(answer.timestamp()) : answer.utf8();
        result.isError = result.answer == "!!ERROR!!";
        result.code = m_plugin.lastErrorNumber();
    }
    return result;
}

// Twice: the first call makes what stays in memory.
void ScenarioRun::runUndisturbed()
{
    for (int run = 0; run < 2; ++run) {
        build();
        m_undisturbed = call(m_plan);
        m_after = takeSnapshot(m_places.folders());
        m_plugin.call("KORB_LogSet", {u"0"});
    }
    if (m_undisturbed.threw || (m_undisturbed.isError && m_undisturbed.code == 0)) {
        throw std::runtime_error("the undisturbed call fails");
    }
}

std::vector<Injection> ScenarioRun::injections(Extent extent) const
{
    std::vector<Injection> list;
    for (const CallFaults& entry : faultTable()) {
        const unsigned calls =
            entry.call == m_scenario.denied ? 0 : m_undisturbed.report.calls[static_cast<std::size_t>(entry.call)];
        // A script takes a tenth of a second, so not each of the many allocations is worth one.
        const unsigned step = m_scenario.runsScript && entry.call == Call::allocate ? 8 : 1;
        for (unsigned at = 1; at <= calls; at += step) {
            for (const Fault& fault : entry.faults) {
                list.push_back({&entry, at, fault});
            }
        }
    }
    if (extent == Extent::sampled) {
        const std::size_t step = m_scenario.runsScript ? 12 : 7;
        std::vector<Injection> sample;
        for (std::size_t i = m_scenario.name.size() % step; i < list.size(); i += step) {
            sample.push_back(list[i]);
        }
        return sample;
    }
    return list;
}

bool ScenarioRun::mayLeave(const Snapshot& before, const Snapshot& now, bool threw) const
{
    if (now == before || (threw && now == m_after)) {
        return true;
    }
    if (m_scenario.leaves == Leaves::targetGone) {
        Snapshot without = before;
        without.erase(m_scenario.target(m_places));
        return now == without;
    }
    if (m_scenario.leaves == Leaves::part && isBetween(before, now, m_after)) {
        return !m_scenario.source || holdsAll(now, before, m_scenario.source(m_places)) ||
               holdsAll(now, m_after, m_scenario.target(m_places));
    }
    return false;
}

std::string ScenarioRun::judgeSuccess(const Injection& injection, const CallResult& result, const Snapshot& now) const
{
    if (result.isError || result.code != 0) {
        return "a fault that nobody should notice gives error " + std::to_string(result.code);
    }
    const auto& lookingAt = m_scenario.otherAnswerTo;
    const bool mayDiffer =
        lookingAt.empty() || std::find(lookingAt.begin(), lookingAt.end(), injection.call->call) != lookingAt.end();
    const bool otherAnswer = m_scenario.isOtherAnswer && (mayDiffer || injection.fault.isTransparent) &&
                             m_scenario.isOtherAnswer(result.answer, m_undisturbed.answer);
    if (result.answer != m_undisturbed.answer && !otherAnswer) {
        return "answers " + result.answer + " instead of " + m_undisturbed.answer;
    }
    const bool isRight =
        now == m_after || (isPermissionLoss(injection) && sameEssence(now, m_after)) || m_scenario.codes.empty();
    return isRight ? "held" : "success, but\n" + differences(m_after, now);
}

std::string ScenarioRun::judge(const Injection& injection, const CallResult& result, const Snapshot& before) const
{
    const Snapshot now = takeSnapshot(m_places.folders());
    for (const auto& entry : now) {
        if (entry.first.find("/.folidex-") != std::string::npos) {
            return "left " + entry.first;
        }
    }
    if (result.report.temporaryFile[0] != '\0' && access(result.report.temporaryFile.data(), F_OK) == 0) {
        return std::string("left ") + result.report.temporaryFile.data();
    }
    if (injection.fault.isReported && !result.isError) {
        return "nobody is told";
    }
    if (result.threw) {
        if (result.threwSomethingElse || injection.call->call != Call::allocate) {
            return "an exception left the handler";
        }
        return mayLeave(before, now, true) ? "held" : "an exception leaves\n" + differences(before, now);
    }
    if (m_undisturbed.isError && result.isError && result.code == m_undisturbed.code && now == m_after) {
        return "held";
    }
    if (!result.isError || injection.fault.isTransparent) {
        return judgeSuccess(injection, result, now);
    }
    if (std::find(m_scenario.codes.begin(), m_scenario.codes.end(), result.code) == m_scenario.codes.end()) {
        return "error " + std::to_string(result.code) + " isn't among the function's";
    }
    const std::string told = m_plugin.lastErrorText();
    return mayLeave(before, now, false) ? "held" : "error (" + told + ") leaves\n" + differences(before, now);
}

std::string ScenarioRun::attempt(const Injection& injection) const
{
    alarm(patience);
    const Snapshot before = build();
    FaultPlan plan = m_plan;
    plan.call = injection.call->call;
    plan.at = injection.at;
    plan.error = injection.fault.error;
    const std::vector<int> descriptors = openDescriptors();
    const CallResult result = call(plan);
    if (!result.report.struck) {
        return {};
    }
    if (openDescriptors() != descriptors) {
        return "descriptors are left open";
    }
    if (waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD) {
        return "a child process is left";
    }
    std::string verdict = judge(injection, result, before);
    if (verdict == "held" && m_plugin.call("KORB_Version", {u"short"}).utf8() != "5.0.2.1") {
        return "the plug-in doesn't answer afterwards";
    }
    return verdict;
}

std::string describe(const Injection& injection)
{
    std::ostringstream text;
    text << injection.call->name << " " << injection.at << ": ";
    if (injection.fault.error == shortCount) {
        text << "short";
    } else {
        text << strerrorname_np(injection.fault.error);
    }
    return text.str();
}

} // namespace

const char* nameOf(Call call)
{
    for (const CallFaults& entry : faultTable()) {
        if (entry.call == call) {
            return entry.name;
        }
    }
    return "";
}

Tally tryScenario(const Scenario& scenario, const PluginUnderTest& plugin, const Places& places, Extent extent)
{
    ScenarioRun run(scenario, plugin, places);
    run.runUndisturbed();
    Tally tally;
    for (const Injection& injection : run.injections(extent)) {
        const std::string verdict = inChild([&] { return run.attempt(injection); });
        if (verdict.empty()) {
            ++tally.missed;
            continue;
        }
        ++tally.injections;
        ++tally.byCall[static_cast<std::size_t>(injection.call->call)];
        if (verdict == "held") {
            ++tally.held;
        } else {
            tally.faults.append("  ").append(scenario.name).append(", ").append(describe(injection)).append(": ");
            tally.faults.append(verdict).append("\n");
        }
    }
    return tally;
}

} // namespace folidex::test
