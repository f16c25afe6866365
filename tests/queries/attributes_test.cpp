#include "queries/answer.h"
#include "support/child_process.h"
#include "support/platform_expectations.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>

namespace {

using fmxhost::ValueType;
using folidex::test::inChild;
using folidex::test::PluginUnderTest;
using folidex::test::saysTheSame;
using folidex::test::ScratchFolder;

constexpr const char* absentFile = "-8002 Source path not found";
constexpr const char* noFile = "-8004 Source path is not a file";
constexpr const char* noFolder = "-8005 Source path is not a folder";

void setTimes(const std::filesystem::path& path, time_t access, time_t modification)
{
    const std::array<timespec, 2> times{timespec{access, 999'999'999}, timespec{modification, 999'999'999}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), 0);
}

class AttributeFunctions : public testing::Test {
protected:
    // A date as the function answers it where the local time is `zone`.
    std::string date(const char* function, const std::string& path, const char* zone) const
    {
        return inChild([&] {
            setenv("TZ", zone, 1);
            tzset();
            const auto result = plugin.call(function, {path});
            return result.type() == ValueType::timestamp ? isoText(result.timestamp())
                                                         : answer(plugin, function, {path});
        });
    }

    ScratchFolder scratch;
    PluginUnderTest plugin;
};

TEST_F(AttributeFunctions, ReportArgumentsAndKinds)
{
    const std::string file = scratch.write("file", "x");
    const std::string folder = scratch.makeFolder("folder");
    const std::string dangling = scratch.symlink("nowhere", "dangling");
    for (const char* name : {"Size", "CreationDate", "ModificationDate", "AccessDate", "Exists"}) {
        for (const char* kind : {"File", "Folder"}) {
            const std::string function = std::string("KORB_Get") + kind + name;
            SCOPED_TRACE(function);
            const bool isFile = kind == std::string("File");
            EXPECT_EQ(answer(plugin, function, {}), "-3 Invalid Number of Parameters");
            EXPECT_EQ(answer(plugin, function, {file, file}), "-3 Invalid Number of Parameters");
            EXPECT_EQ(answer(plugin, function, {""}), "-8000 Missing source parameter");
            EXPECT_EQ(answer(plugin, function, {isFile ? folder : file}), isFile ? noFile : noFolder);
            const bool asksExistence = name == std::string("Exists");
            EXPECT_EQ(answer(plugin, function, {scratch.text("absent")}), asksExistence ? "1" : absentFile);
            EXPECT_EQ(answer(plugin, function, {dangling}), asksExistence ? "1" : absentFile);
        }
    }
}

TEST_F(AttributeFunctions, ExistenceIsZero)
{
    const std::string file = scratch.write("file", "x");
    const std::string folder = scratch.makeFolder("folder");
    EXPECT_EQ(answer(plugin, "KORB_GetFileExists", {file}), "0");
    EXPECT_EQ(answer(plugin, "KORB_GetFileExists", {scratch.symlink("file", "to file").string()}), "0");
    EXPECT_EQ(answer(plugin, "KORB_GetFolderExists", {folder}), "0");
    EXPECT_EQ(answer(plugin, "KORB_GetFolderExists", {folder + "/"}), "0");
    EXPECT_EQ(answer(plugin, "KORB_GetFolderExists", {scratch.symlink("folder", "to folder").string()}), "0");
    EXPECT_EQ(plugin.call("KORB_GetFileExists", {file}).type(), ValueType::number);
}

