#include "queries/answer.h"
#include "support/child_process.h"
#include "support/platform_expectations.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <unistd.h>

namespace {

using fmxhost::ValueType;
using folidex::test::PluginUnderTest;
using folidex::test::ScratchFolder;
using Names = std::vector<std::string>;

struct Function {
    const char* name;
    const char* whenUnreadable;
};
constexpr Function functions[] = {
    {"KORB_GetFolders", "Unable to get subfolders"},
    {"KORB_GetFiles", "Unable to get files"},
    {"KORB_GetNumSubfolders", "Unable to get number of subfolders"},
    {"KORB_GetNumFiles", "Unable to get number of files"},
};

class Listing : public testing::Test {
protected:
    // The names that a listing function answers, sorted.
    Names names(const char* function, const char* folder = "") const
    {
        const auto result = plugin.call(function, {scratch.text(folder)});
        EXPECT_TRUE(succeeded(plugin, result));
        EXPECT_EQ(result.type(), ValueType::text);
        EXPECT_FALSE(result.text().ends_with(u'\n'));
        Names lines = result.lines();
        std::sort(lines.begin(), lines.end());
        return lines;
    }

    double count(const char* function, const char* folder = "") const
    {
        const auto result = plugin.call(function, {scratch.text(folder)});
        EXPECT_TRUE(succeeded(plugin, result));
        EXPECT_EQ(result.type(), ValueType::number);
        return result.number();
    }

    ScratchFolder scratch;
    PluginUnderTest plugin;
};

TEST_F(Listing, FilesAreWhatIsNoFolder)
{
    scratch.write(".hidden");
    scratch.write("a file with blanks ", "x");
    scratch.write("\xE5\x90\x8D\xE5\x89\x8D.txt");
    Names files{".hidden", "a file with blanks ", "dangling", "\xE5\x90\x8D\xE5\x89\x8D.txt"};
    if (!folidex::test::onCocoa) { // macOS refuses names that aren't Unicode, GNUstep drops them
        scratch.write("broken \xC3(\xFF");
        files.insert(files.begin() + 2, "broken \xEF\xBF\xBD(\xEF\xBF\xBD");
    }
    scratch.makeFolder(".folder");
    scratch.makeFolder("folder");
    scratch.symlink("folder", "link to folder");
    scratch.symlink("nowhere", "dangling");
    EXPECT_EQ(names("KORB_GetFiles"), files);
    EXPECT_EQ(names("KORB_GetFolders"), (Names{".folder", "folder", "link to folder"}));
    EXPECT_EQ(count("KORB_GetNumFiles"), static_cast<double>(files.size()));
    EXPECT_EQ(count("KORB_GetNumSubfolders"), 3);

    // The link is a folder to look into, too.
    scratch.write("folder/only");
    EXPECT_EQ(names("KORB_GetFiles", "link to folder/"), Names{"only"});
    EXPECT_EQ(names("KORB_GetFolders", "folder"), Names{});
    EXPECT_EQ(count("KORB_GetNumSubfolders", "folder"), 0);
}

TEST_F(Listing, KeepsTheOrderOfTheFileSystem)
{
    for (int i = 0; i < 50; ++i) {
        scratch.write("file " + std::to_string(i * 7919 % 50));
    }
    Names expected;
    for (const auto& entry : std::filesystem::directory_iterator(scratch.path())) {
        expected.push_back(entry.path().filename());
    }
    EXPECT_EQ(plugin.call("KORB_GetFiles", {scratch.text()}).lines(), expected);
}

TEST_F(Listing, ReportsWhatCannotBeListed)
{
    const std::string file = scratch.write("file", "x");
    const std::string closed = scratch.makeFolder("closed");
    scratch.setMode("", 0755);
    scratch.setMode("closed", 0300);
    for (const Function& function : functions) {
        SCOPED_TRACE(function.name);
        EXPECT_EQ(answer(plugin, function.name, {}), "-3 Invalid Number of Parameters");
        EXPECT_EQ(answer(plugin, function.name, {"/", "/"}), "-3 Invalid Number of Parameters");
        EXPECT_EQ(answer(plugin, function.name, {""}), "-8000 Missing source parameter");
        EXPECT_EQ(answer(plugin, function.name, {scratch.text("absent")}), "-8002 Source path not found");
        EXPECT_EQ(answer(plugin, function.name, {scratch.text() + " "}), "-8002 Source path not found");
        EXPECT_EQ(answer(plugin, function.name, {file}), "-8005 Source path is not a folder");
        EXPECT_EQ(answer(plugin, function.name, {file + "/"}), "-8002 Source path not found");
    }
    SKIP_ON_GNUSTEP("contentsOfDirectoryAtPath:error: takes a folder that can't be read for an empty one");
    for (const Function& function : functions) {
        EXPECT_EQ(folidex::test::inChild([&] {
                      folidex::test::becomeOrdinaryUser();
                      return answer(plugin, function.name, {closed});
                  }),
                  std::string("-8014 Unable to complete operation -  ") + function.whenUnreadable);
    }
}

TEST_F(Listing, RelativePathsStartAtTheCurrentFolder)
{
    scratch.write("sub/file");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path());
    EXPECT_EQ(answer(plugin, "KORB_GetFiles", {"sub"}), "file");
    EXPECT_EQ(answer(plugin, "KORB_GetFolders", {"."}), "sub");
    std::filesystem::current_path(before);
}

} // namespace
