// Copying, moving and archiving on file systems with other customs, and moving what somebody is writing to.

#include "faults/strange_file_system.h"
#include "support/child_process.h"
#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"
#include "support/tree_snapshot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

using Arguments = std::vector<fmxhost::Value>;

class Strange : public testing::Test {
protected:
    void mount(Strangeness strangeness)
    {
        fileSystem = std::make_unique<StrangeFileSystem>(scratch.makeFolder("shown"), at, strangeness);
        if (!fileSystem->problem().empty()) {
            GTEST_SKIP() << fileSystem->problem();
        }
    }

    ScratchFolder scratch;
    const fs::path at = scratch.makeFolder("mounted");
    std::unique_ptr<StrangeFileSystem> fileSystem;
    PluginUnderTest plugin;
};

// Each fails, keeps its source and leaves nothing at the target.
TEST_F(Strange, CloseThatFailsIsReported)
{
    mount({.closeFails = true});
    if (IsSkipped()) {
        return;
    }
    scratch.write("source/a.txt", "twelve bytes");
    scratch.write("source/inner/b.txt", std::string(100'000, 'b'));
    fs::copy(FOLIDEX_ARCHIVES "/plain.zip", scratch / "source");
    fs::copy(FOLIDEX_ARCHIVES "/text.encrypted", scratch / "source");
    fs::copy(FOLIDEX_ARCHIVES "/encrypted.zip", scratch / "source");
    const Snapshot before = snapshot(scratch / "source");
    const std::string file = scratch.text("source/a.txt");
    const std::string folder = scratch.text("source/inner");
    const std::string target = at.string();
    const std::string password = "pass word|é";
    const std::pair<const char*, Arguments> calls[] = {
        {"KORB_FileCopy", {file, target}},
        {"KORB_FileMove", {file, target}},
        {"KORB_FolderCopy", {folder, target}},
        {"KORB_FolderMove", {folder, target}},
        {"KORB_CompressFile", {file, target + "/a.zip"}},
        {"KORB_CompressAndEncrypt", {folder, target + "/a.zip", password}},
        {"KORB_EncryptFile", {file, target + "/a.bin", password}},
        {"KORB_ExpandFile", {scratch.text("source/plain.zip"), target + "/"}},
        {"KORB_DecryptFile", {scratch.text("source/text.encrypted"), target + "/text", password}},
        {"KORB_DecryptAndExpand", {scratch.text("source/encrypted.zip"), target + "/", password}},
    };
    for (const auto& [function, arguments] : calls) {
        EXPECT_TRUE(plugin.call(function, arguments).isError()) << function;
        EXPECT_EQ(snapshot(scratch / "source"), before) << function;
        EXPECT_TRUE(fs::is_empty(at)) << function << " left " << *fs::directory_iterator(at);
        for (const auto& entry : fs::directory_iterator(at)) {
            fs::remove_all(entry);
        }
    }
}

// One of two threads that want the same name gets it, and what it has put there stays.
TEST_F(Strange, NothingIsReplacedWithoutLinks)
{
    mount({.noExclusiveRename = true, .noHardLinks = true});
    if (IsSkipped()) {
        return;
    }
    for (int round = 0; round < 50 && !HasFailure(); ++round) {
        std::array<std::string, 2> answers;
        std::array<std::thread, 2> threads;
        for (std::size_t i = 0; i < 2; ++i) {
            const std::string source = scratch.write(std::to_string(i) + "/a.txt", std::to_string(i));
            threads[i] = std::thread([&, i, source] {
                answers[i] = plugin.call("KORB_FileCopy", {source, at.string()}).utf8();
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_NE(answers[0] == "0", answers[1] == "0") << "round " << round;
        EXPECT_EQ(scratch.read("shown/a.txt"), answers[0] == "0" ? "0" : "1");
        fs::remove(scratch / "shown/a.txt");
    }
}

// A file under another spelling of its name is the same file, whatever its number says.
TEST_F(Strange, OtherSpellingsDontLoseTheFile)
{
    for (const bool unstable : {false, true}) {
        mount({.ignoresCase = true, .unstableInodes = unstable});
        if (IsSkipped()) {
            return;
        }
        const std::pair<const char*, Arguments> calls[] = {
            {"KORB_FileCopy", {(at / "a.txt").string(), at.string(), "Y", "A.TXT"}},
            {"KORB_FileMove", {(at / "a.txt").string(), at.string(), "Y", "A.TXT"}},
            {"KORB_FileCopy", {(at / "inner/b.txt").string(), at.string(), "Y", "INNER"}},
            {"KORB_FileRename", {(at / "a.txt").string(), "A.TXT"}},
            {"KORB_FolderRename", {(at / "inner").string(), "INNER"}},
            {"KORB_FolderCopy", {(at / "inner").string(), (at / "INNER").string()}},
            {"KORB_FolderMove", {(at / "inner").string(), (at / "INNER").string()}},
        };
        for (const auto& [function, arguments] : calls) {
            scratch.write("shown/a.txt", "twelve bytes");
            scratch.write("shown/inner/b.txt", "more");
            plugin.call(function, arguments);
            const auto read = [&](const char* name) {
                std::string text;
                std::getline(std::ifstream(at / name), text);
                return text;
            };
            EXPECT_EQ(read("a.txt"), "twelve bytes") << function;
            EXPECT_EQ(read("inner/b.txt"), "more") << function;
            fs::remove_all(scratch / "shown");
            scratch.makeFolder("shown");
        }
        fileSystem.reset();
    }
}

// Somebody makes new files and appends to old ones all the while: every line is in the source or in the target.
TEST(Writer, LosesNothingToAMove)
{
    if (std::getenv("FOLIDEX_FULL") == nullptr) {
        GTEST_SKIP() << "takes FOLIDEX_FULL=1";
    }
    const ScratchPair places;
    if (!places.away) {
        GTEST_SKIP() << "needs a second file system at /dev/shm";
    }
    const PluginUnderTest plugin;
    for (int round = 0; round < 50 && !testing::Test::HasFailure(); ++round) {
        for (int i = 0; i < 200; ++i) {
            places.home->write("tree/d" + std::to_string(i % 10) + "/f" + std::to_string(i),
                               std::string(20'000, ' ') + "\n");
        }
        std::atomic<bool> isMoving = true;
        std::vector<std::pair<std::string, int>> written;
        std::thread writer([&] {
            for (int line = 0; isMoving; ++line) {
                const std::string name = "tree/d" + std::to_string(line % 10) + (line % 3 == 0 ? "/n" : "/f") +
                                         std::to_string(line % 3 == 0 ? line : line % 200);
                std::ofstream stream(*places.home / name, std::ios::app);
                if (stream << line << std::endl) {
                    written.emplace_back(name, line);
                }
            }
        });
        plugin.call("KORB_FolderMove", {places.home->text("tree"), places.away->text()});
        isMoving = false;
        writer.join();
        for (const auto& [name, line] : written) {
            bool isThere = false;
            for (const ScratchFolder* folder : {places.home.get(), places.away.get()}) {
                std::ifstream stream(*folder / name);
                for (std::string text; !isThere && std::getline(stream, text);) {
                    isThere = text == std::to_string(line);
                }
            }
            EXPECT_TRUE(isThere) << name << " lacks line " << line << " in round " << round;
        }
        fs::remove_all(*places.home / "tree");
        fs::remove_all(*places.away / "tree");
    }
}

} // namespace
} // namespace folidex::test
