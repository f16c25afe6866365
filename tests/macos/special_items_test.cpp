// Items that the frameworks would follow, open or empty where they were not meant to.

#include "platform/file_manager.h"
#include "platform/macos/source_tree.h"
#include "support/child_process.h"
#include "support/platform_expectations.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using folidex::test::ScratchFolder;

void makeSocket(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(static_cast<char*>(address.sun_path), path.c_str(), path.size() + 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(descriptor);
}

mode_t modeOf(const std::string& path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

// Reading the FIFO would wait for ever.
TEST(SpecialItems, FifosAreMadeAnew)
{
    const ScratchFolder scratch;
    scratch.write("tree/file", "f");
    ASSERT_EQ(mkfifo(scratch.text("tree/fifo").c_str(), 0600), 0);
    scratch.setMode("tree/fifo", 0640);
    for (const char* source : {"tree/fifo", "tree"}) {
        if (source == std::string("tree")) {
            SKIP_ON_GNUSTEP("file managers never ask their delegates");
        }
        const platform::Outcome outcome = platform::copyItem(scratch.text16(source), scratch.text16("copy"));
        ASSERT_TRUE(outcome.ok()) << outcome.description();
        const std::string fifo = scratch.text(source == std::string("tree") ? "copy/fifo" : "copy");
        EXPECT_EQ(modeOf(fifo), S_IFIFO | mode_t{0640}) << source;
        EXPECT_TRUE(platform::removeItem(scratch.text16("copy")).ok());
    }
    EXPECT_EQ(scratch.list(), std::vector<std::string>{"tree"});
}

TEST(SpecialItems, SocketsAreRefusedAndNothingIsLeft)
{
    const ScratchFolder scratch;
    scratch.write("tree/a", "f");
    scratch.write("tree/z", "f");
    makeSocket(scratch.text("tree/socket"));
    for (const char* source : {"tree/socket", "tree"}) {
        if (source == std::string("tree")) {
            SKIP_ON_GNUSTEP("file managers never ask their delegates");
        }
        const platform::Outcome outcome = platform::copyItem(scratch.text16(source), scratch.text16("copy"));
        EXPECT_FALSE(outcome.ok()) << source;
        EXPECT_NE(outcome.description().find("tree/socket"), std::string::npos) << outcome.description();
    }
    EXPECT_EQ(scratch.list(), std::vector<std::string>{"tree"});
    EXPECT_EQ(scratch.list("tree").size(), 3U);
}

TEST(SpecialItems, ATreeKeepsNamesContentsAndLinks)
{
    const ScratchFolder scratch;
    scratch.write("tree/\u00FC\U0001F600/inner", "i");
    scratch.write("tree/new\nline", "n");
    scratch.makeFolder("tree/empty");
    scratch.symlink("nowhere", "tree/dangling");
    scratch.symlink("..", "tree/up");
    scratch.setMode("tree/new\nline", 0604);
    const platform::Outcome outcome = platform::copyItem(scratch.text16("tree"), scratch.text16("copy"));
    ASSERT_TRUE(outcome.ok()) << outcome.description();
    EXPECT_EQ(scratch.list("copy"), scratch.list("tree"));
    EXPECT_EQ(scratch.read("copy/\u00FC\U0001F600/inner"), "i");
    EXPECT_EQ(scratch.read("copy/new\nline"), "n");
    EXPECT_EQ(modeOf(scratch.text("copy/new\nline")), S_IFREG | mode_t{0604});
    EXPECT_EQ(std::filesystem::read_symlink(scratch / "copy/dangling"), "nowhere");
    EXPECT_EQ(std::filesystem::read_symlink(scratch / "copy/up"), "..");
}

// What may happen to a folder between its copying and its removal.
TEST(SourceTrees, OnlyWhatWasCopiedIsRemoved)
{
    struct Case {
        const char* shown;
        void (*change)(const ScratchFolder&);
        const char* left; // must still be there
    };
    const Case cases[] = {
        {"a file grows", [](const ScratchFolder& s) { s.write("tree/sub/file", "longer"); }, "tree/sub/file"},
        {"a file is exchanged",
         [](const ScratchFolder& s) {
             s.write("other", "F");
             std::filesystem::rename(s / "other", s / "tree/sub/file");
         },
         "tree/sub/file"},
        {"a file arrives", [](const ScratchFolder& s) { s.write("tree/sub/new", "n"); }, "tree/sub/new"},
        {"a folder arrives", [](const ScratchFolder& s) { s.makeFolder("tree/new"); }, "tree/new"},
        {"a file becomes a folder",
         [](const ScratchFolder& s) {
             std::filesystem::remove(s / "tree/sub/file");
             s.write("tree/sub/file/inner", "i");
         },
         "tree/sub/file/inner"},
    };
    for (const Case& c : cases) {
        const ScratchFolder scratch;
        scratch.write("tree/sub/file", "f");
        scratch.symlink("nowhere", "tree/link");
        platform::macos::Item source{scratch.text("tree")};
        ASSERT_EQ(lstat(source.path.c_str(), &source.status), 0);
        platform::macos::SourceTree tree("move", source);
        ASSERT_TRUE(tree.examine().ok());
        ASSERT_TRUE(platform::copyItem(scratch.text16("tree"), scratch.text16("copy")).ok());
        EXPECT_TRUE(tree.requireCopied(scratch.text("copy"), "target").ok());
        c.change(scratch);
        EXPECT_FALSE(tree.requireCopied(scratch.text("copy"), "target").ok()) << c.shown;
        const platform::Outcome outcome = tree.remove();
        EXPECT_NE(outcome.description().find("it was changed while it was being moved"), std::string::npos) << c.shown;
        EXPECT_TRUE(scratch.exists(c.left)) << c.shown;
    }
}

// As a file system makes it that reports no earlier than at close(2) that it couldn't keep what was written.
TEST(SourceTrees, ACopyThatIsNotWholeIsSeen)
{
    const ScratchFolder scratch;
    scratch.write("tree/sub/file", "f");
    scratch.write("tree/file", "f");
    platform::macos::Item source{scratch.text("tree")};
    ASSERT_EQ(lstat(source.path.c_str(), &source.status), 0);
    platform::macos::SourceTree tree("copy", source);
    ASSERT_TRUE(tree.examine().ok());
    ASSERT_TRUE(platform::copyItem(scratch.text16("tree"), scratch.text16("copy")).ok());
    scratch.write("copy/sub/file", "");
    EXPECT_EQ(tree.requireCopied(scratch.text("copy"), "/target").description(),
              "could not write /target/sub/file: Input/output error");
    // A source that has changed since may differ from its copy.
    scratch.write("tree/sub/file", "longer");
    EXPECT_TRUE(tree.requireCopied(scratch.text("copy"), "/target").ok());
    scratch.setMode("copy/sub", 0555);
    platform::macos::discard(scratch.text("copy"));
    EXPECT_EQ(scratch.list(), std::vector<std::string>{"tree"});
}

#ifdef __linux__
// Another file system that this user may write to, where there is one.
TEST(SpecialItems, MovesToAnotherVolumeCopyAndThenRemove)
{
    const ScratchFolder scratch;
    const std::u16string away = u"/dev/shm/folidex-test-" + std::filesystem::path(std::to_string(getpid())).u16string();
    struct stat here {};
    struct stat there {};
    if (stat(scratch.text().c_str(), &here) != 0 || stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev ||
        access("/dev/shm", W_OK) != 0) {
        GTEST_SKIP() << "no second file system";
    }
    scratch.write("tree/sub/file", "f");
    const platform::Outcome out = platform::moveItem(scratch.text16("tree"), away);
    ASSERT_TRUE(out.ok()) << out.description();
    EXPECT_TRUE(scratch.list().empty());
    EXPECT_FALSE(platform::moveItem(away, away + u"/sub/inside").ok());
    const platform::Outcome back = platform::moveItem(away, scratch.text16("back"));
    EXPECT_TRUE(back.ok()) << back.description();
    EXPECT_EQ(scratch.read("back/sub/file"), "f");
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(away)));
}

TEST(SpecialItems, WhatIsMountedInsideStaysFull)
{
    SKIP_ON_GNUSTEP("file managers never ask their delegates");
    if (!folidex::test::isRoot()) {
        GTEST_SKIP() << "takes root's rights";
    }
    const ScratchFolder scratch;
    scratch.makeFolder("tree/mounted");
    const std::string answer = folidex::test::inChild([&] {
        folidex::test::leaveMountNamespace();
        if (std::system(("mount -t tmpfs none '" + scratch.text("tree/mounted") + "' 2>/dev/null").c_str()) != 0) {
            return std::string("no mount");
        }
        scratch.write("tree/mounted/kept", "k");
        const platform::Outcome outcome = platform::removeItem(scratch.text16("tree"));
        const bool kept = scratch.exists("tree/mounted/kept");
        return std::string(outcome.ok() ? "removed" : kept ? outcome.description() : "emptied");
    });
    if (answer == "no mount") {
        GTEST_SKIP() << answer;
    }
    EXPECT_EQ(answer, "could not remove " + scratch.text("tree/mounted") + ": Device or resource busy");
}
#endif

} // namespace
