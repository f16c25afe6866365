// Somebody changes the tree just before one of the plug-in's calls to the system: before each of them in turn, so that
// no moment between a look and a deed is left untried. Folders are exchanged with links that lead out of the tree,
// files come and are written to, and somebody takes the name that a copy is about to get.

#include "faults/fault_injector.h"
#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

constexpr std::uintmax_t canarySize = 1ULL << 30U; // bytes; a sum that contains it has left the tree

// Whether it was possible: not while the plug-in holds a lease, which another process would wait for.
bool append(const fs::path& file, int flags)
{
    const int opened = open(file.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC | flags, 0600);
    const bool isWritten = opened != -1 && write(opened, " and more", 9) == 9;
    if (opened != -1) {
        close(opened);
    }
    return isWritten;
}

struct Arranged {
    const char* function;
    const char* source;           // below the scratch folder
    const char* target = nullptr; // "away" is on another file system
};

class Intrusions : public testing::Test {
protected:
    void SetUp() override
    {
        if (!places.away) {
            GTEST_SKIP() << "needs a second file system at /dev/shm";
        }
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
        scratch.symlink(scratch / "canary", "pool/link");
    }

    // Calls the function once undisturbed, and then with somebody in between before each of its calls to the system.
    void intrudeEverywhere(const Arranged& call, const std::vector<std::pair<Call, int>>& lacks,
                           const std::function<void()>& intrude, const std::function<void(const Result&)>& judge)
    {
        static const std::function<void()>* current = nullptr;
        current = &intrude;
        std::vector<fmxhost::Value> arguments{scratch.text(call.source)};
        if (call.target != nullptr) {
            arguments.emplace_back(call.target == std::string("away") ? away.string() : scratch.text(call.target));
        }
        FaultPlan plan;
        plan.code = reinterpret_cast<const void*>(plugin.plugin().find(fmxhost::Value(call.function).text())->handler);
        plan.intrude = [] { (*current)(); };
        for (const auto& [kind, error] : lacks) {
            plan.lacks[static_cast<std::size_t>(kind)] = error;
        }
        unsigned calls = 7; // at least; fewer would mean that the calls aren't seen
        for (; plan.intrudeAt <= calls && !HasFailure(); ++plan.intrudeAt) {
            SCOPED_TRACE(std::string(call.function) + ", before call " + std::to_string(plan.intrudeAt));
            renew();
            armFaults(plan);
            const Result result = plugin.call(call.function, arguments);
            const FaultReport report = disarmFaults();
            calls = plan.intrudeAt == 0 ? report.total : calls;
            EXPECT_FALSE(result.threw()) << result.exception();
            EXPECT_TRUE(plan.intrudeAt > 0 || !result.isError()) << plugin.lastErrorText();
            judge(result);
            for (const fs::path& folder : {scratch.path(), away}) {
                for (const auto& entry : fs::recursive_directory_iterator(folder)) {
                    EXPECT_FALSE(entry.path().filename().string().starts_with(".folidex-")) << entry.path();
                }
            }
        }
        EXPECT_TRUE(calls >= 7 || HasFailure());
    }

    ScratchPair places;
    ScratchFolder& scratch = *places.home;
    fs::path away = places.away ? *places.away / "away" : fs::path();
    PluginUnderTest plugin;
};

