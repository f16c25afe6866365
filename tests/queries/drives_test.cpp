#include "queries/answer.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <sys/statvfs.h>

namespace {

using fmxhost::ValueType;
using folidex::test::PluginUnderTest;
using folidex::test::ScratchFolder;

TEST(Drives, AreListedWithoutArguments)
{
    const PluginUnderTest plugin;
    const auto drives = plugin.call("KORB_GetDrives");
    EXPECT_TRUE(succeeded(plugin, drives));
    EXPECT_EQ(drives.type(), ValueType::text);
    EXPECT_FALSE(drives.text().ends_with(u'\n'));
    for (const std::string& name : drives.lines()) {
        EXPECT_NE(name, "");
    }
    EXPECT_EQ(answer(plugin, "KORB_GetDrives", {"/"}), "-3 Invalid Number of Parameters");
}

TEST(Drives, SizesAreThoseOfTheVolumeThatHoldsThePath)
{
    const PluginUnderTest plugin;
    const ScratchFolder scratch;
    const std::string file = scratch.write("file", "x");
    for (const std::string& path : {std::string("/"), scratch.text(), scratch.text() + "/", file}) {
        SCOPED_TRACE(path);
        struct statvfs status;
        ASSERT_EQ(statvfs(path.c_str(), &status), 0);
        const auto size = plugin.call("KORB_GetDriveSize", {path});
        EXPECT_EQ(size.type(), ValueType::number);
        EXPECT_EQ(size.number(), static_cast<double>(status.f_blocks) * static_cast<double>(status.f_frsize));

        // Others write to the volume at the same time.
        const double free = plugin.call("KORB_GetDriveSizeFree", {path}).number();
        const double used = plugin.call("KORB_GetDriveSizeUsed", {path}).number();
        EXPECT_NEAR(free, static_cast<double>(status.f_bavail) * static_cast<double>(status.f_frsize), 1e9);
        EXPECT_NEAR(free + used, size.number(), 1e9);
        EXPECT_EQ(plugin.lastErrorNumber(), 0);
    }
}

TEST(Drives, SizesReportWhatIsNoDrive)
{
    const PluginUnderTest plugin;
    for (const char* function : {"KORB_GetDriveSize", "KORB_GetDriveSizeFree", "KORB_GetDriveSizeUsed"}) {
        SCOPED_TRACE(function);
        EXPECT_EQ(answer(plugin, function, {}), "-3 Invalid Number of Parameters");
        EXPECT_EQ(answer(plugin, function, {"/", "/"}), "-3 Invalid Number of Parameters");
        EXPECT_EQ(answer(plugin, function, {""}), "-8017 Missing Drive Name parameter");
        EXPECT_EQ(answer(plugin, function, {"no such drive"}), "-8016 Drive does not exist");
        EXPECT_EQ(answer(plugin, function, {"/ "}), "-8016 Drive does not exist");
    }
}

} // namespace
