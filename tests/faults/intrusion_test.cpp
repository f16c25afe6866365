// Somebody acts just before one of the plug-in's calls to the system: before each of them in turn, so that no moment
// between a look and a deed is left untried; of these moments every fifth, without FOLIDEX_FULL in the environment.
// Folders are replaced by links that lead out of the tree, files come and are written to, somebody takes the name
// that a copy is about to get, or kills the process.

#include "faults/fault_injector.h"
#include "support/child_process.h"
#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"
#include "support/surroundings.h"
#include "support/tree_snapshot.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

constexpr std::uintmax_t canarySize = 1ULL << 30U; // bytes; a sum that contains it has left the tree

struct Arranged {
    const char* function;
    const char* source;           // below the scratch folder
    const char* target = nullptr; // "away" is on another file system
};

// Opens the file to write to it; -1 where that isn't possible, as while the plug-in holds a lease.
int openToWrite(const fs::path& file, int flags)
{
    return open(file.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC | flags, 0600);
}

class Intrusions : public testing::Test {
protected:
    void SetUp() override
    {
        SKIP_WITHOUT("memory");
        scratch.write("canary/song", "untouched");
        scratch.write("canary/deep/verse", "untouched too");
        fs::resize_file(scratch.write("canary/big"), canarySize);
    }

    void renew() const
    {
        for (const fs::path& folder : {scratch / "tree", scratch / "pool", scratch / "copies", away}) {
            fs::remove_all(folder);
            fs::create_directory(folder);
        }
        scratch.write("tree/inner/deep/file", "x");
        scratch.write("tree/inner/file", "x");
        scratch.write("tree/last", "x");
        scratch.symlink("last", "tree/link");
        scratch.write("pool/linked", "x");
        scratch.hardLink("pool/linked", "tree/linked");
        scratch.hardLink("pool/linked", "tree/inner/linked");
        scratch.symlink(scratch / "canary", "pool/link");
        scratch.symlink(scratch / "canary/song", "pool/song");
    }

    Result call(const Arranged& call) const
    {
        std::vector<fmxhost::Value> arguments{scratch.text(call.source)};
        if (call.target != nullptr) {
            arguments.emplace_back(call.target == std::string("away") ? away.string() : scratch.text(call.target));
        }
        return plugin.call(call.function, arguments);
    }

    const void* codeOf(const Arranged& call) const
    {
        return reinterpret_cast<const void*>(plugin.function(call.function).handler);
    }

    // How many items there are whose names say that they are on their way.
    std::size_t hiddenItems() const
    {
        std::size_t hidden = 0;
        for (const fs::path& folder : {scratch.path(), away}) {
            for (const auto& entry : fs::recursive_directory_iterator(folder)) {
                hidden += entry.path().filename().string().starts_with(".folidex-") ? 1U : 0U;
            }
        }
        return hidden;
    }

    // Calls the function once undisturbed, and then with somebody in between before each of its calls to the system.
    void intrudeEverywhere(const Arranged& arranged, const Lacks& lacks, const std::function<void()>& intrude,
                           const std::function<void(const Result&)>& judge)
    {
        FaultPlan plan{.lacks = lacks, .intrude = intrude};
        plan.code = codeOf(arranged);
        unsigned calls = 7; // at least; fewer would mean that the calls aren't seen
        for (; plan.intrudeAt <= calls && !HasFailure(); plan.intrudeAt = next(plan.intrudeAt)) {
            SCOPED_TRACE(std::string(arranged.function) + ", before call " + std::to_string(plan.intrudeAt));
            renew();
            armFaults(plan);
            const Result result = call(arranged);
            const FaultReport report = disarmFaults();
            calls = plan.intrudeAt == 0 ? report.total : calls;
            EXPECT_FALSE(result.threw()) << result.exception();
            EXPECT_TRUE(plan.intrudeAt > 0 || !result.isError()) << plugin.lastErrorText();
            judge(result);
            EXPECT_EQ(hiddenItems(), 0U);
            tried += plan.intrudeAt > 0 ? 1U : 0U;
        }
        EXPECT_TRUE(calls >= 7 || HasFailure());
        moments += calls;
    }