TEST_F(Intrusions, NeverLeadOutOfTheTree)
{
    const struct {
        Arranged call;
        std::vector<const char*> victims; // the folders that the link replaces
    } walks[] = {
        {{"KORB_FolderDelete", "tree"}, {"tree/inner", "tree/inner/deep", "tree"}},
        {{"KORB_FolderCopy", "tree", "copies"}, {"tree/inner", "tree/inner/deep"}},
        {{"KORB_FolderMove", "tree", "away"}, {"tree/inner", "tree/inner/deep", "tree"}},
        {{"KORB_GetFolderSize", "tree"}, {"tree/inner", "tree/inner/deep"}},
    };
    for (const auto& [call, victims] : walks) {
        for (const std::string victim : victims) {
            SCOPED_TRACE(victim);
            unsigned exchanges = 0;
            const auto exchange = [&] {
                const std::string folder = scratch.text(victim);
                const std::string link = scratch.text("pool/link");
                if (renameat2(AT_FDCWD, folder.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE) == 0) {
                    ++exchanges;
                } else if (errno != ENOENT) { // what is deleted already can't be exchanged
                    ADD_FAILURE() << "can't exchange " << folder;
                }
            };
            intrudeEverywhere(call, {}, exchange, [&](const Result& result) {
                EXPECT_EQ(scratch.list("canary"), (std::vector<std::string>{"big", "deep", "song"}));
                EXPECT_EQ(scratch.list("canary/deep"), std::vector<std::string>{"verse"});
                EXPECT_EQ(scratch.read("canary/song"), "untouched");
                for (const fs::path& folder : {scratch / "copies", away}) {
                    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
                        EXPECT_NE(entry.path().filename(), "song");
                        EXPECT_NE(entry.path().filename(), "verse");
                    }
                }
                EXPECT_TRUE(result.isError() || result.number() < static_cast<double>(canarySize));
            });
            EXPECT_GT(exchanges, 6U);
        }
    }
}

// Whatever is written into the source while it is moved to another file system is afterwards there or here.
TEST_F(Intrusions, AreNotRemovedWithTheSource)
{
    for (const std::string name : {"inner/deep/file", "inner/file", "last", "inner/deep/new", "inner/new", "new"}) {
        SCOPED_TRACE(name);
        bool isWritten = false;
        const auto write = [&] { isWritten = append(scratch / "tree" / name, O_CREAT); };
        intrudeEverywhere({"KORB_FolderMove", "tree", "away"}, {}, write, [&](const Result& result) {
            const auto holds = [&](const fs::path& file) {
                std::string text;
                std::getline(std::ifstream(file), text, '\0');
                return text.ends_with(" and more");
            };
            EXPECT_TRUE(!isWritten || holds(scratch / "tree" / name) || holds(away / "tree" / name));
            EXPECT_TRUE(result.isError() || !scratch.exists("tree"));
            for (const char* file : {"inner/deep/file", "inner/file", "last"}) {
                EXPECT_TRUE(scratch.exists(fs::path("tree") / file) || fs::exists(away / "tree" / file)) << file;
            }
            isWritten = false;
        });
    }
    intrudeEverywhere(
        {"KORB_FileMove", "tree/last", "away"}, {}, [&] { append(scratch / "tree/last", 0); },
        [&](const Result& result) {
            EXPECT_EQ(result.isError(), scratch.exists("tree/last"));
            EXPECT_NE(fs::exists(away / "last"), scratch.exists("tree/last"));
        });
}

// Where a name has been taken after the look at it, what took it stays.
TEST_F(Intrusions, AreNotReplaced)
{
    const std::vector<std::pair<Call, int>> systems[] = {
        {},
        {{Call::rename, EINVAL}, {Call::unnamed, EOPNOTSUPP}},
        {{Call::rename, EINVAL}, {Call::unnamed, EOPNOTSUPP}, {Call::link, EPERM}},
    };
    const struct {
        Arranged call;
        const char* target;
    } arrivals[] = {
        {{"KORB_FileCopy", "tree/last", "copies"}, "copies/last"},
        {{"KORB_FileMove", "tree/last", "copies"}, "copies/last"},
        {{"KORB_FileMove", "tree/last", "away"}, "away/last"},
        {{"KORB_FolderCopy", "tree", "copies"}, "copies/tree"},
        {{"KORB_FolderMove", "tree", "away"}, "away/tree"},
    };
    for (const auto& lacks : systems) {
        for (const auto& [call, name] : arrivals) {
            SCOPED_TRACE(lacks.size());
            const fs::path target = name[0] == 'a' ? away / (name + 5) : scratch / name;
            bool isFirst = false;
            const auto take = [&] {
                isFirst = !fs::exists(fs::symlink_status(target));
                if (isFirst) {
                    std::ofstream(target) << "who came first";
                }
            };
            intrudeEverywhere(call, lacks, take, [&](const Result& result) {
                std::string text;
                std::getline(std::ifstream(target), text);
                EXPECT_TRUE(!isFirst || (text == "who came first" && result.isError())) << text;
                EXPECT_TRUE(!result.isError() || fs::exists(scratch / call.source));
                isFirst = false;
            });
        }
    }
}

} // namespace
} // namespace folidex::test
