// Makes every call that the plug-in makes fail, function by function, and looks at what comes of it: once, from then on
// always, and together with a second call that fails later.
//
// A scenario is run undisturbed first, which tells its calls and its outcome. Then each fault is tried in a process of
// its own: the tree is built, the call made, and what stands afterwards is held against what stood before and what the
// undisturbed call left. All faults with FOLIDEX_FULL in the environment, otherwise a sample. The number of faults of a
// run is printed at its end.

#include "faults/fault_injector.h"
#include "faults/scenarios.h"
#include "support/child_process.h"
#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"
#include "support/tree_snapshot.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>
#include <set>
#include <sstream>

namespace folidex::test {
namespace {

constexpr unsigned patience = 300;     // seconds that one trial may take
constexpr unsigned shortScenario = 60; // calls, at most, of one that pairs of faults are tried on

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

constexpr Fault interrupted{EINTR, true};
constexpr Fault cutShort{shortCount, true};

constexpr Fault reported(int error)
{
    return {error, false, true};
}

const CallFaults faultTable[] = {
    {Call::allocate, "malloc", {{ENOMEM}}},
    {Call::open, "open", {{EACCES}, {EMFILE}, {EIO}, {ENOMEM}, interrupted}},
    {Call::create, "open O_CREAT", {{EACCES}, {EMFILE}, {ENOSPC}, {EIO}, interrupted}},
    {Call::unnamed, "open O_TMPFILE", {{EACCES}, {EMFILE}, {ENOSPC}, {EOPNOTSUPP, true}, interrupted}},
    {Call::close, "close", {{ENOSPC}, {EIO}}},
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
    {Call::waitChild, "waitpid", {{ECHILD, true}, interrupted}},
    {Call::poll, "poll", {{ENOMEM}, interrupted}},
};
static_assert(std::size(faultTable) == callCount);

enum class Kind { once, lasting, pair };

struct Injection {
    Call call;
    unsigned at;
    Fault fault;
    Kind kind = Kind::once;
    unsigned secondAt = 0;
};

// What a run came to, shared with its child processes.
struct Tally {
    unsigned scenarios = 0;
    unsigned byKind[3]{};
    unsigned byCall[callCount]{};
    unsigned held = 0;
};

Tally& tally()
{
    static void* const shared = mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return *static_cast<Tally*>(shared);
}

struct CallResult {
    std::string answer;
    bool isError = false;
    bool threw = false;
    bool threwSomethingElse = false; // than for want of memory
    int code = 0;
    FaultReport report;
};

std::string describe(const Injection& injection)
{
    const int error = injection.fault.error;
    std::ostringstream text;
    text << faultTable[static_cast<std::size_t>(injection.call)].name << " " << injection.at << ": "
         << (error == shortCount ? "short" : strerrorname_np(error));
    if (injection.kind == Kind::lasting) {
        text << " and ever after";
    } else if (injection.kind == Kind::pair) {
        text << ", then EIO from call " << injection.secondAt << " after it";
    }
    return text.str();
}

// Everything in the places, as far as two runs of one call leave the same: a date of today counts as "now", and what
// holds times, salts or passwords has any content.
Snapshot everything(const Places& places)
{
    const std::string longAgo = "15"; // the trees that scenarios build are of 2001
    Snapshot all;
    for (const std::string& folder : {places.home, places.away, places.volumes}) {
        if (folder.empty()) {
            continue;
        }
        for (auto& [path, entry] : snapshot(folder)) {
            if (entry.modified > longAgo) {
                entry.modified = "now";
            }
            for (const char* name : {"/LogFile.txt", "/archive.zip", "/secret.bin"}) {
                if (path.ends_with(name)) {
                    entry.content = "anything";
                }
            }
            all.emplace(folder + path, entry);
        }
    }
    return all;
}

bool hasContent(const Snapshot& snapshot, const Snapshot::value_type& entry)
{
    const auto found = snapshot.find(entry.first);
    return found != snapshot.end() && found->second.content == entry.second.content;
}

// Whether each entry of `wanted` is there with its content.
bool holdsAll(const Snapshot& snapshot, const Snapshot& wanted)
{
    return std::all_of(wanted.begin(), wanted.end(), [&](const auto& entry) { return hasContent(snapshot, entry); });
}

std::string differences(const Snapshot& before, const Snapshot& now)
{
    std::ostringstream text;
    for (const auto& [mark, from, other] : {std::tuple("- ", &before, &now), std::tuple("+ ", &now, &before)}) {
        for (const auto& [path, entry] : *from) {
            const auto found = other->find(path);
            if (found == other->end() || found->second != entry) {
                text << "\n    " << mark << path << ": " << entry;
            }
        }
    }
    return text.str();
}

class ScenarioRun {
public:
    ScenarioRun(const Scenario& scenario, const PluginUnderTest& plugin, Places places)
        : scenario_(scenario), plugin_(plugin), places_(std::move(places)),
          function_(*plugin.plugin().find(fmxhost::Value(scenario.call[0]).text()))
    {
        plan_.code = reinterpret_cast<const void*>(function_.handler);
        for (const auto& [call, error] : scenario.lacks) {
            plan_.lacks[static_cast<std::size_t>(call)] = error;
        }
    }

