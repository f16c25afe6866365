// Makes every call that the archive program makes fail, verb by verb, once and from then on, and lets others change its
// source at every moment: an error leaves nothing, a success is whole.
//
// Each trial is a process of its own, on one processor, where all is done on one thread. All trials with FOLIDEX_FULL
// in the environment, otherwise a sample; their number is printed.

#include "archiver/call.h"
#include "archiver/result_file.h"
#include "faults/fault_injector.h"
#include "support/child_process.h"
#include "support/scratch_folder.h"
#include "support/surroundings.h"
#include "support/tree_snapshot.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <set>
#include <sstream>
#include <string>

namespace folidex::test {
namespace {

struct Verb {
    friend std::ostream& operator<<(std::ostream& stream, const Verb& verb) { return stream << verb.name; }

    std::string name;
    std::string source;
    std::string result; // empty: what is packed comes into the folder
    std::string password{};
    std::string undoing{}; // of a result that differs each time
};

const Verb verbs[] = {
    {"zip", "tree", "x", "", "unzip"},
    {"zipencrypt", "tree", "x", "pw", "unzipdecrypt"},
    {"unzip", "plain.zip", ""},
    {"unzipdecrypt", "aes.zip", "", "pw"},
    {"encrypt", "file.bin", "x", "pw", "decrypt"},
    {"decrypt", "file.enc", "x", "pw"},
};

struct Fault {
    CallName call;
    int error;
    bool isTransparent = false; // the call is repeated, or there is another way
};

constexpr int interrupted = EINTR;

std::vector<Fault> faultsOf(CallName call)
{
    if (call == "malloc" || call == "thread") {
        return {{call, call == "malloc" ? ENOMEM : EAGAIN}};
    }
    std::vector<Fault> faults{{call, EIO}};
    const bool canBeCut = call == "read" || call == "write";
    if (canBeCut || call == "open" || call == "create" || call == "unnamed" || call == "flush") {
        faults.push_back({call, interrupted, true});
    }
    if (canBeCut) {
        faults.push_back({call, shortCount, true});
    }
    if (call == "unnamed" || call == "renameat2") {
        faults.push_back({call, EOPNOTSUPP, true});
    }
    if (call == "link") {
        faults.push_back({call, EPERM, true});
    }
    return faults;
}

struct Trial {
    std::string text{};
    FaultPlan plan;
    bool mustSucceed = false;
    bool mayLeave = false; // a work item, which it can't remove
    bool mustFail = false;
};

class ArchiveProgram : public testing::TestWithParam<Verb> {
protected:
    ArchiveProgram() : scratch_(std::move(ScratchPair().home))
    {
        scratch_->write("file.bin", noise(1'200'000));
        scratch_->write("tree/sub/small.txt", "content");
        scratch_->write("tree/large.bin", noise(600'000) + std::string(600'000, 'a'));
        scratch_->write("tree/unseen/small.txt", "content");
        scratch_->symlink("sub", "tree/link");
        scratch_->write("victim/file", "untouched");
        scratch_->write("tree/locked/file", "content");
        scratch_->setMode("tree/locked", 0555);
        giveAway(*scratch_ / "");
        inChild([this] {
            becomeOrdinaryUser();
            archiver::perform(lineFor({"zip", "tree", "plain.zip"}));
            archiver::perform(lineFor({"zipencrypt", "tree", "aes.zip", "pw"}));
            archiver::perform(lineFor({"encrypt", "file.bin", "file.enc", "pw"}));
            return "";
        });
    }

    // Modes bind an ordinary user, as who the program runs.
    static void giveAway(const std::filesystem::path& folder)
    {
        if (geteuid() == 0) {
            EXPECT_EQ(std::system(("chown -R 65534:65534 " + folder.string()).c_str()), 0);
        }
    }

    void clear(const std::string& name) const
    {
        for (const char* const locked : {"/tree/locked", "/locked"}) {
            chmod((*scratch_ / (name + locked)).c_str(), 0700);
        }
        std::filesystem::remove_all(*scratch_ / name);
    }

    static std::string noise(std::size_t size)
    {
        std::string bytes(size, '\0');
        std::uint32_t state = 1;
        std::generate(bytes.begin(), bytes.end(), [&] {
            state = state * 1664525U + 1013904223U;
            return static_cast<char>(state >> 24U);
        });
        return bytes;
    }

