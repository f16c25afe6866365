// What platform/macos has beside the common contract: moves to another volume, and screens.
#include "platform/desktop.h"
#include "platform/file_manager.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace {

using folidex::test::ScratchFolder;
using platform::Outcome;

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
    scratch.hardLink("tree/sub/file", "tree/sub/same");
    const Outcome out = platform::moveItem(scratch.text16("tree"), other.text16("tree"));
    ASSERT_TRUE(out.ok()) << out.description();
    EXPECT_TRUE(scratch.list().empty());
    EXPECT_EQ(other.list("tree"), (std::vector<std::string>{"link", "sub"}));
    EXPECT_EQ(other.read("tree/sub/file"), "f");
    EXPECT_TRUE(std::filesystem::equivalent(other / "tree/sub/file", other / "tree/sub/same"));
}

// The frameworks end a process that reaches for a display where there is none, and raise an exception where it can't be
// reached. The panel's place is the main thread, which here is busy with this test and runs no loop. A session of macOS
// can't be left by a test: GNUstep only.
#ifdef FOLIDEX_COCOA
TEST(Desktop, FailsWithoutADisplayAndWithoutALoop)
{
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
#endif

} // namespace
