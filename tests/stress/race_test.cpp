// Somebody else changes a tree while it is walked, copied and deleted: nothing outside of it is touched.

#include "stress/mixed_calls.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

constexpr int folders = 6;
constexpr int filesInEach = 12;
constexpr double canarySize = 1U << 30U; // bytes; a sum that contains it has left the tree

// A process that exchanges each folder of the tree with a link to the canary, back and forth, until it is destroyed.
class Swapper {
public:
    Swapper(const std::string& tree, const std::string& pool)
    {
        child_ = fork();
        while (child_ == 0) {
            for (int number = 0; number < folders; ++number) {
                const std::string name = "/d" + std::to_string(number);
                renameat2(AT_FDCWD, (tree + name).c_str(), AT_FDCWD, (pool + name).c_str(), RENAME_EXCHANGE);
            }
        }
    }
    ~Swapper()
    {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    Swapper(const Swapper&) = delete;
    Swapper& operator=(const Swapper&) = delete;

private:
    pid_t child_ = -1;
};

class Race : public testing::Test {
protected:
    Race()
    {
        scratch.makeFolder("copies");
        scratch.write("canary/song", "untouched");
        scratch.write("canary/inner/verse", "untouched too");
        fs::resize_file(scratch.write("canary/big"), static_cast<std::uintmax_t>(canarySize));
    }

    // Built where nobody changes it, then put in place; what stood there goes aside.
    void renewTree()
    {
        for (int number = 0; number < folders; ++number) {
            const std::string name = "/d" + std::to_string(number);
            for (int file = 0; file < filesInEach; ++file) {
                scratch.write("fresh/tree" + name + "/f" + std::to_string(file), "x");
            }
            scratch.makeFolder("fresh/pool");
            scratch.symlink(scratch / "canary", "fresh/pool" + name);
        }
        scratch.makeFolder("aside");
        for (const std::string name : {"tree", "pool"}) {
            if (scratch.exists(name)) {
                fs::rename(scratch / name, scratch / ("aside/" + name + std::to_string(++putAside)));
            }
            fs::rename(scratch / ("fresh/" + name), scratch / name);
        }
    }

    void expectCanary() const
    {
        EXPECT_EQ(scratch.list("canary"), (std::vector<std::string>{"big", "inner", "song"}));
        EXPECT_EQ(scratch.read("canary/song"), "untouched");
        EXPECT_EQ(scratch.read("canary/inner/verse"), "untouched too");
    }

    // Runs `body` while the tree is being changed, anew for each round, for a while.
    template <typename Body>
    void race(Body&& body)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(isFullRun() ? 30 : 3);
        int rounds = 0;
        while (std::chrono::steady_clock::now() < end && !HasFailure()) {
            renewTree();
            {
                const Swapper swapper(scratch.text("tree"), scratch.text("pool"));
                for (int turn = 0; turn < 20; ++turn) {
                    body();
                }
            }
            expectCanary();
            fs::remove_all(scratch / "aside");
            ++rounds;
        }
        EXPECT_GT(rounds, 0);
    }

    ScratchFolder scratch;
    PluginUnderTest plugin;

private:
    int putAside = 0;
};

TEST_F(Race, DeletionStaysInsideTheTree)
{
    race([&] {
        const Result result = plugin.call("KORB_FolderDelete", {scratch.text("tree")});
        EXPECT_TRUE(result.isError() || !scratch.exists("tree"));
        renewTree();
    });
}

TEST_F(Race, CopiesDontFollowLinks)
{
    race([&] {
        const Result result = plugin.call("KORB_FolderCopy", {scratch.text("tree"), scratch.text("copies")});
        for (const auto& entry : fs::recursive_directory_iterator(scratch / "copies")) {
            EXPECT_NE(entry.path().filename(), "song");
        }
        EXPECT_TRUE(result.isError() || scratch.exists("copies/tree"));
        EXPECT_EQ(scratch.list("copies").size(), result.isError() ? 0U : 1U);
        fs::remove_all(scratch / "copies/tree");
    });
}

TEST_F(Race, SumsDontFollowLinks)
{
    race([&] {
        const Result result = plugin.call("KORB_GetFolderSize", {scratch.text("tree")});
        EXPECT_TRUE(result.isError() || result.number() < canarySize) << result.utf8();
    });
}

} // namespace
} // namespace folidex::test
