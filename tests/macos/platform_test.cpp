// What platform/macos has beside the common contract: items that the frameworks would follow, open or empty where they
// were not meant to, and what they leave to be found out about copies, folders that go, and screens.

#include "platform/desktop.h"
#include "platform/file_manager.h"
#include "platform/macos/source_tree.h"
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
#include <thread>
#include <vector>

namespace {

using folidex::test::ScratchFolder;
using platform::Outcome;
using platform::macos::Item;
using platform::macos::SourceTree;

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

Item itemAt(const std::string& path)
{
    Item item{path};
    EXPECT_EQ(lstat(path.c_str(), &item.status), 0);
    return item;
}

// Reading a FIFO would wait for ever, and a socket can't be had twice.
TEST(SpecialItems, FifosAreMadeAnewAndSocketsRefused)
{
    const ScratchFolder scratch;
    scratch.write("tree/file", "f");
    ASSERT_EQ(mkfifo(scratch.text("tree/fifo").c_str(), 0600), 0);
    scratch.setMode("tree/fifo", 0640);
    ASSERT_TRUE(platform::copyItem(scratch.text16("tree/fifo"), scratch.text16("copy")).ok());
    EXPECT_EQ(itemAt(scratch.text("copy")).status.st_mode, S_IFIFO | mode_t{0640});
    makeSocket(scratch.text("tree/socket"));
    std::vector<std::string> sources{"tree/socket"};
    if (!folidex::test::onGNUstep) { // its file manager asks no delegate
        sources.push_back("tree");
    }
    for (const std::string& source : sources) {
        const Outcome outcome = platform::copyItem(scratch.text16(source), scratch.text16("second"));
        EXPECT_NE(outcome.description().find("tree/socket"), std::string::npos) << source << outcome.description();
    }
    EXPECT_EQ(scratch.list(), (std::vector<std::string>{"copy", "tree"}));
}

// Another file system that this user may write to, where there is one.
TEST(Moves, ToAnotherVolumeCopyAndThenRemove)
{
    const ScratchFolder scratch;
    if (access("/dev/shm", W_OK) != 0) {
        GTEST_SKIP() << "no second file system";
    }
    const ScratchFolder other("/dev/shm");
    scratch.write("tree/sub/file", "f");
    scratch.symlink("nowhere", "tree/link");
    const Outcome out = platform::moveItem(scratch.text16("tree"), other.text16("tree"));
    ASSERT_TRUE(out.ok()) << out.description();
    EXPECT_TRUE(scratch.list().empty());
    EXPECT_EQ(other.list("tree"), (std::vector<std::string>{"link", "sub"}));
    EXPECT_EQ(other.read("tree/sub/file"), "f");
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
         [](const ScratchFolder& s) { std::filesystem::rename(s.write("other", "F"), s / "tree/sub/file"); },
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
        const Item source = itemAt(scratch.text("tree"));
        SourceTree tree("move", source);
        ASSERT_TRUE(tree.examine().ok());
        ASSERT_TRUE(platform::copyItem(scratch.text16("tree"), scratch.text16("copy")).ok());
        EXPECT_TRUE(tree.requireCopied(scratch.text("copy"), "target").ok());
        c.change(scratch);
        EXPECT_FALSE(tree.requireCopied(scratch.text("copy"), "target").ok()) << c.shown;
        const Outcome outcome = tree.remove();
        EXPECT_NE(outcome.description().find("it was changed while it was being moved"), std::string::npos) << c.shown;
        EXPECT_TRUE(scratch.exists(c.left)) << c.shown;
    }
}

// As where a file system reports no earlier than at close(2) that it couldn't keep what was written.
TEST(SourceTrees, ACopyThatIsNotWholeIsSeen)
{
    const ScratchFolder scratch;
    scratch.write("tree/sub/file", "f");
    const Item source = itemAt(scratch.text("tree"));
    SourceTree tree("copy", source);
    ASSERT_TRUE(tree.examine().ok());
    scratch.write("copy/sub/file", "");
    EXPECT_EQ(tree.requireCopied(scratch.text("copy"), "/target").description(),
              "could not write /target/sub/file: Input/output error");
    scratch.write("tree/sub/file", "longer"); // has changed since, and so may its copy differ
    EXPECT_TRUE(tree.requireCopied(scratch.text("copy"), "/target").ok());
    scratch.setMode("copy/sub", 0555);
    platform::macos::discard(scratch.text("copy"));
    EXPECT_EQ(scratch.list(), std::vector<std::string>{"tree"});
}

// The frameworks end a process that reaches for a display where there is none, and raise an exception where it can't be
// reached. The panel's place is the main thread, which here is busy with this test and runs no loop.
TEST(Desktop, FailsWithoutADisplayAndWithoutALoop)
{
    if (!folidex::test::onGNUstep) {
        GTEST_SKIP() << "a session of macOS can't be left by a test";
    }
    const auto choose = [] { return platform::chooseItem(platform::ChooserKind::file, "Select").answer; };
    for (const char* display : {"", "127.0.0.1:77"}) {
        setenv("DISPLAY", display, 1);
        EXPECT_EQ(choose(), platform::Choice::Answer::failed) << display;
        EXPECT_FALSE(platform::openWithDefaultApplication(u"/nothing")) << display;
    }
    auto answer = platform::Choice::Answer::chosen;
    std::thread([&] { answer = choose(); }).join();
    EXPECT_EQ(answer, platform::Choice::Answer::failed);
    unsetenv("DISPLAY");
}

} // namespace
