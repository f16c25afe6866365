#include "host/base/plugin.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

namespace fmxhost {
namespace {

const std::filesystem::path sample = SAMPLE_PLUGIN;

// How the sample behaves that is loaded next; see sample.cpp.
void choose(const char* variant)
{
    setenv("SAMPLE", variant, 1);
}

void expectNothingRegistered()
{
    EXPECT_TRUE(fmxkit::externalFunctions().empty());
    EXPECT_TRUE(fmxkit::scriptSteps().empty());
}

TEST(Plugin, StartsAndIsCalledByName)
{
    choose("");
    Plugin plugin(sample);
    EXPECT_EQ(plugin.options(), u"SMPL1nnYnnn");
    EXPECT_TRUE(plugin.functions().empty());
    EXPECT_EQ(plugin.start(), 62);
    EXPECT_EQ(plugin.functions().size(), 8U);
    EXPECT_EQ(plugin.scriptSteps().size(), 1U);
    EXPECT_EQ(plugin.string(PluginString::name), u"Sample");
    EXPECT_EQ(plugin.string(PluginString::name, 3), u"");
    EXPECT_EQ(plugin.string(PluginString::name, 0), u"");

    EXPECT_EQ(plugin.call(u"SMPL_echo", {u"ä\xD800"}).value.text(), u"ä\xD800");
    EXPECT_EQ(plugin.call(u"smpl_GRÖSSE", {1, 2.5, "x"}).value.integer(), 3);
    EXPECT_EQ(plugin.call(u"Smpl_Moment", {}).value.timestamp(), (Timestamp{2024, 2, 29, 13, 5, 9}));
    EXPECT_EQ(plugin.call(u"Smpl_Echo", {Timestamp{2024, 2, 29, 13, 5, 9}}).value.text(), u"2/29/2024 1:05:09 PM");
    EXPECT_EQ(plugin.call(u"Smpl_ErrorCode", {-7}).error, -7);
    EXPECT_EQ(plugin.call(u"Smpl_ErrorCode", {-7}).value.text(), u"left behind");
    EXPECT_EQ(plugin.call(u"Smpl_Fail", {1}).exception, "std::runtime_error (broken on purpose)");
    EXPECT_EQ(plugin.call(u"Smpl_Fail", {2}).exception, "int");
    EXPECT_THROW(plugin.call(u"Smpl_Nothing", {}), std::out_of_range);
}

TEST(Plugin, ForgetsWhatIsLeftRegistered)
{
    for (const char* variant : {"", "foreign"}) {
        choose(variant);
        Plugin plugin(sample);
        plugin.start();
        plugin.shutDown();
        const std::size_t left = fmxkit::externalFunctions().size() + fmxkit::scriptSteps().size();
        EXPECT_EQ(left, *variant == '\0' ? 2U : 9U);
        EXPECT_EQ(plugin.unload(), left);
        expectNothingRegistered();
        EXPECT_EQ(plugin.unload(), 0U);
    }
}

TEST(Plugin, FailsForAReason)
{
    const auto failure = [](const std::filesystem::path& file) {
        try {
            Plugin(file).start();
        } catch (const PluginError& error) {
            return std::pair(error.kind(), std::string(error.what()));
        }
        throw std::logic_error("it has started");
    };
    EXPECT_EQ(failure("/missing.fmx"),
              std::pair(PluginError::Kind::notLoaded, std::string("There is no plug-in file /missing.fmx")));
    choose("refusing");
    EXPECT_EQ(failure(sample).first, PluginError::Kind::refused);
    choose("throwing");
    EXPECT_EQ(failure(sample).first, PluginError::Kind::exception);
    EXPECT_TRUE(failure(sample).second.ends_with("std::runtime_error (no start today)")) << failure(sample).second;
    expectNothingRegistered();

    choose("passive");
    Plugin plugin(sample);
    plugin.start();
    expectNothingRegistered();
}

} // namespace
} // namespace fmxhost
