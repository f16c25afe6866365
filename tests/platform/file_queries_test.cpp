#include "platform/file_manager.h"
#include "platform/unicode.h"
#include "support/child_process.h"
#include "support/platform_expectations.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <map>
#include <string>

namespace {

using folidex::test::becomeOrdinaryUser;
using folidex::test::inChild;
using folidex::test::ScratchFolder;
using platform::utf16FromUtf8;

// The names of a folder with what each is, "folder" or "file".
std::map<std::string, std::string> kinds(const std::u16string& folder)
{
    std::map<std::string, std::string> entries;
    const platform::Outcome outcome = platform::listFolder(
        folder, [&](std::string_view name, bool isFolder) { entries.emplace(name, isFolder ? "folder" : "file"); });
    EXPECT_TRUE(outcome.ok()) << outcome.description();
    return entries;
}

std::uint64_t ownSize(const std::string& path)
{
    struct stat status;
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return static_cast<std::uint64_t>(status.st_size);
}

// The sum, or the failure's description.
std::string sizesOf(const std::string& folder)
{
    std::uint64_t bytes = 0;
    const platform::Outcome outcome = platform::sumFolderSizes(utf16FromUtf8(folder), bytes);
    return outcome.ok() ? std::to_string(bytes) : outcome.description();
}

TEST(Existence, FollowsLinks)
{
    const ScratchFolder scratch;
    scratch.write("file", "x");
    scratch.makeFolder("folder");
    scratch.symlink("file", "to-file");
    scratch.symlink("folder", "to-folder");
    scratch.symlink("nowhere", "dangling");
    scratch.symlink("loop", "loop");
    scratch.write("\u00FCml\u00E4ut \U0001F600", "x");

    struct Case {
        std::u16string path;
        bool exists;
        bool isFolder;
    };
    const Case cases[] = {
        {scratch.text16("file"), true, false},
        {scratch.text16("file") + u"/", false, false},
        {scratch.text16("file") + u" ", false, false},
        {scratch.text16("folder"), true, true},
        {scratch.text16("folder") + u"//", true, true},
        {scratch.text16("to-file"), true, false},
        {scratch.text16("to-folder"), true, true},
        {scratch.text16("dangling"), false, false},
        {scratch.text16("loop"), false, false},
        {scratch.text16() + u"/\u00FCml\u00E4ut \U0001F600", true, false},
        {u"", false, false},
        {scratch.text16("file") + std::u16string(1, u'\0'), false, false},
        {scratch.text16("file") + std::u16string(1, char16_t{0xD800}), false, false},
        {u"/" + std::u16string(5000, u'a'), false, false},
    };
    for (const Case& expected : cases) {
        const platform::Existence found = platform::existence(expected.path);
        EXPECT_EQ(found.exists, expected.exists) << testing::PrintToString(expected.path);
        EXPECT_EQ(found.isFolder, expected.isFolder) << testing::PrintToString(expected.path);
    }
}

TEST(Attributes, OfALinkAreItsOwnButForTheLastAccess)
{
    const ScratchFolder scratch;
    scratch.write("target", std::string(1000, 'x'));
    scratch.symlink("target", "link");
    // Half a second before 1970-01-01 00:00:00 UTC belongs to the second before.
    const std::array<timespec, 2> targetTimes{timespec{-2, 500'000'000}, timespec{-1, 500'000'000}};
    const std::array<timespec, 2> linkTimes{timespec{5000, 0}, timespec{6000, 999'999'999}};
    ASSERT_EQ(utimensat(AT_FDCWD, (scratch / "target").c_str(), targetTimes.data(), 0), 0);
    ASSERT_EQ(utimensat(AT_FDCWD, (scratch / "link").c_str(), linkTimes.data(), AT_SYMLINK_NOFOLLOW), 0);

    const auto target = platform::attributes(scratch.text16("target"));
    ASSERT_TRUE(target);
    EXPECT_EQ(target->size, 1000U);
    EXPECT_EQ(target->modificationDate, -1);

    const auto link = platform::attributes(scratch.text16("link"));
    ASSERT_TRUE(link);
    EXPECT_EQ(link->size, std::string("target").size());
    EXPECT_EQ(link->modificationDate, 6000);
    EXPECT_EQ(platform::accessTime(scratch.text16("link")), -2);

    EXPECT_FALSE(platform::attributes(scratch.text16("nothing")));
    EXPECT_EQ(platform::accessTime(scratch.text16("nothing")), 0);
}

TEST(Attributes, CreationDateStaysWhenTheFileChanges)
{
    const ScratchFolder scratch;
    const time_t before = time(nullptr);
    scratch.write("file", "x");
    const auto created = platform::attributes(scratch.text16("file"))->creationDate;
    if (!created) {
        GTEST_SKIP() << "the file system of " << scratch.path() << " keeps no creation dates";
    }
    const std::array<timespec, 2> times{timespec{86400, 0}, timespec{86400, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (scratch / "file").c_str(), times.data(), 0), 0);
    EXPECT_EQ(platform::attributes(scratch.text16("file"))->creationDate, created);
    EXPECT_GE(*created, before - 1); // the kernel's clock for files lags by a tick
    EXPECT_LE(*created, time(nullptr));

#ifdef __linux__ // procfs keeps none
    const auto without = platform::attributes(u"/proc/self/status");
    ASSERT_TRUE(without);
    EXPECT_FALSE(without->creationDate);
#endif
}

TEST(ListFolder, ShowsEveryEntryWithItsKind)
{
    const ScratchFolder scratch;
    scratch.write("file", "x");
    scratch.write(".hidden");
    scratch.write("line\nfeed");
    scratch.makeFolder("folder");
    scratch.makeFolder(".hidden folder");
    scratch.symlink("file", "to-file");
    scratch.symlink("folder", "to-folder");
    scratch.symlink("nowhere", "dangling");
    ASSERT_EQ(mkfifo((scratch / "fifo").c_str(), 0600), 0);

    std::map<std::string, std::string> expected{
        {"file", "file"},        {".hidden", "file"},          {"line\nfeed", "file"},
        {"folder", "folder"},    {".hidden folder", "folder"}, {"to-file", "file"},
        {"to-folder", "folder"}, {"dangling", "file"},         {"fifo", "file"},
    };
    if (!folidex::test::onCocoa) { // macOS refuses names that aren't Unicode, GNUstep drops them
        scratch.write("\xFF\xFE");
        expected.emplace("\xFF\xFE", "file");
    }
    EXPECT_EQ(kinds(scratch.text16()), expected);
    EXPECT_EQ(kinds(scratch.text16("folder") + u"/"), (std::map<std::string, std::string>{}));
    for (int i = 0; i < 1500; ++i) { // more than one call to the system brings
        scratch.write("folder/" + std::to_string(i) + std::string(200, 'n'));
    }
    EXPECT_EQ(kinds(scratch.text16("folder")).size(), 1500U);
    EXPECT_EQ(kinds(utf16FromUtf8(scratch.text()) + u"/to-folder/.."), expected);
}

// Nothing in such a folder can be examined, so no entry proves to be a folder.
TEST(ListFolder, CallsEverythingAFileWhereSearchingIsForbidden)
{
    const ScratchFolder scratch;
    scratch.makeFolder("folder/sub-folder");
    scratch.symlink("sub-folder", "folder/link");
    scratch.setMode("", 0755);
    scratch.setMode("folder", 0444);
    const std::string found = inChild([&] {
        becomeOrdinaryUser();
        std::string text;
        for (const auto& [name, kind] : kinds(scratch.text16("folder"))) {
            text.append(name).append(" ").append(kind).append("\n");
        }
        return text;
    });
    EXPECT_EQ(found, "link file\nsub-folder file\n");
}

TEST(FolderSizes, CountEveryEntryOnceAndLinksByTheirTarget)
{
    const ScratchFolder scratch;
    scratch.write("outside/large", std::string(50'000, 'x'));
    scratch.write("folder/.hidden", "12345");
    scratch.write("folder/empty");
    scratch.write("folder/sub/deeper/file", "1234567");
    scratch.makeFolder("folder/empty folder");
    scratch.hardLink("folder/.hidden", "folder/sub/again");
    scratch.symlink("../outside/large", "folder/to-file");
    scratch.symlink("../outside", "folder/to-folder");
    scratch.symlink("..", "folder/sub/up");
    scratch.symlink("nowhere", "folder/dangling");

    std::uint64_t expected = 5 + 7 + 5 + 50'000;
    for (const char* folder : {"outside", "folder", "folder/sub", "folder/sub/deeper", "folder/empty folder"}) {
        expected += ownSize(scratch.text(folder)); // "folder" by way of "sub/up", "outside" of "to-folder"
    }
    EXPECT_EQ(sizesOf(scratch.text("folder")), std::to_string(expected));
    EXPECT_EQ(sizesOf(scratch.text("folder") + "/"), std::to_string(expected));

    scratch.symlink("folder", "start");
    EXPECT_EQ(sizesOf(scratch.text("start")), std::to_string(expected));
    EXPECT_EQ(sizesOf(scratch.text("folder/empty folder")), "0");
    expected -= ownSize(scratch.text("folder")); // on some file systems it grows by an entry
    scratch.write("folder/unsearchable/unseen", "12345");
    scratch.setMode("", 0755);
    scratch.setMode("folder/unsearchable", 0444);
    expected += ownSize(scratch.text("folder")) + ownSize(scratch.text("folder/unsearchable"));
    const std::string found = inChild([&] {
        becomeOrdinaryUser();
        return sizesOf(scratch.text("folder"));
    });
    EXPECT_EQ(found, std::to_string(expected)) << "what can't be examined adds nothing";
}

} // namespace