    // What didn't hold, a few lines for each.
    std::string tryAll(bool isFull);

private:
    void runUndisturbed();
    std::vector<Injection> injections(bool isFull) const;
    void addPairs(const Injection& first, std::vector<Injection>& list) const;
    std::string attempt(const Injection& injection) const;
    Snapshot prepare() const;
    CallResult call(const FaultPlan& plan) const;
    std::string judge(const Injection& injection, const CallResult& result, const Snapshot& before) const;
    std::string judgeSuccess(const Injection& injection, const CallResult& result, const Snapshot& now) const;
    bool mayLeave(const Snapshot& before, const Snapshot& now) const;
    bool hasLostNothing(const Snapshot& before, const Snapshot& now, const Snapshot& hidden) const;

    const Scenario& scenario_;
    const PluginUnderTest& plugin_;
    Places places_;
    const fmxkit::ExternalFunction& function_;
    FaultPlan plan_;
    CallResult undisturbed_;
    Snapshot after_;
};

Snapshot ScenarioRun::prepare() const
{
    if (chdir("/") != 0) {
        throw std::runtime_error("chdir");
    }
    build(scenario_, places_);
    if (scenario_.logs) {
        setenv("HOME", places_.home.c_str(), 1);
        plugin_.call("KORB_LogSet", {u"1"});
    }
    return everything(places_);
}

// As fmxhost::Plugin::call, with faults around the handler alone.
CallResult ScenarioRun::call(const FaultPlan& plan) const
{
    const fmx::ExprEnvUniquePtr environment;
    const fmx::DataVectUniquePtr arguments;
    for (const std::string& argument : scenario_.arguments(places_)) {
        arguments->PushBack(fmxhost::Value(argument).data());
    }
    fmx::DataUniquePtr value;
    CallResult result;
    armFaults(plan);
    try {
        function_.handler(function_.id, *environment, *arguments, *value);
    } catch (const std::bad_alloc&) {
        result.threw = true;
    } catch (...) {
        result.threw = result.threwSomethingElse = true;
    }
    result.report = disarmFaults();
    if (!result.threw) {
        const fmxhost::Value answer(std::move(value));
        result.answer = answer.type() == fmxhost::ValueType::timestamp ? answer.isoText() : answer.utf8();
        result.isError = result.answer == "!!ERROR!!";
        result.code = plugin_.lastErrorNumber();
    }
    return result;
}

// Twice: the first call makes what stays in memory.
void ScenarioRun::runUndisturbed()
{
    for (int run = 0; run < 2; ++run) {
        prepare();
        undisturbed_ = call(plan_);
        after_ = everything(places_);
        plugin_.call("KORB_LogSet", {u"0"});
    }
    if (undisturbed_.threw || (undisturbed_.isError && undisturbed_.code == 0)) {
        throw std::runtime_error("the undisturbed call fails");
    }
}

// A second fault can strike whatever is done after the first one; how much that is shows when only the first one does.
void ScenarioRun::addPairs(const Injection& first, std::vector<Injection>& list) const
{
    const std::string after = inChild([&] {
        prepare();
        FaultPlan plan = plan_;
        plan.call = first.call;
        plan.at = first.at;
        plan.error = first.fault.error;
        return std::to_string(call(plan).report.sinceFault);
    });
    for (unsigned second = 1; second <= static_cast<unsigned>(std::strtoul(after.c_str(), nullptr, 10)); ++second) {
        list.push_back({first.call, first.at, first.fault, Kind::pair, second});
    }
}

std::vector<Injection> ScenarioRun::injections(bool isFull) const
{
    std::vector<Injection> list;
    std::vector<Injection> firsts; // of pairs
    const bool pairs = undisturbed_.report.total <= shortScenario && !scenario_.runsScript() &&
                       !scenario_.call[0].starts_with("KORB_Get");
    for (const CallFaults& entry : faultTable) {
        const std::size_t call = static_cast<std::size_t>(entry.call);
        const unsigned calls = plan_.lacks[call] != 0 ? 0 : undisturbed_.report.calls[call];
        // A script takes a tenth of a second, so not each of the many allocations is worth one.
        const unsigned step = scenario_.runsScript() && entry.call == Call::allocate ? 8 : 1;
        for (unsigned at = 1; at <= calls; at += step) {
            for (const Fault& fault : entry.faults) {
                list.push_back({entry.call, at, fault});
                if (fault.error == EINTR || fault.error == EAGAIN) {
                    continue; // repeating would never end
                }
                list.push_back({entry.call, at, fault, Kind::lasting});
                if (pairs && !fault.isTransparent && entry.call != Call::allocate &&
                    fault.error == entry.faults[0].error) {
                    firsts.push_back({entry.call, at, fault});
                }
            }
        }
    }
    const auto sample = [&](std::vector<Injection>& all, std::size_t wanted) {
        const std::size_t step = isFull ? 1 : std::max<std::size_t>(all.size() / wanted, 1);
        std::vector<Injection> some;
        for (std::size_t i = scenario_.name().size() % step; i < all.size(); i += step) {
            some.push_back(all[i]);
        }
        all = some;
    };
    sample(list, scenario_.runsScript() ? 6 : 40);
    sample(firsts, 2);
    for (const Injection& first : firsts) {
        addPairs(first, list);
    }
    return list;
}

// A part is one of something whole: of what goes when all has come, of what comes while all is still there.
bool ScenarioRun::mayLeave(const Snapshot& before, const Snapshot& now) const
{
    const auto isKnown = [&](const auto& entry) { return hasContent(before, entry) || hasContent(after_, entry); };
    Snapshot without = before;
    without.erase(Scenario::inPlaces(scenario_.replaced, places_));
    // A move that fails may have hidden its source and shown it again.
    const bool isMove = scenario_.call[0].ends_with("Move");
    const auto isLike = [&](Snapshot one) {
        for (auto& [path, entry] : one) {
            const auto found = now.find(path);
            if (isMove && found != now.end() && found->second.modified == "now") {
                entry.modified = "now";
            }
        }
        return now == one;
    };
    return isLike(before) || isLike(without) ||
           (scenario_.leavesPart && std::all_of(now.begin(), now.end(), isKnown) &&
            (holdsAll(now, before) || holdsAll(now, after_)));
}

// For when cleaning up fails as well. Nothing half-made stands under a name that anybody knows, and each content that
// was there is somewhere, unless the call had to remove it and has.
bool ScenarioRun::hasLostNothing(const Snapshot& before, const Snapshot& now, const Snapshot& hidden) const
{
    const auto contents = [](const Snapshot& snapshot, std::set<std::string>& all) {
        for (const auto& entry : snapshot) {
            all.insert(entry.second.content);
        }
    };
    std::set<std::string> present;
    std::set<std::string> wanted;
    contents(now, present);
    contents(hidden, present);
    contents(after_, wanted);
    const auto isKept = [&](const auto& entry) {
        const auto isThere = [&](const Snapshot& snapshot) { return snapshot.contains(entry.first); };
        return present.contains(entry.second.content) ||
               (!wanted.contains(entry.second.content) && isThere(now) == isThere(after_));
    };
    // Where there are no exclusive renames a name is claimed by something empty first.
    const bool claims = plan_.lacks[static_cast<std::size_t>(Call::rename)] != 0;
    const auto isKnown = [&](const auto& entry) {
        return hasContent(before, entry) || hasContent(after_, entry) ||
               (claims && entry.second.metadata.starts_with("0 "));
    };
    return std::all_of(before.begin(), before.end(), isKept) && std::all_of(now.begin(), now.end(), isKnown);
}

std::string ScenarioRun::judgeSuccess(const Injection& injection, const CallResult& result, const Snapshot& now) const
{
    if (result.isError || result.code != 0) {
        return "a fault that nobody should notice gives error " + std::to_string(result.code);
    }
    const auto& lookingAt = scenario_.otherAnswerTo;
    const bool mayDiffer =
        lookingAt.empty() || std::find(lookingAt.begin(), lookingAt.end(), injection.call) != lookingAt.end();
    const bool otherAnswer = scenario_.isOtherAnswer != nullptr && (mayDiffer || injection.fault.isTransparent) &&
                             scenario_.isOtherAnswer(result.answer, undisturbed_.answer);
    if (result.answer != undisturbed_.answer && !otherAnswer) {
        return "answers " + result.answer + " instead of " + undisturbed_.answer;
    }
    // What the system doesn't permit the copy does without.
    const bool isPermissionLoss = (injection.fault.error == EACCES || injection.fault.error == EPERM) &&
                                  (injection.call == Call::changeMode || injection.call == Call::changeOwner ||
                                   injection.call == Call::changeTimes);
    const bool isRight = now == after_ || scenario_.codes().empty() ||
                         (isPermissionLoss && holdsAll(now, after_) && now.size() == after_.size());
    return isRight ? "" : "success, but" + differences(after_, now);
}

std::string ScenarioRun::judge(const Injection& injection, const CallResult& result, const Snapshot& before) const
{
    Snapshot now = everything(places_);
    Snapshot hidden;
    for (const auto& entry : now) {
        if (entry.first.find("/.folidex-") != std::string::npos) {
            hidden.insert(entry);
        }
    }
    const char* temporary = result.report.temporaryFile.data();
    const bool isOnce = injection.kind == Kind::once;
    if (isOnce && (!hidden.empty() || (*temporary != '\0' && access(temporary, F_OK) == 0))) {
        return "left " + (hidden.empty() ? temporary : hidden.begin()->first);
    }
    std::erase_if(now, [&](const auto& entry) { return hidden.contains(entry.first); });
    const auto isAllowed = [&] { return mayLeave(before, now) || (!isOnce && hasLostNothing(before, now, hidden)); };
    // A script that can't be written to one place is written to another.
    const bool isReported = (injection.fault.isReported && !scenario_.runsScript()) || result.report.lostData;
    if (isReported && !result.isError) {
        return "nobody is told";
    }
    if (result.threw) { // after the work is done, perhaps
        const bool forMemory = injection.call == Call::allocate && !result.threwSomethingElse;
        return !forMemory                     ? "an exception left the handler"
               : now == after_ || isAllowed() ? ""
                                              : "an exception leaves" + differences(before, now);
    }
    if (undisturbed_.isError && result.code == undisturbed_.code && now == after_) {
        return "";
    }
    if (!result.isError || (injection.fault.isTransparent && injection.kind != Kind::pair)) {
        return judgeSuccess(injection, result, now);
    }
    const std::vector<int>& codes = scenario_.codes();
    if (std::find(codes.begin(), codes.end(), result.code) == codes.end()) {
        return "error " + std::to_string(result.code) + " isn't among the function's";
    }
    return isAllowed() ? "" : "error (" + plugin_.lastErrorText() + ") leaves" + differences(before, now);
}

// In a process of its own: "missed" when the injection couldn't be made, else what is wrong.
std::string ScenarioRun::attempt(const Injection& injection) const
{
    alarm(patience);
    const Snapshot before = prepare();
    FaultPlan plan = plan_;
    plan.call = injection.call;
    plan.at = injection.at;
    plan.error = injection.fault.error;
    plan.lasts = injection.kind == Kind::lasting;
    plan.secondAt = injection.secondAt;
    const auto descriptors = openDescriptors();
    const CallResult result = call(plan);
    if (!result.report.struck) {
        return "missed";
    }
    if (openDescriptors() != descriptors) {
        return "descriptors are left open";
    }
    if (waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD) {
        return "a child process is left";
    }
    const std::string wrong = judge(injection, result, before);
    return wrong.empty() && plugin_.call("KORB_Version", {u"short"}).utf8() != "5.0.2.1"
               ? "the plug-in doesn't answer afterwards"
               : wrong;
}

std::string ScenarioRun::tryAll(bool isFull)
{
    runUndisturbed();
    std::string faults;
    for (const Injection& injection : injections(isFull)) {
        const std::string wrong = inChild([&] { return attempt(injection); });
        if (wrong == "missed") { // such as a read that was of one byte, which can't be cut short
            continue;
        }
        ++tally().byKind[static_cast<std::size_t>(injection.kind)];
        ++tally().byCall[static_cast<std::size_t>(injection.call)];
        tally().held += wrong.empty() ? 1U : 0U;
        faults += wrong.empty() ? "" : describe(injection) + ": " + wrong + "\n";
    }
    return faults;
}

class Faults : public testing::TestWithParam<Scenario> {
protected:
    static void TearDownTestSuite()
    {
        const Tally& all = tally();
        const auto [once, lasting, pairs] = std::tuple(all.byKind[0], all.byKind[1], all.byKind[2]);
        std::cout << once << " faults, " << lasting << " lasting ones, " << pairs << " pairs in " << all.scenarios
                  << " scenarios: " << all.held << " held\n";
        for (std::size_t call = 0; call < callCount; ++call) {
            std::cout << "  " << faultTable[call].name << ": " << all.byCall[call] << "\n";
            // It would stay untried for ever.
            EXPECT_TRUE(all.byCall[call] != 0 || !isFull() || all.scenarios != scenarios().size());
        }
    }

