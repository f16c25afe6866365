#include "platform/desktop.h"
#include "support/platform_expectations.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace {

// As on a server: the frameworks would end the process there.
TEST(DesktopOfAServer, EveryCallFailsAtOnce)
{
    if (!folidex::test::onGNUstep) {
        GTEST_SKIP() << "a session of macOS can't be left by a test";
    }
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    const auto start = std::chrono::steady_clock::now();
    for (const auto kind : {platform::ChooserKind::file, platform::ChooserKind::folder}) {
        EXPECT_EQ(platform::chooseItem(kind, "Select").answer, platform::Choice::Answer::failed);
    }
    EXPECT_FALSE(platform::openWithDefaultApplication(u"/tmp"));
    EXPECT_FALSE(platform::showAlert("header", "message"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

// A display that can't be reached raises an exception in the frameworks.
TEST(DesktopOfAServer, ExceptionsOfTheFrameworksAreFailures)
{
    if (!folidex::test::onGNUstep) {
        GTEST_SKIP() << "a session of macOS can't be left by a test";
    }
    setenv("DISPLAY", "127.0.0.1:77", 1);
    const platform::Choice choice = platform::chooseItem(platform::ChooserKind::file, "Select");
    EXPECT_EQ(choice.answer, platform::Choice::Answer::failed);
    EXPECT_EQ(choice.path, "");
    unsetenv("DISPLAY");
}

// The panel's place is the main thread, which here is busy with this test and runs no loop.
TEST(DesktopOfAServer, ChoosersFailWhereTheMainThreadRunsNoLoop)
{
    if (!folidex::test::onGNUstep) {
        GTEST_SKIP() << "would wait for a user if it failed";
    }
    setenv("DISPLAY", "127.0.0.1:77", 1);
    platform::Choice choice{platform::Choice::Answer::chosen, {}};
    std::thread([&] { choice = platform::chooseItem(platform::ChooserKind::file, "Select"); }).join();
    EXPECT_EQ(choice.answer, platform::Choice::Answer::failed);
    unsetenv("DISPLAY");
}

} // namespace
