// Sends the plug-in file the messages that FileMaker sends. What every plug-in must do with them is fmxhost check's.
#include "host/base/plugin.h"

#include <fmxkit/failure.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

namespace {

using fmxhost::Plugin;
using fmxhost::PluginError;

TEST(EntryPoint, ShutDownLeaves201)
{
    for (const auto& [apiVersion, steps] : {std::pair(std::int16_t{56}, 0U), {std::int16_t{57}, 1U}}) {
        Plugin plugin(FOLIDEX_PLUGIN_FILE, apiVersion);
        plugin.shutDown(); // before any start-up: nothing
        EXPECT_EQ(plugin.start(), 65);
        plugin.shutDown();
        ASSERT_EQ(fmxkit::externalFunctions().size(), 1U);
        EXPECT_EQ(fmxkit::externalFunctions().front().id, 201);
        ASSERT_EQ(fmxkit::scriptSteps().size(), steps);
        EXPECT_TRUE(steps == 0 || fmxkit::scriptSteps().front().id == 201);
    }
}

TEST(EntryPoint, StringsAreWholeOrAbsent)
{
    Plugin plugin(FOLIDEX_PLUGIN_FILE);
    const auto string = [&plugin](int number, std::uint32_t capacity) {
        std::u16string buffer(256, u'x');
        // Of the capacity the low 32 bits count.
        plugin.send(fmxhost::Message::stringRequest, static_cast<std::uint8_t>(number), 0xFFFFFFFF00000007,
                    0xDEAD000000000000 | capacity, reinterpret_cast<fmx::ptrtype>(buffer.data()));
        EXPECT_EQ(buffer.find_first_not_of(u'x', capacity), std::u16string::npos);
        return std::u16string(buffer.c_str());
    };
    const std::u16string name = u"Folidex";
    const auto length = static_cast<std::uint32_t>(name.size());
    EXPECT_EQ(string(128, length + 2), name);
    for (const std::uint32_t capacity : {length + 1, 2U, 1U}) {
        EXPECT_EQ(string(128, capacity), u"");
    }
    EXPECT_EQ(string(1, 200), u"KORB1nnYnnn");
    for (const int number : {130, int{kFMXT_HelpURLStr}, 149}) { // no help outside of a bundle; no function's number
        EXPECT_EQ(string(number, 200), u"") << number;
    }
}

// Each allocation that the SDK can report as failed during start-up leaves through the entry point.
TEST(EntryPoint, FailedAllocationsLeaveAsBadAlloc)
{
    Plugin plugin(FOLIDEX_PLUGIN_FILE);
    const auto started = [&plugin](std::uint32_t failing, fmxkit::Failure failure = fmxkit::Failure::allocation) {
        fmxkit::purge();
        fmxkit::failNthCall(failing, failure);
        try {
            plugin.start();
        } catch (const PluginError& error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_EQ(started(0), "");
    const std::uint32_t calls = fmxkit::callsSinceArmed();
    ASSERT_GT(calls, 41U);
    for (std::uint32_t n = 1; n <= calls; n += 7) {
        EXPECT_NE(started(n).find("std::bad_alloc"), std::string::npos) << n;
    }
    EXPECT_NE(started(3, fmxkit::Failure::other), "");
    fmxkit::failNthCall(0);
}

} // namespace
