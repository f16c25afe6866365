// What platform/macos has beside the common contract: items that the frameworks would follow, open or empty where they
// were not meant to, moves to another volume, and screens.

#include "platform/desktop.h"
#include "platform/file_manager.h"
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

// Reading a FIFO would wait for ever, and a socket can't be had twice.
TEST(SpecialItems, FifosAreMadeAnewAndSocketsRefused)
{
    const ScratchFolder scratch;
    scratch.write("tree/file", "f");
    ASSERT_EQ(mkfifo(scratch.text("tree/fifo").c_str(), 0600), 0);
    scratch.setMode("tree/fifo", 0640);
    ASSERT_TRUE(platform::copyItem(scratch.text16("tree/fifo"), scratch.text16("copy")).ok());
    struct stat status {};
    ASSERT_EQ(lstat(scratch.text("copy").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFIFO | mode_t{0640});
    makeSocket(scratch.text("tree/socket"));
    for (const char* source : {"tree/socket", "tree"}) {
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
    scratch.hardLink("tree/sub/file", "tree/sub/same");
    const Outcome out = platform::moveItem(scratch.text16("tree"), other.text16("tree"));
    ASSERT_TRUE(out.ok()) << out.description();
    EXPECT_TRUE(scratch.list().empty());
    EXPECT_EQ(other.list("tree"), (std::vector<std::string>{"link", "sub"}));
    EXPECT_EQ(other.read("tree/sub/file"), "f");
    EXPECT_TRUE(std::filesystem::equivalent(other / "tree/sub/file", other / "tree/sub/same"));
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