    // The moment to try after `moment`: where not all are, others for each arrangement.
    unsigned next(unsigned moment) { return moment > 0 ? moment + step : 1 + arrangements++ % step; }

    void TearDown() override { std::cout << "sample: " << tried << " of " << moments << " intrusions" << std::endl; }

    const unsigned step = std::getenv("FOLIDEX_FULL") != nullptr ? 1 : 5;
    unsigned arrangements = 0;
    unsigned tried = 0;
    unsigned moments = 0;

    ScratchPair places;
    ScratchFolder& scratch = *places.home;
    fs::path away = places.away ? *places.away / "away" : fs::path();
    PluginUnderTest plugin;
};

TEST_F(Intrusions, NeverLeadOutOfTheTree)
{
    const struct {
        Arranged call;
        std::vector<const char*> victims; // what a link replaces
    } walks[] = {
        {{"KORB_FolderDelete", "tree"}, {"tree/inner", "tree/inner/deep", "tree"}},
        {{"KORB_FolderCopy", "tree", "copies"}, {"tree/inner", "tree/inner/deep", "tree/inner/file", "tree"}},
        {{"KORB_FolderMove", "tree", "away"}, {"tree/inner", "tree/inner/deep", "tree", "tree/inner/file"}},
        {{"KORB_FileCopy", "tree/last", "copies"}, {"tree/last"}},
        {{"KORB_GetFolderSize", "tree"}, {"tree/inner", "tree/inner/deep"}},
    };
    for (const auto& [call, victims] : walks) {
        for (const std::string victim : victims) {
            SCOPED_TRACE(victim);
            unsigned exchanges = 0;
            const auto exchange = [&] {
                const std::string item = scratch.text(victim);
                const std::string link = scratch.text(fs::is_directory(item) ? "pool/link" : "pool/song");
                if (renameat2(AT_FDCWD, item.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE) == 0) {
                    ++exchanges;
                } else if (errno != ENOENT) { // what is deleted already can't be exchanged
                    ADD_FAILURE() << "can't exchange " << item;
                }
            };
            intrudeEverywhere(call, {}, exchange, [&](const Result& result) {
                EXPECT_EQ(scratch.list("canary"), (std::vector<std::string>{"big", "deep", "song"}));
                EXPECT_EQ(scratch.list("canary/deep"), std::vector<std::string>{"verse"});
                EXPECT_EQ(scratch.read("canary/song"), "untouched");
                for (const fs::path& folder : {scratch / "copies", away}) {
                    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
                        const bool isFile = fs::is_regular_file(entry.symlink_status());
                        EXPECT_TRUE(!isFile || !scratch.read(entry.path()).starts_with("untouched")) << entry.path();
                    }
                }
                const fs::path copy = scratch / "copies/tree"; // the folder or, if that came before the call, the link
                EXPECT_TRUE(!fs::is_directory(copy) || fs::is_symlink(copy) || fs::exists(copy / "last"));
                EXPECT_TRUE(result.isError() || result.number() < static_cast<double>(canarySize));
            });
            EXPECT_GT(exchanges, 6U / step);
        }
    }
}