    std::string lineFor(const Verb& verb, const std::string& to = "", const std::string& from = "") const
    {
        const std::string folder = scratch_->path().string() + "/";
        std::string line = verb.name + "|" + folder + from + "|" + folder + to + "|" + verb.source + "|" +
                           (verb.result.empty() ? "expand" : verb.result);
        return verb.password.empty() ? line : line + "|" + verb.password;
    }

    // The destination before a trial: what is there is replaced.
    void prepare() const
    {
        clear("out");
        scratch_->write("out/x", "earlier");
        scratch_->write("out/tree/sub/small.txt", "earlier");
        scratch_->write("out/tree/mine", "mine");
        scratch_->setMode("out/tree/sub", 0750);
        for (const auto& entry : std::filesystem::recursive_directory_iterator(*scratch_ / "out")) {
            std::filesystem::last_write_time(entry, {});
        }
        giveAway(*scratch_ / "out");
    }

    // Contents of the destination, or of what comes out of what is there; on demand modes and times, but for its own.
    std::string state(const std::string& of = "out", bool isExact = false) const
    {
        std::string text;
        for (const auto& [path, entry] : snapshot(*scratch_ / of)) {
            const bool hasMore = isExact && !path.empty();
            text += path + " " + entry.content + (hasMore ? "\t" + entry.metadata + " " + entry.modified : "") + "\n";
        }
        return text;
    }
    std::string undone() const
    {
        const Verb& verb = GetParam();
        if (verb.undoing.empty() || scratch_->read("out/x") == "earlier") {
            return state();
        }
        clear("back");
        scratch_->makeFolder("back");
        const Verb back{verb.undoing, "x", verb.undoing == "decrypt" ? "x" : "", verb.password};
        const archiver::Ending ending = archiver::perform(lineFor(back, "back/", "out/"));
        return ending.status == 0 ? state("back") : "can't be undone: " + ending.cause;
    }

    // In a process of its own: how the call ends, a line; and behind it the destination as it is then.
    std::string attempt(FaultPlan plan, FaultReport* report = nullptr, bool onAllProcessors = false) const
    {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<std::size_t>(std::max(sched_getcpu(), 0)), &one);
        if (!onAllProcessors) {
            sched_setaffinity(0, sizeof one, &one);
        }
        becomeOrdinaryUser();
        archiver::callersMask();
        plan.code = reinterpret_cast<const void*>(&archiver::perform);
        const std::string line = lineFor(GetParam(), "out/");
        armFaults(plan);
        const archiver::Ending ending = archiver::perform(line);
        const FaultReport seen = disarmFaults();
        if (report != nullptr) {
            *report = seen;
        }
        if (ending.status == 0 && seen.lostData) {
            return "0\nan unnoticed failure to write";
        }
        return std::to_string(ending.status) + "\n" + (ending.status == 0 ? undone() : state("out", true));
    }

    // Without work items, modes and times.
    static std::string essenceOf(const std::string& state)
    {
        std::istringstream lines(state);
        std::string rest;
        for (std::string line; std::getline(lines, line);) {
            rest += line.starts_with("/.folidex-archive-") ? "" : line.substr(0, line.find('\t')) + "\n";
        }
        return rest;
    }

    std::string judge(const Trial& trial, bool onAllProcessors = false) const
    {
        prepare();
        const std::string ended = inChild([&] { return attempt(trial.plan, nullptr, onAllProcessors); });
        const std::string status = ended.substr(0, ended.find('\n'));
        const std::string left = ended.substr(std::min(ended.size(), status.size() + 1));
        // Wrong input it wasn't.
        static const std::set<std::string> failures{"66", "70", "73", "74"};
        if (status == "0") {
            return (trial.mayLeave ? essenceOf(left) : left) == whole_ && !trial.mustFail
                       ? ""
                       : "a success that isn't whole";
        }
        if (failures.count(status) == 0 || trial.mustSucceed) {
            return "ends with " + ended.substr(0, 200);
        }
        // What can't be put back is kept under a name of its own.
        const std::string essence = essenceOf(left);
        const bool isKept = essence == essenceOf(before_) || essence.find("\n/.folidex-") != std::string::npos;
        if (left != before_ && !(trial.mayLeave && isKept)) {
            return "leaves something: " + left;
        }
        return scratch_->read("victim/file") == "untouched" ? "" : "touches something else";
    }

