#include "host/base/plugin.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace fmxhost {
namespace {

// The sample, loaded and told how to behave; see plugin.cpp.
class Sample : public Plugin {
public:
    explicit Sample(const char* told) : Plugin(SAMPLE_PLUGIN) { setenv("SAMPLE", told, 1); }
};

TEST(Plugin, StartsAndIsCalledByName)
{
    Sample plugin("");
    EXPECT_TRUE(plugin.functions().empty());
    EXPECT_EQ(plugin.start(), 62);
    EXPECT_EQ(plugin.functions().size(), 9U);
    EXPECT_EQ(plugin.scriptSteps().size(), 2U);
    EXPECT_EQ(plugin.string(PluginString::name), u"Sample");
    EXPECT_EQ(plugin.string(PluginString::name, 3), u"");
    EXPECT_EQ(plugin.string(PluginString::name, 0), u"");

    EXPECT_EQ(Plugin::call(plugin.function(u"SMPL_echo"), {u"ä\xD800"}).value.text(), u"ä\xD800");
    EXPECT_EQ(Plugin::call(plugin.function(u"smpl_GRÖSSE"), {1, 2, "x"}).value.integer(), 3);
    EXPECT_EQ(Plugin::call(plugin.function(u"Smpl_ErrorCode"), {-7}).error, -7);
    EXPECT_EQ(Plugin::call(plugin.function(u"Smpl_ErrorCode"), {-7}).value.text(), u"left behind");
    EXPECT_EQ(Plugin::call(plugin.function(u"Smpl_Fail"), {2}).exception, "int");
    EXPECT_THROW(plugin.function(u"Smpl_Nothing"), std::out_of_range);
}

TEST(Plugin, ForgetsWhatIsLeftRegistered)
{
    Sample plugin("keeps function=99\nkeeps step=1");
    plugin.start();
    plugin.shutDown();
    EXPECT_EQ(plugin.unload(), 2U);
    EXPECT_EQ(plugin.unload(), 0U);

    EXPECT_THROW(Sample("start=throw").start(), PluginError);
    EXPECT_EQ(Sample("options=SMPL1nnnnnn").start(), 0); // it wants no message
    EXPECT_EQ(fmxkit::externalFunctions().size() + fmxkit::scriptSteps().size(), 0U);
}

} // namespace
} // namespace fmxhost
