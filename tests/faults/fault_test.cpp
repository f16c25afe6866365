// Makes every call that the plug-in makes fail, function by function, and looks at what comes of it: once, from then on
// always, and together with a second call that fails later.
//
// A scenario is run undisturbed first, which tells its calls and its outcome. Then each fault is tried in a process of
// its own: the tree is built, the call made, and what stands afterwards is held against what stood before and what the
// undisturbed call left. All faults with FOLIDEX_FULL in the environment, otherwise a sample, of which each test prints
// how large it is.

#include "faults/fault_injector.h"
#include "faults/scenarios.h"
#include "support/child_process.h"
#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"
#include "support/surroundings.h"
#include "support/tree_snapshot.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <new>
#include <set>
#include <sstream>
#include <tuple>

namespace folidex::test {
namespace {

constexpr unsigned patience = 300;     // seconds that one trial may take
constexpr unsigned shortScenario = 60; // calls, at most, of one that pairs of faults are tried on

struct Fault {
    int error;
    bool isTransparent = false; // the call is repeated or goes on, and nobody notices
    bool isReported = false;    // the function has to fail
};

constexpr Fault interrupted{EINTR, true};
constexpr Fault cutShort{shortCount, true};

constexpr Fault reported(int error)
{
    return {error, false, true};
}

const std::vector<Fault>& faultsOf(CallName call)
{
    static const std::vector<Fault> usual{{EACCES}, {EIO}, {ENOSPC}};
    static const std::map<CallName, std::vector<Fault>> special{
        {"malloc", {{ENOMEM}}},
        {"open", {{EACCES}, {EMFILE}, {EIO}, {ENOMEM}, interrupted}},
        {"create", {{EACCES}, {EMFILE}, {ENOSPC}, {EIO}, interrupted}},
        {"unnamed", {{EACCES}, {EMFILE}, {ENOSPC}, {EOPNOTSUPP, true}, interrupted}},
        {"close", {{ENOSPC}, {EIO}}},
        {"read", {reported(EIO), interrupted, cutShort}},
        {"write", {reported(ENOSPC), reported(EIO), interrupted, cutShort}},
        {"copy_file_range", {{ENOSPC}, {EIO, true}, {ENOSYS, true}, interrupted, cutShort}},
        {"clone", {{EIO, true}, {EOPNOTSUPP, true}, {ENOSPC, true}, interrupted}},
        {"renameat2", {{EACCES}, {ENOSPC}, {EIO}, {EINVAL, true}}},
        {"getdents", {reported(EIO), reported(ENOMEM), interrupted}},
        {"statvfs", {{EACCES}, {EIO}, interrupted}},
        {"flush", {reported(EIO), reported(ENOSPC), interrupted}},
        {"truncate", {reported(EIO), reported(ENOSPC), interrupted}},
        {"getentropy", {{ENOSYS, true}}},
        {"pclose", {{ECHILD}}},
        {"waitpid", {{ECHILD, true}, interrupted}},
        {"poll", {{ENOMEM}, interrupted}},
    };
    const auto found = special.find(call);
    return found == special.end() ? usual : found->second;
}

struct Injection {
    FaultPlan plan;
    Fault fault;

    bool isOnce() const { return !plan.lasts && plan.secondAt == 0; }
    bool isPair() const { return plan.secondAt != 0; }