// Whatever is done to the source while it is moved to another file system is afterwards to be seen there or here.
TEST_F(Intrusions, AreNotRemovedWithTheSource)
{
    int held = -1;
    const auto write = [](const fs::path& file, int flags, const char* text) {
        const int opened = openToWrite(file, flags);
        const bool isWritten = opened != -1 && ::write(opened, text, 1) == 1;
        close(opened);
        return isWritten;
    };
    const auto append = [&](const fs::path& file) { return write(file, O_APPEND | O_CREAT, "+"); };
    // Nothing tells but the time that nobody can set, and that only until the file gets another name.
    const auto rewrite = [&](const fs::path& file) {
        struct stat before {};
        struct stat now {};
        if (fs::exists(away / "tree") || stat(file.c_str(), &before) != 0) {
            return false;
        }
        do {
            const timespec times[] = {before.st_atim, before.st_mtim};
            if (!write(file, 0, "X") || utimensat(AT_FDCWD, file.c_str(), times, 0) != 0) {
                return false;
            }
            stat(file.c_str(), &now);
        } while (now.st_ctim.tv_nsec == before.st_ctim.tv_nsec);
        return true;
    };
    const auto exchange = [&](const fs::path& file) {
        scratch.write("pool/new", "X");
        return fs::exists(file) && rename((scratch / "pool/new").c_str(), file.c_str()) == 0;
    };
    const auto link = [&](const fs::path& file) {
        unlink(file.c_str());
        return symlink("X", file.c_str()) == 0;
    };
    const auto makeFolder = [](const fs::path& folder) { return mkdir(folder.c_str(), 0700) == 0; };
    const auto hold = [&](const fs::path& file) { return (held = openToWrite(file, 0)) != -1; };
    const struct {
        const char* name; // below the moved folder
        std::function<bool(const fs::path& item)> act;
    } deeds[] = {
        {"inner/deep/file", append}, {"inner/file", append}, {"last", append},          {"inner/deep/new", append},
        {"inner/new", append},       {"new", append},        {"inner/file", rewrite},   {"inner/deep/file", exchange},
        {"inner/file", link},        {"inner/new", link},    {"inner/new", makeFolder}, {"inner/file", hold},
        {"linked", rewrite},
    };
    unsigned refusals = 0; // before anything has come
    const auto expectKept = [&](const Arranged& move, const Lacks& lacks, const fs::path& name, const auto& act) {
        const std::string source = move.source;
        const fs::path copy = away / fs::path(source).filename();
        const auto in = [&](const fs::path& place) { return name.empty() ? place : place / name; };
        std::string expected;
        const auto intrude = [&] {
            const fs::path item = in(scratch / source);
            expected = act(item) ? snapshot(item).at("").content : "";
        };
        intrudeEverywhere(move, lacks, intrude, [&](const Result& result) {
            const auto isAt = [&](const fs::path& place) { return snapshot(in(place)).at("").content == expected; };
            EXPECT_TRUE(expected.empty() || isAt(scratch / source) || isAt(copy)) << expected;
            EXPECT_EQ(result.isError(), scratch.exists(source));
            struct stat status {};
            EXPECT_TRUE(held == -1 || (fstat(held, &status) == 0 && status.st_nlink > 0));
            for (const char* file : {"inner/deep/file", "inner/file", "last"}) {
                EXPECT_TRUE(scratch.exists(fs::path("tree") / file) || fs::exists(fs::symlink_status(copy / file)) ||
                            source != "tree");
            }
            refusals += result.isError() && !fs::exists(copy) ? 1U : 0U;
            expected.clear();
            close(std::exchange(held, -1));
        });
    };
    for (const auto& [name, act] : deeds) {
        SCOPED_TRACE(std::string(name) + " of " + std::to_string(&name - &deeds[0].name));
        expectKept({"KORB_FolderMove", "tree", "away"}, {}, name, act);
        EXPECT_GT(refusals, 0U);
        refusals = 0;
    }
    for (const Lacks& lacks : {Lacks(), Lacks{{"lease", EINVAL}}}) {
        expectKept({"KORB_FileMove", "tree/last", "away"}, lacks, "",
                   [&](const fs::path& file) { return write(file, O_APPEND, "+"); });
    }
}

// What a folder becomes private for may come into it right afterwards.
TEST_F(Intrusions, ThatMakeAFolderPrivateAreHeeded)
{
    bool isHeeded = false;
    const auto chmodInner = [&] {
        isHeeded = !fs::exists(away / "tree") && chmod((scratch / "tree/inner").c_str(), 0700) == 0;
    };
    intrudeEverywhere({"KORB_FolderMove", "tree", "away"}, {}, chmodInner, [&](const Result& result) {
        EXPECT_TRUE(!isHeeded || result.isError() || fs::status(away / "tree/inner").permissions() == fs::perms(0700));
        isHeeded = false;
    });
}