    // Undisturbed: what there is before and after, and the calls.
    FaultReport measure()
    {
        prepare();
        before_ = state("out", true);
        FaultReport report;
        const std::string file = scratch_->path().string() + "/calls";
        const std::string ended = inChild([&] {
            const std::string text = attempt({}, &report);
            std::ofstream calls(file);
            for (const auto& [name, count] : report.calls) {
                calls << name << " " << count << "\n";
            }
            calls << "total " << report.total << "\n";
            return text;
        });
        EXPECT_EQ(ended.substr(0, 2), "0\n") << ended;
        whole_ = ended.substr(2);
        static std::set<std::string> names;
        std::ifstream calls(file);
        std::string name;
        for (unsigned count = 0; calls >> name >> count;) {
            (name == "total" ? report.total : report.calls[*names.insert(name).first]) = count;
        }
        return report;
    }

    void tryAll(const std::vector<Trial>& trials) const
    {
        const std::size_t wanted = std::getenv("FOLIDEX_FULL") != nullptr ? trials.size() : 80;
        const std::size_t step = std::max<std::size_t>(trials.size() / wanted, 1);
        std::size_t count = 0;
        for (std::size_t at = 0; at < trials.size(); ++at) {
            if (at % step == 0 || trials[at].mustFail || trials[at].plan.call == "close") {
                EXPECT_EQ(judge(trials[at]), "") << GetParam().name << ", " << trials[at].text;
                ++count;
            }
        }
        std::cout << count << " of " << trials.size() << " trials\n";
    }