    std::string text() const
    {
        std::ostringstream text;
        text << plan.call << " " << plan.at << ": "
             << (plan.error == shortCount ? "short" : strerrorname_np(plan.error))
             << (plan.lasts ? " and ever after" : "");
        if (isPair()) {
            text << ", then EIO from call " << plan.secondAt << " after it";
        }
        return text.str();
    }
};

struct CallResult {
    std::string answer;
    bool isError = false;
    bool threw = false;
    bool threwSomethingElse = false; // than for want of memory
    int code = 0;
    FaultReport report;
};

// Everything in the places, as far as two runs of one call leave the same: a date of today counts as "now", and what
// holds times, salts or passwords has any content.
Snapshot everything(const Places& places)
{
    const std::string longAgo = "15"; // the trees that scenarios build are of 2001
    Snapshot all;
    for (const std::string& folder : {places.home, places.away}) {
        for (auto& [path, entry] : folder.empty() ? Snapshot() : snapshot(folder)) {
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

std::set<std::string> contentsOf(const Snapshot& snapshot)
{
    std::set<std::string> contents;
    for (const auto& entry : snapshot) {
        contents.insert(entry.second.content);
    }
    return contents;
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
          function_(plugin.function("KORB_" + scenario.call[0]))
    {
        std::ifstream page(FOLIDEX_REFERENCE "/KORB_" + scenario.call[0] + ".md");
        page_.assign(std::istreambuf_iterator(page), {});
    }

    // How many faults were tried, and then what didn't hold, a few lines for each.
    std::string tryAll(bool isFull);

private:
    void runUndisturbed();
    std::vector<Injection> injections(bool isFull) const;
    std::vector<Injection> pairsOf(const Injection& first) const;
    std::string attempt(const Injection& injection) const;
    Snapshot prepare() const;
    CallResult call(FaultPlan plan) const;
    std::string judge(const Injection& injection, const CallResult& result, const Snapshot& before) const;
    std::string judgeSuccess(const Injection& injection, const CallResult& result, const Snapshot& now) const;
    bool isOtherAnswer(CallName failed, const std::string& answer) const;
    bool mayLeave(const Snapshot& before, const Snapshot& now) const;
    bool hasLostNothing(const Snapshot& before, const Snapshot& now, const Snapshot& hidden) const;

    const Scenario& scenario_;
    const PluginUnderTest& plugin_;
    Places places_;
    const fmxkit::ExternalFunction& function_;
    std::string page_; // of the reference
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
CallResult ScenarioRun::call(FaultPlan plan) const
{
    const fmx::ExprEnvUniquePtr environment;
    const fmx::DataVectUniquePtr arguments;
    for (auto word = scenario_.call.begin() + 1; word != scenario_.call.end(); ++word) {
        arguments->PushBack(fmxhost::Value(places_.path(*word)).data());
    }
    fmx::DataUniquePtr value;
    CallResult result;
    plan.code = reinterpret_cast<const void*>(function_.handler);
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
        const bool isDate = answer.type() == fmxhost::ValueType::timestamp;
        result.answer = isDate ? answer.isoText() : answer.utf8();
        if (isDate && result.answer > "2002") {
            result.answer = "now";
        }
        result.isError = result.answer == "!!ERROR!!";
        result.code = plugin_.lastErrorNumber();
    }
    return result;
}

// Twice, for the first call makes what stays in memory; and without what the system may lack, which does the same.
void ScenarioRun::runUndisturbed()
{
    Snapshot withoutLacks;
    for (const Lacks& lacks : {Lacks(), scenario_.lacks}) {
        withoutLacks = std::move(after_);
        prepare();
        undisturbed_ = call({.lacks = lacks});
        after_ = everything(places_);
        plugin_.call("KORB_LogSet", {u"0"});
    }
    if (undisturbed_.threw || (undisturbed_.isError && undisturbed_.code == 0)) {
        throw std::runtime_error("the undisturbed call fails");
    }
    if (scenario_.isAcross() && !scenario_.call[1].ends_with("link") &&
        undisturbed_.report.calls["flush"] < scenario_.flushes) {
        throw std::runtime_error("too little is flushed");
    }
    if (after_ != withoutLacks) {
        throw std::runtime_error("undisturbed calls differ" + differences(withoutLacks, after_));
    }
}

// A second fault can strike whatever is done after the first one; how much that is shows when only the first one does.
std::vector<Injection> ScenarioRun::pairsOf(const Injection& first) const
{
    std::vector<Injection> list;
    const std::string after = inChild([&] {
        prepare();
        return std::to_string(call(first.plan).report.sinceFault);
    });
    for (unsigned second = 1; second <= static_cast<unsigned>(std::strtoul(after.c_str(), nullptr, 10)); ++second) {
        list.push_back(first);
        list.back().plan.secondAt = second;
    }
    return list;
}

std::vector<Injection> ScenarioRun::injections(bool isFull) const
{
    std::vector<Injection> list;
    std::vector<Injection> firsts; // of pairs
    const bool isShort = undisturbed_.report.total <= shortScenario && !scenario_.runsScript;
    for (const auto& [name, calls] : undisturbed_.report.calls) {
        const bool isLacking = std::any_of(scenario_.lacks.begin(), scenario_.lacks.end(),
                                           [name = name](const auto& lack) { return lack.first == name; });
        // A script takes a tenth of a second, so not each of the many allocations is worth one.
        const unsigned step = scenario_.runsScript && name == "malloc" ? 8 : 1;
        for (unsigned at = 1; at <= calls && !isLacking; at += step) {
            for (const Fault& fault : faultsOf(name)) {
                Injection injection{{.lacks = scenario_.lacks, .call = name, .at = at, .error = fault.error}, fault};
                list.push_back(injection);
                if (fault.error == EINTR || fault.error == EAGAIN) {
                    continue; // repeating would never end
                }
                if (isShort && !scenario_.call[0].starts_with("Get") && !fault.isTransparent && name != "malloc" &&
                    fault.error == faultsOf(name)[0].error) {
                    firsts.push_back(injection);
                }
                injection.plan.lasts = true;
                list.push_back(injection);
            }
        }
    }
    const auto sample = [&](std::vector<Injection>& all, std::size_t wanted, const char* what, auto&& isKept) {
        const std::size_t step = isFull ? 1 : std::max<std::size_t>(all.size() / wanted, 1);
        std::vector<Injection> some;
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (i % step == scenario_.name().size() % step || isKept(all[i])) {
                some.push_back(all[i]);
            }
        }
        std::cout << "sample: " << some.size() << " of " << all.size() << " " << what << std::endl;
        all = some;
    };
    const auto isNone = [](const Injection&) { return false; };
    sample(list, scenario_.runsScript ? 3 : 24, "faults", [](const Injection& injection) { // each call of another name
        return injection.plan.at == 1 && injection.isOnce() &&
               injection.fault.error == faultsOf(injection.plan.call)[0].error;
    });
    sample(firsts, 2, "first faults of pairs", isNone);
    std::vector<Injection> pairs;
    for (const Injection& first : firsts) {
        const std::vector<Injection> some = pairsOf(first);
        pairs.insert(pairs.end(), some.begin(), some.end());
    }
    sample(pairs, 12, "pairs of faults", isNone);
    list.insert(list.end(), pairs.begin(), pairs.end());
    return list;
}

// A part is one of something whole: of what goes when all has come, of what comes while all is still there.
bool ScenarioRun::mayLeave(const Snapshot& before, const Snapshot& now) const
{
    const auto isKnown = [&](const auto& entry) { return hasContent(before, entry) || hasContent(after_, entry); };
    Snapshot without = before;
    without.erase(places_.path(scenario_.replaced));
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
    std::set<std::string> present = contentsOf(now);
    present.merge(contentsOf(hidden));
    const std::set<std::string> wanted = contentsOf(after_);
    const auto isKept = [&](const auto& entry) {
        const auto& [path, item] = entry;
        return present.contains(item.content) ||
               (!wanted.contains(item.content) && now.contains(path) == after_.contains(path));
    };
    // Where there are no exclusive renames a name is claimed by something empty first.
    const bool claims = !scenario_.lacks.empty();
    const auto isKnown = [&](const auto& entry) {
        return hasContent(before, entry) || hasContent(after_, entry) ||
               (claims && entry.second.metadata.starts_with("0 "));
    };
    return std::all_of(before.begin(), before.end(), isKept) && std::all_of(now.begin(), now.end(), isKnown);
}

bool ScenarioRun::isOtherAnswer(CallName failed, const std::string& answer) const
{
    return std::any_of(scenario_.otherAnswers.begin(), scenario_.otherAnswers.end(), [&](const auto& other) {
        return (other.first == "*" || other.first == failed) && (other.second == "*" || other.second == answer);
    });
}

std::string ScenarioRun::judgeSuccess(const Injection& injection, const CallResult& result, const Snapshot& now) const
{
    const CallName failed = injection.plan.call;
    if (result.isError || result.code != 0) {
        return "a fault that nobody should notice gives error " + std::to_string(result.code);
    }
    if (result.answer != undisturbed_.answer && !isOtherAnswer(failed, result.answer)) {
        return "answers " + result.answer + " instead of " + undisturbed_.answer;
    }
    // What the system doesn't permit the copy does without, and no call fails because it can't log.
    const bool isPermissionLoss =
        injection.fault.error == EACCES && (failed == "chmod" || failed == "chown" || failed == "utimens");
    const bool isRight = now == after_ || scenario_.call[0].starts_with("Log") ||
                         (isPermissionLoss && holdsAll(now, after_) && now.size() == after_.size());
    return isRight ? "" : "success, but" + differences(after_, now);
}

std::string ScenarioRun::judge(const Injection& injection, const CallResult& result, const Snapshot& before) const
{
    Snapshot now = everything(places_);
    Snapshot hidden;
    for (auto entry = now.begin(); entry != now.end();) {
        const auto next = std::next(entry);
        if (entry->first.find("/.folidex-") != std::string::npos) {
            hidden.insert(now.extract(entry));
        }
        entry = next;
    }
    if (injection.isOnce() && !hidden.empty()) {
        return "left " + hidden.begin()->first;
    }
    if (result.report.temporaryFiles != 0) {
        return "left a file in /tmp";
    }
    const auto isAllowed = [&] {
        return mayLeave(before, now) || (!injection.isOnce() && hasLostNothing(before, now, hidden));
    };
    // A script that can't be written to one place is written to another.
    const bool isReported = (injection.fault.isReported && !scenario_.runsScript) || result.report.lostData;
    if (isReported && !result.isError) {
        return "nobody is told";
    }
    if (result.threw) { // after the work is done, perhaps
        const bool forMemory = injection.plan.call == "malloc" && !result.threwSomethingElse;
        return !forMemory                     ? "an exception left the handler"
               : now == after_ || isAllowed() ? ""
                                              : "an exception leaves" + differences(before, now);
    }
    if (undisturbed_.isError && result.code == undisturbed_.code && now == after_) {
        return "";
    }
    if (!result.isError || (injection.fault.isTransparent && !injection.isPair())) {
        return judgeSuccess(injection, result, now);
    }
    if (page_.find("\n- " + std::to_string(result.code)) == std::string::npos) {
        return "error " + std::to_string(result.code) + " isn't among the function's";
    }
    return isAllowed() ? "" : "error (" + plugin_.lastErrorText() + ") leaves" + differences(before, now);
}

// In a process of its own: "missed" when the injection couldn't be made, else what is wrong.
std::string ScenarioRun::attempt(const Injection& injection) const
{
    alarm(patience);
    const Snapshot before = prepare();
    const auto descriptors = openDescriptors();
    const CallResult result = call(injection.plan);
    if (!result.report.struck) {
        return "missed";
    }
    if (openDescriptors() != descriptors) {
        return "descriptors are left open";
    }
    if (result.report.inheritable) {
        return "a program that is started meanwhile would get a descriptor";
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
    unsigned tried = 0;
    std::string faults;
    for (const Injection& injection : injections(isFull)) {
        const std::string wrong = inChild([&] { return attempt(injection); });
        tried += wrong == "missed" ? 0U : 1U; // such as a read that was of one byte, which can't be cut short
        faults += wrong.empty() || wrong == "missed" ? "" : injection.text() + ": " + wrong + "\n";
    }
    return std::to_string(tried) + " faults\n" + faults;
}

class Faults : public testing::TestWithParam<Scenario> {
protected:
    static void TearDownTestSuite() { std::cout << total << " faults in " << scenariosTried << " scenarios\n"; }

    static inline unsigned long total = 0;
    static inline unsigned scenariosTried = 0;
};

TEST_P(Faults, Hold)
{
    const Scenario& scenario = GetParam();
    static const PluginUnderTest plugin;
    const ScratchPair scratch;
    if (scenario.needsRoot) {
        SKIP_WITHOUT("root");
    }
    if (scenario.isAcross()) {
        SKIP_WITHOUT("memory");
    }
    const std::string outcome = inChild([&] {
        setenv("TZ", "UTC", 1);
        Places places{scratch.home->text("tree"), scenario.isAcross() ? scratch.away->text("tree") : ""};
        if (scenario.isOnVolume) {
            places = {"/Volumes/Disk", ""};
        }
        ScenarioRun run(scenario, plugin, places);
        if (scenario.isOnVolume) {
            enterRoot(scratch.home->text());
        }
        return run.tryAll(std::getenv("FOLIDEX_FULL") != nullptr);
    });
    const unsigned long tried = std::strtoul(outcome.c_str(), nullptr, 10);
    EXPECT_EQ(outcome, std::to_string(tried) + " faults\n");
    EXPECT_GT(tried, 0U);
    total += tried;
    ++scenariosTried;
}

INSTANTIATE_TEST_SUITE_P(Of, Faults, testing::ValuesIn(scenarios()),
                         [](const auto& scenario) { return scenario.param.name(); });

} // namespace

void PrintTo(const Scenario& scenario, std::ostream* stream)
{
    *stream << scenario.name();
}

} // namespace folidex::test