TEST_F(Intrusions, ThatRemoveEntriesAreNoFailuresOfACopy)
{
    for (const char* victim : {"tree/inner/deep/file", "tree/link", "tree/inner/deep"}) {
        intrudeEverywhere(
            {"KORB_FolderCopy", "tree", "copies"}, {}, [&] { fs::remove_all(scratch / victim); },
            [&](const Result& result) {
                EXPECT_FALSE(result.isError()) << plugin.lastErrorText();
                EXPECT_TRUE(scratch.exists("copies/tree/inner/file"));
            });
    }
}

// A copy that went on with what comes meanwhile might never end. The folder is larger than what the system shows at
// once, and on a disk, for tmpfs doesn't show what has come.
TEST_F(Intrusions, ThatFillAFolderAreNotFollowed)
{
    const ScratchFolder disk;
    const auto fill = [&](const char* prefix, int count) {
        for (int i = 0; i < count; ++i) {
            disk.write("tree/" + (prefix + std::string(200, '-')) + std::to_string(i));
        }
    };
    fill("old", 2000);
    FaultPlan plan{.intrudeAt = 200, .intrude = [&] { fill("new", 50); }};
    plan.code = codeOf({"KORB_FolderCopy", "tree"});
    armFaults(plan);
    EXPECT_EQ(plugin.call("KORB_FolderCopy", {disk.text("tree"), disk.makeFolder("copies").string()}).utf8(), "0");
    disarmFaults();
    EXPECT_EQ(disk.list("tree").size(), 2050U);
    EXPECT_EQ(disk.list("copies/tree").size(), 2000U);
}

// A copy whose name doesn't get to the disk goes again, without what others have put into it or in its place.
TEST_F(Intrusions, AreNotWithdrawnWithACopy)
{
    const Arranged move{"KORB_FolderMove", "tree", "away"};
    renew();
    FaultPlan plan;
    plan.code = codeOf(move);
    armFaults(plan);
    EXPECT_FALSE(call(move).isError());
    const FaultReport undisturbed = disarmFaults();
    plan.call = "flush";
    plan.at = undisturbed.calls.at("flush");
    plan.error = EIO;
    for (const bool isReplaced : {false, true}) {
        bool hasCome = false;
        plan.intrude = [&] {
            hasCome = fs::exists(away / "tree");
            if (hasCome && isReplaced) {
                fs::rename(away / "tree", away / "taken");
                fs::create_directory(away / "tree");
            } else if (hasCome) {
                scratch.write(away / "tree/inner/theirs", "t");
            }
        };
        unsigned arrivals = 0;
        // Back to the moment before the copy appears.
        for (plan.intrudeAt = undisturbed.total; plan.intrudeAt > 0 && (arrivals == 0 || hasCome); --plan.intrudeAt) {
            renew();
            hasCome = false;
            armFaults(plan);
            EXPECT_TRUE(call(move).isError());
            const FaultReport report = disarmFaults();
            EXPECT_TRUE(scratch.exists("tree/inner/deep/file"));
            // After the last look at what has the name nobody can tell.
            const bool isSeen = !isReplaced || plan.intrudeAt <= report.total - report.sinceFault;
            const bool isKept = fs::exists(away / (isReplaced ? "tree" : "tree/inner/theirs"));
            EXPECT_TRUE(isKept || !hasCome || !isSeen);
            EXPECT_TRUE(isReplaced || fs::exists(away / "tree") == isKept);
            arrivals += isKept && isSeen ? 1U : 0U;
        }
        EXPECT_GT(arrivals, 0U);
    }
}

