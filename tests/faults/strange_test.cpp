// Copying, moving, renaming and archiving on file systems with other customs.

#include "faults/fault_injector.h"
#include "faults/strange_file_system.h"
#include "support/child_process.h"
#include "support/plugin_under_test.h"
#include "support/scratch_folder.h"
#include "support/surroundings.h"
#include "support/tree_snapshot.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

struct FunctionCall {
    const char* function;
    std::vector<fmxhost::Value> arguments;
};

struct Strange : testing::Test {
    const ScratchFolder scratch;
    const fs::path shown = scratch.makeFolder("shown");
    const fs::path mounted = scratch.makeFolder("mounted");
    const PluginUnderTest plugin;
};

// Each fails, keeps its source and leaves nothing at the target.
TEST_F(Strange, CloseThatFailsIsReported)
{
    SKIP_WITHOUT("fuse");
    const StrangeFileSystem fileSystem(shown, mounted, {.closeFails = true});
    const std::string file = scratch.write("source/a.txt", "twelve bytes");
    const std::string folder = scratch.write("source/inner/b.txt", std::string(100'000, 'b')).parent_path();
    const std::string archives = FOLIDEX_ARCHIVES;
    const Snapshot before = snapshot(scratch / "source");
    const std::string target = mounted;
    const std::string password = "pass word|é";
    const FunctionCall calls[] = {
        {"KORB_FileCopy", {file, target}},
        {"KORB_FileMove", {file, target}},
        {"KORB_FolderCopy", {folder, target}},
        {"KORB_FolderMove", {folder, target}},
        {"KORB_CompressFile", {file, target + "/a.zip"}},
        {"KORB_CompressAndEncrypt", {folder, target + "/a.zip", password}},
        {"KORB_EncryptFile", {file, target + "/a.bin", password}},
        {"KORB_ExpandFile", {archives + "/plain.zip", target + "/"}},
        {"KORB_DecryptFile", {archives + "/text.encrypted", target + "/text", password}},
        {"KORB_DecryptAndExpand", {archives + "/encrypted.zip", target + "/", password}},
    };
    for (const auto& [function, arguments] : calls) {
        EXPECT_TRUE(plugin.call(function, arguments).isError()) << function;
        EXPECT_EQ(snapshot(scratch / "source"), before) << function;
        EXPECT_EQ(scratch.list("shown"), std::vector<std::string>()) << function;
    }
}

// A file under another spelling of its name is the same file, whatever its number says.
TEST_F(Strange, OtherSpellingsDontLoseTheFile)
{
    SKIP_WITHOUT("fuse");
    const std::string file = mounted / "a.txt";
    const std::string folder = mounted / "inner";
    const FunctionCall calls[] = {
        {"KORB_FileCopy", {file, mounted.string(), "Y", "A.TXT"}},
        {"KORB_FileMove", {file, mounted.string(), "Y", "A.TXT"}},
        {"KORB_FileCopy", {folder + "/b.txt", mounted.string(), "Y", "INNER"}},
        {"KORB_FileRename", {file, "A.TXT"}},
        {"KORB_FolderRename", {folder, "INNER"}},
        {"KORB_FolderMove", {folder, mounted.string() + "/INNER"}},
    };
    for (const bool isPoor : {false, true}) {
        const StrangeFileSystem fileSystem(
            shown, mounted, {.noExclusiveRename = isPoor, .ignoresCase = true, .unstableInodes = isPoor});
        for (const auto& [function, arguments] : calls) {
            fs::remove_all(shown);
            scratch.write("shown/a.txt", "twelve bytes");
            scratch.write("shown/inner/b.txt", "more");
            plugin.call(function, arguments);
            EXPECT_EQ(scratch.read("mounted/a.txt"), "twelve bytes") << function;
            EXPECT_EQ(scratch.read("mounted/inner/b.txt"), "more") << function;
        }
    }
}

TEST_F(Strange, EntriesWhoseNamesAreOneThereArentExpanded)
{
    SKIP_WITHOUT("fuse");
    scratch.write("both/a.txt", "small");
    scratch.write("both/A.TXT", "large");
    const std::string archive = scratch / "both.zip";
    EXPECT_FALSE(plugin.call("KORB_CompressFile", {(scratch / "both").string(), archive}).isError());
    const StrangeFileSystem fileSystem(shown, mounted, {.ignoresCase = true});
    const auto contents = [this] {
        std::string text;
        for (const auto& [path, entry] : snapshot(shown)) {
            text += path + " " + entry.content + "\n";
        }
        return text;
    };
    for (const std::string there : {"other", "both/other", "both/a.txt"}) {
        fs::remove_all(shown / "both");
        scratch.write("shown/" + there, "earlier");
        const std::string before = contents();
        EXPECT_TRUE(plugin.call("KORB_ExpandFile", {archive, mounted.string() + "/"}).isError()) << there;
        EXPECT_EQ(contents(), before) << there;
    }
}

// The same files by two ways that share nothing but the server: one of them still shows what has gone by the other.
TEST_F(Strange, OtherWaysDontLoseTheFile)
{
    SKIP_WITHOUT("fuse");
    const FunctionCall calls[] = {
        {"KORB_FileCopy", {mounted / "a.txt", shown.string(), "Y"}},
        {"KORB_FileMove", {mounted / "a.txt", shown.string(), "Y"}},
        {"KORB_FileCopy", {mounted / "inner/b.txt", shown.string(), "Y", "inner"}},
        {"KORB_FileMove", {mounted / "inner/b.txt", shown.string(), "Y", "inner"}},
        {"KORB_FolderCopy", {mounted / "inner", shown / "inner"}},
        {"KORB_FolderMove", {mounted / "inner", shown / "inner"}},
    };
    for (const bool hasOtherNumbers : {false, true}) {
        for (const auto& [function, arguments] : calls) {
            fs::remove_all(shown);
            scratch.write("shown/a.txt", "twelve bytes");
            scratch.write("shown/inner/b.txt", "more");
            const StrangeFileSystem fileSystem(shown, mounted,
                                               {.unstableInodes = hasOtherNumbers, .cachesNames = true});
            EXPECT_TRUE(plugin.call(function, arguments).isError()) << function;
            EXPECT_EQ(scratch.read("shown/a.txt"), "twelve bytes") << function;
            EXPECT_EQ(scratch.read("shown/inner/b.txt"), "more") << function;
            EXPECT_EQ(scratch.list("shown/inner"), std::vector<std::string>{"b.txt"});
            const std::string name = function;
            const char* reason = name == "KORB_FolderCopy"   ? "" // gives none
                                 : name == "KORB_FolderMove" ? "into itself"
                                 : hasOtherNumbers           ? "the source would be removed"
                                                             : "would remove the source";
            EXPECT_NE(plugin.lastErrorText().find(reason), std::string::npos) << name << plugin.lastErrorText();
        }
    }
}

// Where folders change, some file systems skip entries.
TEST_F(Strange, FoldersAreReadAgainUntilTheyAreEmpty)
{
    SKIP_WITHOUT("fuse");
    const StrangeFileSystem fileSystem(shown, mounted, {.listsFew = true});
    for (const char* name : {"a", "b", "c/a", "c/b", "c/c", "c/d", "c/e", "d", "e", "f", "g"}) {
        scratch.write(fs::path("shown/folder") / name);
    }
    EXPECT_EQ(plugin.call("KORB_FolderDelete", {mounted / "folder"}).utf8(), "0") << plugin.lastErrorText();
    EXPECT_EQ(scratch.list("shown"), std::vector<std::string>());
}

TEST_F(Strange, FilesAreMovedWholeOrNotAtAll)
{
    SKIP_WITHOUT("fuse");
    for (const bool isShort : {false, true}) {
        const StrangeFileSystem fileSystem(shown, mounted, {.unstableInodes = true, .readsShort = isShort});
        for (const char* function : {"KORB_FileCopy", "KORB_FileMove", "KORB_FolderCopy", "KORB_FolderMove"}) {
            const bool isFile = std::string(function).starts_with("KORB_File");
            const bool isMove = std::string(function).ends_with("Move");
            scratch.write("shown/inner/file", std::string(100'000, 'f'));
            const std::string source = isFile ? mounted / "inner/file" : mounted / "inner";
            const fs::path target = scratch.makeFolder("target");
            const Result result = plugin.call(function, {source, target.string()});
            EXPECT_EQ(result.isError(), isShort) << function << plugin.lastErrorText();
            EXPECT_EQ(scratch.exists(isFile ? "shown/inner/file" : "shown/inner"), isShort || !isMove) << function;
            const fs::path copy = target / (isFile ? "file" : "inner/file");
            EXPECT_EQ(fs::exists(copy) ? fs::file_size(copy) : 0, isShort ? 0 : 100'000) << function;
            fs::remove_all(target);
        }
    }
}

TEST_F(Strange, FilesAreMovedWithAllTheirNames)
{
    SKIP_WITHOUT("fuse");
    for (const bool hides : {false, true}) {
        const StrangeFileSystem fileSystem(shown, mounted, {.hardLinks = true, .hidesOpenFiles = hides});
        scratch.write("shown/tree/first", "f");
        scratch.hardLink("shown/tree/first", "shown/tree/second");
        scratch.makeFolder("shown/tree/inner");
        scratch.hardLink("shown/tree/first", "shown/tree/inner/third");
        const fs::path target = scratch.makeFolder("target");
        EXPECT_EQ(plugin.call("KORB_FolderMove", {mounted / "tree", target.string()}).utf8(), "0")
            << plugin.lastErrorText();
        EXPECT_EQ(fs::hard_link_count(target / "tree/inner/third"), 3U);
        EXPECT_EQ(scratch.list("shown"), std::vector<std::string>());
        fs::remove_all(target);
    }
}

TEST_F(Strange, FilesWithOneNumberAreNotTakenForOne)
{
    SKIP_WITHOUT("fuse");
    const StrangeFileSystem fileSystem(shown, mounted, {.oneNumber = true});
    const timespec times[] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    for (const char* name : {"a", "b", "c"}) {
        utimensat(AT_FDCWD, scratch.write(fs::path("shown/inner") / name, name).c_str(), times, 0);
    }
    EXPECT_EQ(plugin.call("KORB_FolderCopy", {mounted / "inner", scratch.makeFolder("target").string()}).utf8(), "0");
    for (const char* name : {"a", "b", "c"}) {
        EXPECT_EQ(scratch.read(fs::path("target/inner") / name), name);
    }
}

// A change within the same moment of the clock couldn't be seen afterwards. On a busy machine moments pass meanwhile.
TEST_F(Strange, WhatFindsNoRestIsNotMoved)
{
    SKIP_WITHOUT("fuse");
    const StrangeFileSystem fileSystem(shown, mounted, {.neverRests = true});
    scratch.write("shown/file", "f");
    scratch.makeFolder("shown/inner");
    const std::string target = scratch.makeFolder("target");
    for (const auto& [function, source] : {std::pair("KORB_FileMove", "file"), std::pair("KORB_FolderMove", "inner")}) {
        bool isSeen = false;
        for (int attempts = 0; attempts < 50 && !isSeen; ++attempts) {
            EXPECT_TRUE(plugin.call(function, {mounted / source, target}).isError());
            isSeen = plugin.lastErrorText().find("it is being changed") != std::string::npos;
        }
        EXPECT_TRUE(isSeen) << function << plugin.lastErrorText();
    }
    EXPECT_EQ(scratch.list("shown"), (std::vector<std::string>{"file", "inner"}));
    EXPECT_TRUE(fs::is_empty(target));
}

// Where file systems can, copies share their data with the source. The kernel is asked for 1 GiB at a time where it
// can't be asked for the whole file.
TEST_F(Strange, XfsSharesDataAlsoBehindAGibibyte)
{
    SKIP_WITHOUT("xfs");
    const std::string image = scratch.write("image");
    fs::resize_file(image, std::uintmax_t{3} << 30);
    ASSERT_EQ(std::system(("mkfs.xfs -q -m reflink=1 '" + image + "'").c_str()), 0);
    const std::string answer = inChild([&] {
        leaveMountNamespace();
        if (std::system(("mount -o loop '" + image + "' '" + mounted.native() + "'").c_str()) != 0) {
            return std::string("no mount");
        }
        constexpr off_t size = (off_t{1} << 30) + 5;
        const int file = open((mounted / "file").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        std::string text = fallocate(file, 0, 0, size) == 0 && pwrite(file, "end", 3, size - 3) == 3 ? "" : "no file";
        close(file);
        const auto before = fs::space(mounted).free;
        const auto* handler = reinterpret_cast<const void*>(plugin.function("KORB_FileCopy").handler);
        for (const Lacks& lacks : {Lacks(), Lacks{{"clone", EOPNOTSUPP}}}) {
            armFaults({.code = handler, .lacks = lacks});
            const std::string name = "copy " + std::to_string(lacks.size());
            text += plugin.call("KORB_FileCopy", {mounted / "file", mounted.string(), "", name}).utf8();
            // The kernel's own copies are clones on XFS, too.
            text += disarmFaults().calls.contains("copy_file_range") == lacks.empty() ? " not by a clone " : "";
            std::ifstream stream(mounted / name);
            std::string end;
            text += stream.seekg(size - 3) >> end ? end : "too short";
        }
        return text + (before - fs::space(mounted).free < 8 << 20 ? "" : "; the copies take space of their own");
    });
    EXPECT_EQ(answer, "0end0end");
}

} // namespace
} // namespace folidex::test
