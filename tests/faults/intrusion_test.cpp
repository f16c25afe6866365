// Somebody exchanges a folder of the tree with a link that leads out of it, just before one of the plug-in's calls to
// the system: before each of them in turn, so that no moment between a look and a deed is left untried.

#include "faults/injector_access.h"
#include "faults/scratch_pair.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

constexpr unsigned fewestCalls = 6;                // of a function that walks the tree
constexpr std::uintmax_t canarySize = 1ULL << 30U; // bytes; a sum that contains it has left the tree

std::string exchanged[2];
unsigned exchanges = 0;

void exchange()
{
    if (renameat2(AT_FDCWD, exchanged[0].c_str(), AT_FDCWD, exchanged[1].c_str(), RENAME_EXCHANGE) == 0) {
        ++exchanges;
    } else if (errno != ENOENT) { // what is deleted already can't be exchanged
        ADD_FAILURE() << "can't exchange " << exchanged[0];
    }
}

struct Walk {
    const char* name;
    const char* function;
    std::vector<const char*> arguments; // below the scratch folder
    const char* victim;                 // the folder that the link replaces
    bool isAcross = false;              // "copies" is on another file system
};

void PrintTo(const Walk& walk, std::ostream* stream)
{
    *stream << walk.name;
}

class Intrusion : public testing::TestWithParam<Walk> {
protected:
    void renew()
    {
        for (const fs::path& folder : {scratch / "tree", scratch / "pool", copies}) {
            fs::remove_all(folder);
        }
        fs::create_directory(copies);
        scratch.write("tree/inner/deep/file", "x");
        scratch.write("tree/inner/file", "x");
        scratch.write("tree/last", "x");
        scratch.makeFolder("pool");
        scratch.symlink(scratch / "canary", "pool/link");
        exchanged[0] = scratch.text(GetParam().victim);
        exchanged[1] = scratch.text("pool/link");
    }

    std::vector<fmxhost::Value> arguments() const
    {
        std::vector<fmxhost::Value> values;
        for (const std::string name : GetParam().arguments) {
            values.emplace_back(name == "copies" ? copies.string() : scratch.text(name));
        }
        return values;
    }

    void expectNothingOutsideIsTouched(const Result& result) const
    {
        EXPECT_EQ(scratch.list("canary"), (std::vector<std::string>{"big", "deep", "song"}));
        EXPECT_EQ(scratch.list("canary/deep"), std::vector<std::string>{"verse"});
        EXPECT_EQ(scratch.read("canary/song"), "untouched");
        for (const auto& entry : fs::recursive_directory_iterator(copies)) {
            EXPECT_NE(entry.path().filename(), "song");
            EXPECT_NE(entry.path().filename(), "verse");
        }
        EXPECT_FALSE(result.type() == fmxhost::ValueType::number && result.number() >= static_cast<double>(canarySize));
        EXPECT_EQ(result.utf8().find("verse"), std::string::npos);
        for (const fs::path& folder : {scratch.path(), copies}) {
            for (const auto& entry : fs::recursive_directory_iterator(folder)) {
                EXPECT_NE(entry.path().filename().string().substr(0, 9), ".folidex-") << entry.path();
            }
        }
    }

    ScratchPair places;
    ScratchFolder& scratch = *places.home;
    fs::path copies = GetParam().isAcross && places.away ? *places.away / "copies" : scratch / "copies";
    PluginUnderTest plugin;
};

TEST_P(Intrusion, NeverLeadsOutOfTheTree)
{
    if (GetParam().isAcross && !places.away) {
        GTEST_SKIP() << "needs a second file system at /dev/shm";
    }
    scratch.write("canary/song", "untouched");
    scratch.write("canary/deep/verse", "untouched too");
    fs::resize_file(scratch.write("canary/big"), canarySize);

    const Injector injector;
    FaultPlan plan = planFor(plugin);
    plan.intrude = exchange;
    unsigned calls = 0; // of the undisturbed run, the first
    for (exchanges = 0; plan.intrudeAt <= calls && !HasFailure(); ++plan.intrudeAt) {
        SCOPED_TRACE("before call " + std::to_string(plan.intrudeAt));
        renew();
        injector.arm(&plan);
        const Result result = plugin.call(GetParam().function, arguments());
        const FaultReport report = injector.disarm();
        calls = plan.intrudeAt == 0 ? report.total : calls;
        EXPECT_FALSE(result.threw()) << result.exception();
        EXPECT_TRUE(plan.intrudeAt > 0 || !result.isError()) << plugin.lastErrorText();
        expectNothingOutsideIsTouched(result);
    }
    EXPECT_GT(exchanges, fewestCalls);
}

const Walk walks[] = {
    {"delete_inner", "KORB_FolderDelete", {"tree"}, "tree/inner"},
    {"delete_deep", "KORB_FolderDelete", {"tree"}, "tree/inner/deep"},
    {"delete_top", "KORB_FolderDelete", {"tree"}, "tree"},
    {"copy_inner", "KORB_FolderCopy", {"tree", "copies"}, "tree/inner"},
    {"copy_deep", "KORB_FolderCopy", {"tree", "copies"}, "tree/inner/deep"},
    {"move_across_inner", "KORB_FolderMove", {"tree", "copies"}, "tree/inner", true},
    {"move_across_deep", "KORB_FolderMove", {"tree", "copies"}, "tree/inner/deep", true},
    {"move_across_top", "KORB_FolderMove", {"tree", "copies"}, "tree", true},
    {"size_inner", "KORB_GetFolderSize", {"tree"}, "tree/inner"},
    {"size_deep", "KORB_GetFolderSize", {"tree"}, "tree/inner/deep"},
};

INSTANTIATE_TEST_SUITE_P(Walks, Intrusion, testing::ValuesIn(walks),
                         [](const auto& walk) { return std::string(walk.param.name); });

} // namespace
} // namespace folidex::test

int main(int argc, char** argv)
{
    try {
        folidex::test::loadInjector(argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 2;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