// Where a name has been taken after the look at it, what took it stays.
TEST_F(Intrusions, AreNotReplaced)
{
    const Lacks systems[] = {
        {},
        {{"renameat2", EINVAL}, {"unnamed", EOPNOTSUPP}},
        {{"renameat2", EINVAL}, {"unnamed", EOPNOTSUPP}, {"link", EPERM}},
    };
    const struct {
        Arranged call;
        const char* target;
    } arrivals[] = {
        {{"KORB_FileCopy", "tree/last", "copies"}, "copies/last"},
        {{"KORB_FileCopy", "tree/link", "copies"}, "copies/link"},
        {{"KORB_FileMove", "tree/last", "copies"}, "copies/last"},
        {{"KORB_FileMove", "tree/last", "away"}, "away/last"},
        {{"KORB_FolderCopy", "tree", "copies"}, "copies/tree"},
        {{"KORB_FolderMove", "tree", "away"}, "away/tree"},
    };
    for (const Lacks& lacks : systems) {
        for (const auto& [call, name] : arrivals) {
            SCOPED_TRACE(lacks.size());
            const ScratchFolder& folder = name[0] == 'a' ? *places.away : scratch;
            bool isFirst = false;
            const auto take = [&, name = name] {
                isFirst = !folder.exists(name);
                if (isFirst) {
                    folder.write(name, "who came first");
                }
            };
            intrudeEverywhere(call, lacks, take, [&, &call = call, name = name](const Result& result) {
                EXPECT_TRUE(!isFirst || (folder.read(name) == "who came first" && result.isError()));
                EXPECT_TRUE(!result.isError() || scratch.exists(call.source));
                isFirst = false;
            });
        }
    }
}

// Where an empty file claims the name, it is looked at once more before it is renamed over.
TEST_F(Intrusions, IntoAClaimAreSeen)
{
    const Arranged copy{"KORB_FileCopy", "tree/last", "copies"};
    FaultPlan plan{.lacks = {{"renameat2", EINVAL}, {"unnamed", EOPNOTSUPP}, {"link", EPERM}}, .intrudeAt = 1};
    plan.code = codeOf(copy);
    bool hasCome = false;
    plan.intrude = [&] {
        hasCome = scratch.exists("copies/last") && fs::is_empty(scratch / "copies/last");
        if (hasCome) {
            fs::permissions(scratch / "copies/last", fs::perms::owner_all);
            scratch.write("copies/last", "theirs");
        }
    };
    unsigned kept = 0;
    for (unsigned calls = 7; plan.intrudeAt <= calls; ++plan.intrudeAt) {
        renew();
        hasCome = false;
        armFaults(plan);
        const Result result = call(copy);
        calls = std::max(calls, disarmFaults().total);
        const bool isKept = hasCome && scratch.read("copies/last") == "theirs";
        EXPECT_EQ(result.isError(), isKept);
        kept += isKept ? 1U : 0U;
    }
    EXPECT_GT(kept, 0U);
}

// After kill -9 the copy is there whole or not at all, and of a file that gets its name last nothing is left.
TEST_F(Intrusions, ThatKillLeaveNothingHalfMade)
{
    for (const auto& [arranged, target] : {std::pair(Arranged{"KORB_FileCopy", "tree/last", "copies"}, "copies/last"),
                                           std::pair(Arranged{"KORB_FolderCopy", "tree", "copies"}, "copies/tree"),
                                           std::pair(Arranged{"KORB_FolderMove", "tree", "away"}, "away/tree")}) {
        const fs::path copy = target[0] == 'a' ? away / (target + 5) : scratch / target;
        FaultPlan plan{.intrudeAt = 1, .intrude = [] { kill(getpid(), SIGKILL); }};
        plan.code = codeOf(arranged);
        const auto killed = "child: ended by signal " + std::to_string(SIGKILL);
        for (std::string answer = killed; answer == killed; plan.intrudeAt += step, ++tried) {
            renew();
            const Snapshot before = snapshot(scratch / arranged.source);
            answer = inChild([&, &arranged = arranged] {
                armFaults(plan);
                return call(arranged).utf8();
            });
            const bool isThere = fs::exists(copy);
            EXPECT_TRUE(!isThere || snapshot(copy) == before) << plan.intrudeAt;
            EXPECT_TRUE(isThere || answer == killed) << answer;
            EXPECT_TRUE(isThere || snapshot(scratch / arranged.source) == before);
            EXPECT_TRUE(hiddenItems() == 0 || arranged.function != std::string("KORB_FileCopy"));
        }
        EXPECT_GT(plan.intrudeAt, 7U);
        moments += plan.intrudeAt;
    }
}

} // namespace
} // namespace folidex::test