TEST_F(AttributeFunctions, SizesAreBytes)
{
    scratch.write("folder/file", "12345");
    std::filesystem::resize_file(scratch.write("folder/sparse"), 5'000'000'000);
    const std::string link = scratch.symlink("folder/sparse", "link");
    EXPECT_EQ(answer(plugin, "KORB_GetFileSize", {scratch.text("folder/file")}), "5");
    EXPECT_EQ(answer(plugin, "KORB_GetFileSize", {scratch.text("folder/sparse")}), "5000000000");
    EXPECT_EQ(answer(plugin, "KORB_GetFileSize", {link}), std::to_string(std::string("folder/sparse").size()));
    EXPECT_EQ(answer(plugin, "KORB_GetFolderSize", {scratch.text("folder")}), "5000000005");
    EXPECT_EQ(plugin.call("KORB_GetFolderSize", {scratch.text("folder")}).type(), ValueType::number);

    EXPECT_EQ(answer(plugin, "KORB_GetFileSize", {scratch.write("empty").string()}),
              "-8014 Unable to complete operation -  Unable to determine file size");
    EXPECT_EQ(answer(plugin, "KORB_GetFolderSize", {scratch.makeFolder("empty folder").string()}),
              "-8014 Unable to complete operation -  Unable to get folder size");
}

TEST_F(AttributeFunctions, FolderSizeNamesTheFolderThatCannotBeRead)
{
    scratch.write("folder/file", "12345");
    const std::string closed = scratch.makeFolder("folder/closed");
    scratch.setMode("", 0755);
    scratch.setMode("folder/closed", 0);
    const std::string found = inChild([&] {
        folidex::test::becomeOrdinaryUser();
        return answer(plugin, "KORB_GetFolderSize", {scratch.text("folder")});
    });
    SKIP_ON_GNUSTEP("subpathsAtPath: passes over what it can't read");
    // The last error is shown without its colons.
    EXPECT_PRED2(saysTheSame, found,
                 "-8014 Unable to complete operation -  could not read the folder " + closed + " Permission denied");
}

TEST_F(AttributeFunctions, DatesAreLocalTime)
{
    struct Case {
        time_t time;
        const char* zone;
        const char* expected;
    };
    constexpr Case cases[] = {
        {1'711'846'799, "Europe/Berlin", "2024-03-31T01:59:59"}, // the clock goes forward
        {1'711'846'800, "Europe/Berlin", "2024-03-31T03:00:00"},
        {1'729'987'199, "Europe/Berlin", "2024-10-27T01:59:59"},
        {1'729'990'800, "Europe/Berlin", "2024-10-27T02:00:00"}, // for the second time
        {1'730'613'600, "America/New_York", "2024-11-03T01:00:00"},
        {1'704'067'199, "Asia/Tokyo", "2024-01-01T08:59:59"},
        {1'704'085'199, "America/New_York", "2023-12-31T23:59:59"},
        {0, "UTC", "1970-01-01T00:00:00"},
        {-1, "UTC", "1969-12-31T23:59:59"}, // the file's time is a fraction later
        {-1, "Asia/Kolkata", "1970-01-01T05:29:59"},
        {-1'000'000'000, "UTC", "1938-04-24T22:13:20"},
        {4'102'444'800, "UTC", "2100-01-01T00:00:00"},
    };
    const std::string file = scratch.write("file", "x");
    const std::string folder = scratch.makeFolder("folder");
    for (const Case& expected : cases) {
        if (folidex::test::onGNUstep && expected.zone != std::string_view("UTC")) {
            continue; // it remembers the variables that the process began with: bundle_test.py has other zones
        }
        SCOPED_TRACE(std::to_string(expected.time) + " " + expected.zone);
        setTimes(file, expected.time, expected.time);
        setTimes(folder, expected.time, expected.time);
        EXPECT_EQ(date("KORB_GetFileModificationDate", file, expected.zone), expected.expected);
        EXPECT_EQ(date("KORB_GetFileAccessDate", file, expected.zone), expected.expected);
        EXPECT_EQ(date("KORB_GetFolderModificationDate", folder, expected.zone), expected.expected);
        EXPECT_EQ(date("KORB_GetFolderAccessDate", folder, expected.zone), expected.expected);
    }
}

TEST_F(AttributeFunctions, OfALinkOnlyTheAccessDateIsItsTargets)
{
    const std::string file = scratch.write("file", "x");
    const std::string link = scratch.symlink("file", "link");
    constexpr time_t day = 86'400;
    setTimes(file, day, 2 * day);
    setTimes(link, 3 * day, 4 * day);
    EXPECT_EQ(date("KORB_GetFileModificationDate", link, "UTC"), "1970-01-05T00:00:00");
    EXPECT_EQ(date("KORB_GetFileAccessDate", link, "UTC"), "1970-01-02T00:00:00");
}

#ifdef __linux__ // where tests can ask the kernel, and procfs keeps no such dates
TEST_F(AttributeFunctions, CreationDatesComeFromTheFileSystem)
{
    SKIP_ON_GNUSTEP("the creation date is the time of the last change of status");
    const std::string file = scratch.write("file", "x");
    struct statx status;
    ASSERT_EQ(statx(AT_FDCWD, file.c_str(), 0, STATX_BTIME, &status), 0);
    if ((status.stx_mask & STATX_BTIME) != 0) {
        const time_t seconds = status.stx_btime.tv_sec;
        std::array<char, 32> text{};
        strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", gmtime(&seconds));
        setTimes(file, 1, 1);
        EXPECT_EQ(date("KORB_GetFileCreationDate", file, "UTC"), text.data());
    }

    // procfs keeps none.
    EXPECT_EQ(answer(plugin, "KORB_GetFileCreationDate", {"/proc/self/status"}),
              "-8014 Unable to complete operation -  Unable to determine file creation date");
    EXPECT_EQ(answer(plugin, "KORB_GetFolderCreationDate", {"/proc/self"}),
              "-8014 Unable to complete operation -  Unable to determine folder creation date");
}

#endif

TEST_F(AttributeFunctions, TheHostsPathIsAFolderThatExists)
{
    EXPECT_EQ(answer(plugin, "KORB_GetFileMakerPath", {"x"}), "-3 Invalid Number of Parameters");
    SKIP_ON_GNUSTEP("a program that isn't a bundle has one all the same, \"Resources\" below its folder");
    const std::string path = answer(plugin, "KORB_GetFileMakerPath", {});
    EXPECT_TRUE(std::filesystem::is_directory(path)) << path;
#ifdef __linux__
    EXPECT_EQ(path, std::filesystem::read_symlink("/proc/self/exe").parent_path());
#endif
}

} // namespace
