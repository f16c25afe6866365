#include "host/plugin.h"

#include "support/plugin_under_test.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace fmxhost {
namespace {

std::filesystem::path sample(const std::string& name)
{
    return std::filesystem::path(SAMPLE_PLUGINS) / (name + ".fmx");
}

PluginError::Kind kindOfFailure(const std::string& name, std::string* text = nullptr)
{
    try {
        Plugin(sample(name)).start();
    } catch (const PluginError& error) {
        if (text != nullptr) {
            *text = error.what();
        }
        return error.kind();
    }
    throw std::logic_error(name + " has started");
}

TEST(Plugin, StartsAndIsCalledByNameAndId)
{
    Plugin plugin(sample("sample"));
    EXPECT_EQ(plugin.options(), u"SMPL1nnYnnn");
    EXPECT_EQ(plugin.id(), 0x534D504CU);
    EXPECT_TRUE(plugin.functions().empty());
    EXPECT_EQ(plugin.start(), 62);
    EXPECT_EQ(plugin.functions().size(), 8U);
    EXPECT_EQ(plugin.scriptSteps().size(), 1U);
    EXPECT_EQ(plugin.string(PluginString::name), u"Sample");
    EXPECT_EQ(plugin.string(128, 3), u"");
    EXPECT_EQ(plugin.string(128, 0), u"");

    EXPECT_EQ(plugin.call(u"SMPL_echo", {u"ä\xD800"}).value.text(), u"ä\xD800");
    EXPECT_EQ(plugin.call(u"smpl_GRÖSSE", {1, 2.5, "x"}).value.integer(), 3);
    EXPECT_EQ(plugin.call(short{2}, {}).value.integer(), 0);
    EXPECT_EQ(plugin.call(u"Smpl_Moment", {}).value.timestamp(), (Timestamp{2024, 2, 29, 13, 5, 9}));
    EXPECT_EQ(plugin.call(u"Smpl_Echo", {Timestamp{2024, 2, 29, 13, 5, 9}}).value.text(), u"2/29/2024 1:05:09 PM");
    EXPECT_EQ(plugin.call(u"Smpl_Pause", {0}).value.type(), ValueType::empty);
    EXPECT_THROW(plugin.call(u"Smpl_Nothing", {}), std::out_of_range);
    EXPECT_THROW(plugin.call(short{50}, {}), std::out_of_range);
}

TEST(Plugin, ReportsWhatLeavesAFunction)
{
    Plugin plugin(sample("sample"));
    plugin.start();
    EXPECT_EQ(plugin.call(u"Smpl_Fail", {1}).exception, "std::runtime_error (broken on purpose)");
    EXPECT_EQ(plugin.call(u"Smpl_Fail", {2}).exception, "std::bad_alloc");
    EXPECT_EQ(plugin.call(u"Smpl_Fail", {3}).exception, "int");
    EXPECT_FALSE(plugin.call(u"Smpl_Fail", {0}).exception);
    EXPECT_EQ(plugin.call(u"Smpl_ErrorCode", {-7}).error, -7);
    EXPECT_EQ(plugin.call(u"Smpl_ErrorCode", {-7}).value.text(), u"left behind");
}

TEST(Plugin, ForgetsWhatAPluginLeavesRegistered)
{
    Plugin plugin(sample("sample"));
    plugin.start();
    plugin.shutDown();
    EXPECT_EQ(fmxkit::externalFunctions().size(), 1U);
    EXPECT_EQ(plugin.unload(), 2U); // a function and the script step
    EXPECT_TRUE(fmxkit::externalFunctions().empty());
    EXPECT_TRUE(fmxkit::scriptSteps().empty());
    EXPECT_EQ(plugin.unload(), 0U);

    Plugin again(sample("sample"));
    EXPECT_EQ(again.start(), 62);
}

TEST(Plugin, FailsForAReason)
{
    std::string text;
    EXPECT_EQ(kindOfFailure("missing", &text), PluginError::Kind::notLoaded);
    EXPECT_NE(text.find("missing.fmx"), std::string::npos);
    EXPECT_EQ(kindOfFailure("../../../libFMWrapper.so/..", &text), PluginError::Kind::notLoaded);
    EXPECT_EQ(kindOfFailure("sample_refuses", &text), PluginError::Kind::refused);
    EXPECT_NE(text.find("-2"), std::string::npos) << text;
    EXPECT_EQ(kindOfFailure("sample_throws_at_start", &text), PluginError::Kind::exception);
    EXPECT_NE(text.find("std::runtime_error (no start today)"), std::string::npos) << text;
    EXPECT_TRUE(fmxkit::externalFunctions().empty()); // nothing of what they registered is left
    EXPECT_TRUE(fmxkit::scriptSteps().empty());
}

TEST(Plugin, SendsNoStartUpMessageWhereTheOptionsDeclineIt)
{
    Plugin plugin(sample("sample_without_start"));
    plugin.start();
    EXPECT_TRUE(plugin.functions().empty());
}

TEST(Plugin, AdoptsWhatIsRegisteredUnderAnotherId)
{
    Plugin plugin(sample("sample_without_options"));
    plugin.start();
    EXPECT_EQ(plugin.id(), 0U);
    EXPECT_EQ(plugin.functions().size(), 8U);
    EXPECT_EQ(plugin.unload(), 9U);
    EXPECT_TRUE(fmxkit::externalFunctions().empty());
}

TEST(Plugin, LivesBesideOthersAndIsCalledFromManyThreads)
{
    Plugin first(sample("sample"));
    Plugin second(sample("sample_other"));
    EXPECT_THROW(Plugin(sample("sample_refuses")), PluginError); // the ID of the first one
    first.start();
    second.start();
    EXPECT_EQ(first.functions().size(), 8U);
    EXPECT_EQ(second.functions().size(), 8U);

    std::atomic<int> wrong{0};
    constexpr int threadCount = 4;
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([&, thread] {
            const Plugin& plugin = thread % 2 == 0 ? first : second;
            const std::u16string prefix = thread % 2 == 0 ? u"Smpl_" : u"Othr_";
            for (int call = 0; call < 2000; ++call) {
                const bool right =
                    plugin.call(prefix + u"Echo", {thread * 10000 + call}).value.integer() == thread * 10000 + call &&
                    plugin.call(prefix + u"Fail", {1}).exception.has_value();
                wrong += right ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    first.unload();
    EXPECT_EQ(second.call(u"Othr_Count", {1}).value.integer(), 1);
}

TEST(PluginUnderTest, ReadsTheLastError)
{
    const folidex::test::PluginUnderTest plugin;
    EXPECT_EQ(plugin.startAnswer(), 65);
    EXPECT_TRUE(plugin.call("KORB_Version", {u"nonsense"}).isError());
    EXPECT_EQ(plugin.lastErrorNumber(), 0);
    EXPECT_EQ(plugin.lastErrorText(), "Success");
    EXPECT_EQ(plugin.call("korb_version", {"short"}).utf8(), "5.0.2.1");
    EXPECT_FALSE(plugin.hasFunction("KORB_Nothing"));
}

} // namespace
} // namespace fmxhost