    std::unique_ptr<ScratchFolder> scratch_;
    std::string before_;
    std::string whole_;
};

TEST_P(ArchiveProgram, IsWholeOrLeavesNothingWhenACallFails)
{
    const FaultReport report = measure();
    ASSERT_GT(report.calls.at("write"), 0U);
    EXPECT_GE(report.calls.at("flush"), 2U) << "what was written, and its name";
    std::vector<Trial> trials;
    for (const auto& [call, count] : report.calls) {
        // Of the thousands of allocations some, of everything else all.
        const unsigned step = call == "malloc" ? std::max(count / 200, 1U) : 1;
        for (unsigned at = 1; at <= count; at += step) {
            for (const Fault& fault : faultsOf(call)) {
                Trial trial{std::string(call) + " " + std::to_string(at) + ": " + std::to_string(fault.error), {}};
                trial.plan = {.call = call, .at = at, .error = fault.error};
                trial.mustSucceed = fault.isTransparent;
                trial.mustFail = call == "flush" && fault.error == EIO;
                trial.mayLeave = call == "unlink" || call == "rename" || call == "renameat2" || call == "getdents";
                trials.push_back(trial);
                // Where nothing can be renamed any more, nothing can be put back either.
                const bool canLast = fault.error == EIO || fault.error == EOPNOTSUPP || fault.error == ENOMEM;
                if (canLast && call != "rename") {
                    trial.plan.lasts = true;
                    trial.text += " and ever after";
                    trial.mayLeave = true;
                    trials.push_back(trial);
                }
            }
        }
    }
    tryAll(trials);
}

TEST_P(ArchiveProgram, IsWholeOrLeavesNothingWhenNoThreadStarts)
{
    measure();
    for (const unsigned at : {1U, 2U}) {
        const Trial trial{"", {.call = "thread", .at = at, .error = EAGAIN, .lasts = true}};
        EXPECT_EQ(judge(trial, true), "");
    }
}

// A byte of the source changes, or it is cut: either it was read before, or the call fails.
TEST_P(ArchiveProgram, NoticesThatItsSourceChanges)
{
    const FaultReport report = measure();
    const std::string name = GetParam().source == "tree" ? "tree/large.bin" : GetParam().source;
    const std::string original = scratch_->read(name);
    const auto cut = [&] { std::filesystem::resize_file(*scratch_ / name, original.size() / 3); };
    std::vector<Trial> trials;
    for (unsigned at = 1; at <= report.total; ++at) {
        trials.push_back({"cut before call " + std::to_string(at), {.intrudeAt = at, .intrude = cut}});
    }
    const std::size_t step =
        std::max<std::size_t>(trials.size() / (std::getenv("FOLIDEX_FULL") != nullptr ? trials.size() : 20), 1);
    for (std::size_t at = 0; at < trials.size(); at += step) {
        scratch_->write(name, original);
        const std::string wrong = judge(trials[at]);
        // What is packed may be cut before it is opened.
        EXPECT_TRUE(wrong.empty() ||
                    (GetParam().undoing != "" && wrong == "a success that isn't whole" && at < trials.size() / 2) ||
                    wrong.starts_with("ends with 65"))
            << GetParam().name << ", " << trials[at].text << ": " << wrong;
    }
}

INSTANTIATE_TEST_SUITE_P(Verbs, ArchiveProgram, testing::ValuesIn(verbs),
                         [](const auto& verb) { return verb.param.name; });

class ArchiveDecryption : public ArchiveProgram {};

// The same bytes, written anew once they have been read.
TEST_P(ArchiveDecryption, SaysThatItsSourceWasWrittenTo)
{
    const FaultReport report = measure();
    const std::string original = scratch_->read(GetParam().source);
    unsigned noticed = 0;
    for (unsigned at = 1; at <= report.total; at += 2) {
        const auto rewrite = [&] { scratch_->write(GetParam().source, original); };
        prepare();
        noticed += inChild([&] { return attempt({.intrudeAt = at, .intrude = rewrite}); }).starts_with("66") ? 1U : 0U;
    }
    EXPECT_GT(noticed, 3U);
}

INSTANTIATE_TEST_SUITE_P(Decrypt, ArchiveDecryption, testing::Values(verbs[5]));

// Others change the destination before each call in turn.
class ArchiveAmongOthers : public ArchiveProgram {
protected:
    // `look` is told the exit status.
    void tryAll(FaultPlan plan, const std::function<void()>& intrude,
                const std::function<void(const std::string&)>& look)
    {
        const FaultReport report = measure();
        for (plan.intrudeAt = 1; plan.intrudeAt <= report.total; ++plan.intrudeAt) {
            SCOPED_TRACE(plan.intrudeAt);
            plan.at = plan.call.empty() ? 0 : report.calls.at(plan.call);
            plan.intrude = intrude;
            prepare();
            const std::string ended = inChild([&] { return attempt(plan); });
            look(ended.substr(0, ended.find('\n')));
        }
    }
    std::string path(const std::string& name) const { return *scratch_ / name; }
};
class ArchiveExpansion : public ArchiveAmongOthers {};
class ArchiveResult : public ArchiveAmongOthers {};

TEST_P(ArchiveExpansion, StaysInItsDestination)
{
    const auto lead = [&] {
        std::filesystem::rename(path("out/tree/sub"), path("out/aside"));
        scratch_->symlink("../../victim", "out/tree/sub");
    };
    tryAll({}, lead,
           [&](const std::string&) { EXPECT_EQ(scratch_->list("victim"), std::vector<std::string>{"file"}); });
}

TEST_P(ArchiveExpansion, LeavesWhatOthersPutInItsPlace)
{
    const auto occupy = [&] {
        std::filesystem::remove(path("out/tree/sub/small.txt"));
        scratch_->write("out/tree/sub/small.txt/mine", "mine");
    };
    tryAll({}, occupy, [&](const std::string&) { EXPECT_EQ(scratch_->read("out/tree/sub/small.txt/mine"), "mine"); });
}

// Killed at any call, the program leaves the old file or the new one.
TEST_P(ArchiveExpansion, HasTheOldFileOrTheNewOneAtAnyMoment)
{
    for (const Lacks& lacks : {Lacks{}, Lacks{{"renameat2", EINVAL}}}) {
        const auto note = [&] { scratch_->exists("out/tree/sub/small.txt") ? "" : scratch_->write("missing").c_str(); };
        tryAll({.lacks = lacks}, note, [&](const std::string& status) {
            EXPECT_EQ(status, "0");
            EXPECT_FALSE(scratch_->exists("missing"));
        });
    }
}

// The last flush fails. Where the new file was is something that the old one can't replace.
TEST_P(ArchiveExpansion, KeepsWhatItCantPutBack)
{
    const std::string place = path("out/tree/sub/small.txt");
    const auto occupy = [&] {
        if (scratch_->read(place) == "content") {
            std::filesystem::remove(place);
            std::filesystem::create_directory(place);
        }
    };
    unsigned kept = 0;
    tryAll({.call = "flush", .error = EIO}, occupy, [&](const std::string& status) {
        EXPECT_EQ(status, "74");
        EXPECT_FALSE(scratch_->exists("out/tree/large.bin"));
        if (!std::filesystem::is_directory(place)) {
            EXPECT_EQ(scratch_->read(place), "earlier");
            return;
        }
        ++kept;
        const std::string name = scratch_->list("out").front();
        EXPECT_TRUE(name.starts_with(".folidex-") && !name.starts_with(".folidex-archive-")) << name;
        const Snapshot left = snapshot(path("out/" + name));
        EXPECT_TRUE(std::any_of(left.begin(), left.end(), [&](const auto& entry) {
            return std::filesystem::is_regular_file(path("out/" + name + entry.first)) &&
                   scratch_->read("out/" + name + entry.first) == "earlier";
        }));
    });
    EXPECT_GT(kept, 0U);
}

// As on a network's file system: four files, the work folder and three in it, two that are merged into.
TEST_P(ArchiveExpansion, FlushesEachItemWhereNotAllAreFlushedAtOnce)
{
    measure();
    prepare();
    FaultPlan plan{.lacks = {{"statfs", EIO}}};
    const unsigned long flushes = std::stoul(inChild([&] {
        FaultReport report;
        attempt(plan, &report);
        return std::to_string(report.calls["flush"]);
    }));
    EXPECT_GE(flushes, 10U);
    for (plan.call = "flush", plan.error = EIO; plan.at < flushes;) {
        ++plan.at;
        EXPECT_EQ(judge({.plan = plan, .mustFail = true}), "") << plan.at;
    }
}

// What is expanded meets what others have made, replaced or removed since it was looked at.
TEST_P(ArchiveExpansion, MergesWithWhatComesAndGoes)
{
    const FaultReport report = measure();
    const auto change = [&] {
        std::filesystem::create_directory(*scratch_ / "out/tree/unseen");
        if (!std::filesystem::exists(*scratch_ / "out/tree/large.bin")) {
            scratch_->write("out/tree/large.bin", "earlier");
        }
        if (scratch_->read("out/tree/sub/small.txt") == "earlier") {
            std::filesystem::remove(*scratch_ / "out/tree/sub/small.txt");
        }
    };
    for (const Lacks& lacks : {Lacks{}, Lacks{{"renameat2", EINVAL}}}) {
        for (unsigned at = 1; at <= report.total; ++at) {
            const FaultPlan plan{.lacks = lacks, .intrudeAt = at, .intrude = change};
            EXPECT_EQ(judge({"", plan, true}), "") << "before call " << at;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Unzip, ArchiveExpansion, testing::Values(verbs[2]));

TEST_P(ArchiveResult, LeavesWhatOthersPutInItsPlace)
{
    unsigned noticed = 0;
    const auto occupy = [&] {
        if (scratch_->read("out/x") != "earlier") {
            scratch_->write("placed");
        }
        std::filesystem::remove(path("out/x"));
        scratch_->write("out/x/mine", "mine");
    };
    tryAll({}, occupy, [&](const std::string& status) {
        EXPECT_EQ(scratch_->read("out/x/mine"), "mine");
        noticed += status == "73" && std::filesystem::remove(path("placed")) ? 1U : 0U;
    });
    EXPECT_GT(noticed, 0U);
}

// Whatever the file system can't do.
TEST_P(ArchiveResult, HasNoRightsThatTheFileSystemGives)
{
    SKIP_WITHOUT("access-lists");
    struct Case {
        Lacks lacks;
        mode_t mode;
        unsigned flushes = 2;
    };
    const Case cases[] = {{{}, 0644},
                          {{{"link", EPERM}}, 0644, 3},
                          {{{"unnamed", EOPNOTSUPP}}, 0644},
                          {{{"renameat2", EINVAL}}, 0644},
                          {{{"removexattr", EPERM}}, 0}};
    // Of acl(5): all rights to user 1.
    const std::string list("\2\0\0\0\1\0\7\0\377\377\377\377\2\0\7\0\1\0\0\0\4\0\7\0\377\377\377\377"
                           "\20\0\7\0\377\377\377\377\40\0\7\0\377\377\377\377",
                           44);
    measure();
    for (const Case& each : cases) {
        prepare();
        scratch_->setMode("out/x", 0644);
        ASSERT_EQ(setxattr(path("out").c_str(), "system.posix_acl_default", list.data(), list.size(), 0), 0);
        FaultPlan plan{.lacks = each.lacks};
        EXPECT_EQ(inChild([&] { return umask(022), attempt(plan).substr(0, 1); }), "0");
        struct stat made {};
        ASSERT_EQ(stat(path("out/x").c_str(), &made), 0);
        EXPECT_EQ(made.st_mode & (each.mode == 0 ? 077U : 0777U), each.mode);
        plan.call = "flush", plan.at = each.flushes, plan.error = EIO;
        EXPECT_EQ(inChild([&] { return attempt(plan).substr(0, 2); }), "74") << "what isn't flushed may be lost";
    }
}

INSTANTIATE_TEST_SUITE_P(Zip, ArchiveResult, testing::Values(verbs[0]));

} // namespace
} // namespace folidex::test