    static bool isFull() { return std::getenv("FOLIDEX_FULL") != nullptr; }
};

TEST_P(Faults, Hold)
{
    const Scenario& scenario = GetParam();
    static const PluginUnderTest plugin;
    const ScratchPair scratch;
    if ((scenario.ownRoot || scenario.needsRoot) && !isRoot()) {
        GTEST_SKIP() << "needs root's rights";
    }
    if (scenario.needsAway() && !scratch.away) {
        GTEST_SKIP() << "needs a second file system at /dev/shm";
    }
    ++tally().scenarios;
    const std::string faults = inChild([&] {
        setenv("TZ", "UTC", 1);
        Places places{scratch.home->text("tree"), scenario.needsAway() ? scratch.away->text("tree") : "", {}};
        if (scenario.ownRoot) {
            enterRoot(scratch.home->text());
            places = {"/tree", "", "/Volumes"};
        }
        return ScenarioRun(scenario, plugin, places).tryAll(isFull());
    });
    EXPECT_TRUE(faults.empty()) << faults;
}

INSTANTIATE_TEST_SUITE_P(Of, Faults, testing::ValuesIn(scenarios()),
                         [](const auto& scenario) { return scenario.param.name(); });

} // namespace

void PrintTo(const Scenario& scenario, std::ostream* stream)
{
    *stream << scenario.name();
}

} // namespace folidex::test
