// The changing half of platform/file_manager.h, as every platform has to keep it.

#include "platform/file_manager.h"
#include "platform/unicode.h"
#include "support/child_process.h"
#include "support/platform_expectations.h"
#include "support/scratch_folder.h"
#include "support/tree_snapshot.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;
using folidex::test::inChild;
using folidex::test::ScratchFolder;
using folidex::test::snapshot;
using platform::Outcome;

void setTimes(const fs::path& item)
{
    const std::array<timespec, 2> times{timespec{1000000000, 123456789}, timespec{-86400, 987654321}};
    ASSERT_EQ(utimensat(AT_FDCWD, item.c_str(), times.data(), AT_SYMLINK_NOFOLLOW), 0) << item;
}

// A tree with everything that needs no privilege.
void makeTree(const ScratchFolder& scratch)
{
    scratch.write("tree/file", "content");
    scratch.write("tree/empty file");
    scratch.write("tree/large", std::string(3'000'000, 'l') + "end");
    scratch.write("tree/new\nline", "n");
    scratch.write("tree/\u00FC\U0001F600/inner", "i");
    scratch.write("tree/read-only/kept", "k");
    scratch.makeFolder("tree/empty folder");
    scratch.symlink("file", "tree/link");
    scratch.symlink("/nowhere/at all", "tree/dangling");
    scratch.symlink("..", "tree/up");
    for (const char* name : {"file", "link", "empty folder", "read-only", ""}) {
        setTimes(scratch / "tree" / name);
    }
    scratch.setMode("tree/file", 0604);
    scratch.setMode("tree/read-only/kept", 0400);
    scratch.setMode("tree/read-only", 0555);
}

TEST(CopyItem, KeepsEverythingOfTreesAndSingleItems)
{
    const ScratchFolder scratch;
    makeTree(scratch);
    const auto before = snapshot(scratch / "tree");
    setTimes(scratch / "tree/file"); // the snapshot has read it
    const Outcome outcome = platform::copyItem(scratch.text16("tree"), scratch.text16("copy/"));
    ASSERT_TRUE(outcome.ok()) << outcome.description();
    struct stat status {};
    ASSERT_EQ(stat((scratch / "copy/file").c_str(), &status), 0);
    EXPECT_EQ(status.st_atime, 1000000000);
    EXPECT_EQ(snapshot(scratch / "copy"), before);
    EXPECT_EQ(snapshot(scratch / "tree"), before);
    EXPECT_EQ(scratch.list().size(), 2U) << "nothing else is left beside the copy";
    for (const char* name : {"file", "large", "link", "dangling", "up", "empty folder"}) {
        EXPECT_TRUE(
            platform::copyItem(scratch.text16("tree") + u"//" + fs::path(name).u16string(), scratch.text16(name)).ok());
        EXPECT_EQ(snapshot(scratch / name), snapshot(scratch / "tree" / name));
    }
}

TEST(CopyItem, LeavesHolesAndMissesNothingBesideThem)
{
    const ScratchFolder scratch;
    struct Piece {
        off_t at;
        const char* text;
    };
    struct Case {
        const char* name;
        off_t size;
        std::vector<Piece> pieces;
    };
    const Case cases[] = {
        {"hole only", 8 << 20, {}},
        {"data first", 8 << 20, {{0, "start"}}},
        {"data last", (8 << 20) + 3, {{8 << 20, "end"}}},
        {"islands", 8 << 20, {{1 << 20, "one"}, {(3 << 20) + 777, "two"}, {(8 << 20) - 5, "three"}}},
    };
    for (const Case& c : cases) {
        const std::string path = scratch.write(c.name);
        const int file = open(path.c_str(), O_WRONLY);
        ASSERT_EQ(ftruncate(file, c.size), 0);
        for (const Piece& piece : c.pieces) {
            const std::string text = piece.text;
            ASSERT_EQ(pwrite(file, text.data(), text.size(), piece.at), static_cast<ssize_t>(text.size()));
        }
        close(file);
        const std::string copy = scratch.text(std::string("copy of ") + c.name);
        const Outcome outcome = platform::copyItem(platform::utf16FromUtf8(path), platform::utf16FromUtf8(copy));
        EXPECT_TRUE(outcome.ok()) << outcome.description();
        EXPECT_EQ(snapshot(copy), snapshot(path)) << c.name;
        struct stat status {};
        ASSERT_EQ(stat(copy.c_str(), &status), 0);
        EXPECT_LT(status.st_blocks * 512, 1 << 20) << c.name;
    }
}

// What neither a copy nor a move does, with nothing changed afterwards.
TEST(CopyAndMove, RefuseWithoutTouchingAnything)
{
    const ScratchFolder scratch;
    scratch.write("file", "f");
    scratch.write("folder/sub/inner", "i");
    scratch.makeFolder("other");
    scratch.symlink("nowhere", "dangling");
    scratch.symlink("folder/sub", "to-sub");
    const std::u16string tooLong(5000, u'n');
    std::u16string longFolder = scratch.text16(); // with a name more than a path can be
    while (longFolder.size() < 4000) {
        longFolder += u"/.";
    }
    struct Case {
        std::u16string source;
        std::u16string target;
        std::string reason;
    };
    const auto in = [&](const char* name) { return scratch.text16(name); };
    const Case cases[] = {
        {in("file"), in("folder"), "File exists"},
        {in("file"), in("dangling"), "File exists"},
        {in("file"), in("file"), "File exists"},
        {in("folder"), in("other"), "File exists"},
        {in("folder"), in("file"), "File exists"},
        {in("dangling"), in("to-sub"), "File exists"},
        {in("nothing"), in("new"), "No such file or directory"},
        {in("file"), in("nothing/new"), "No such file or directory"},
        {in("file"), in("file/new"), "Not a directory"},
        {in("file") + u"/", in("new"), "Not a directory"},
        {in("file"), in("new/"), "Not a directory"},
        {in("folder"), in("folder/new"), "into itself"},
        {in("folder"), in("folder/sub/new"), "into itself"},
        {in("folder"), in("to-sub/new"), "into itself"},
        {in("folder/sub") + u"/..", in("folder/sub/new"), ""},
        {u"", in("new"), "No such file or directory"},
        {in("file"), u"", "No such file or directory"},
        {in("file") + std::u16string(1, u'\0'), in("new"), "No such file or directory"},
        {in("file"), in("new") + std::u16string(1, char16_t{0xDC00}), "No such file or directory"},
        {in("file"), scratch.text16() + u"/" + tooLong, "File name too long"},
        {u"/" + tooLong, in("new"), "File name too long"},
        {in("file"), longFolder + u"/" + std::u16string(200, u'n'), "File name too long"},
    };
    const auto before = snapshot(scratch.path());
    for (const Case& c : cases) {
        const std::string shown = "case " + std::to_string(&c - cases);
        for (const auto transfer : {platform::copyItem, platform::moveItem}) {
            const Outcome outcome = transfer(c.source, c.target, platform::Existing::refused);
            ASSERT_FALSE(outcome.ok()) << shown;
            EXPECT_NE(outcome.description().find(c.reason), std::string::npos) << outcome.description();
            EXPECT_LT(outcome.description().size(), 5000U);
            EXPECT_EQ(snapshot(scratch.path()), before) << shown;
        }
    }
}

TEST(MoveItem, RenamesWhateverItIs)
{
    const ScratchFolder scratch;
    makeTree(scratch);
    const auto before = snapshot(scratch / "tree");
    ASSERT_TRUE(platform::moveItem(scratch.text16("tree") + u"/", scratch.text16("moved/")).ok());
    EXPECT_EQ(snapshot(scratch / "moved"), before);
    for (const char* name : {"file", "dangling", "up"}) {
        const auto item = snapshot(scratch / "moved" / name);
        ASSERT_TRUE(
            platform::moveItem(scratch.text16("moved") + u"/" + fs::path(name).u16string(), scratch.text16(name)).ok());
        EXPECT_EQ(snapshot(scratch / name), item);
        EXPECT_FALSE(scratch.exists(fs::path("moved") / name));
    }
    scratch.hardLink("file", "second name");
    EXPECT_FALSE(platform::moveItem(scratch.text16("file"), scratch.text16("second name")).ok());
    EXPECT_TRUE(scratch.exists("file"));
}

// Whatever is there goes first; but it stays when the source turns out to be reached through it.
TEST(CopyAndMove, ReplaceWhatIsThereWhenTold)
{
    const ScratchFolder scratch;
    scratch.write("folder/file", "old");
    scratch.write("real/file", "new");
    scratch.symlink("real", "way");
    scratch.symlink("nowhere", "dangling");
    const auto replace = [&](auto transfer, const char* source, const char* target) {
        return transfer(scratch.text16(source), scratch.text16(target), platform::Existing::replaced).ok();
    };
    EXPECT_FALSE(replace(platform::copyItem, "way/file", "way"));
    EXPECT_FALSE(replace(platform::moveItem, "way/file", "way"));
    EXPECT_EQ(scratch.read("way/file"), "new");
    EXPECT_FALSE(replace(platform::copyItem, "nothing", "folder"));
    EXPECT_EQ(scratch.read("folder/file"), "old");
    EXPECT_TRUE(replace(platform::copyItem, "real/file", "dangling"));
    EXPECT_TRUE(replace(platform::copyItem, "real/file", "folder"));
    EXPECT_TRUE(replace(platform::moveItem, "folder", "way"));
    EXPECT_EQ(scratch.read("way"), "new");
    EXPECT_EQ(scratch.read("dangling"), "new");
    EXPECT_EQ(scratch.list(), (std::vector<std::string>{"dangling", "real", "way"}));
}

TEST(RemoveItem, RemovesItemsButFollowsNoLink)
{
    const ScratchFolder scratch;
    scratch.write("outside/kept", "k");
    scratch.write("tree/a/b/c/file", "f");
    if (!folidex::test::onCocoa) { // macOS refuses such names, GNUstep doesn't see them
        scratch.write("tree/\xFF\xFE", "not UTF-8");
    }
    scratch.makeFolder("tree/empty");
    scratch.symlink(scratch / "outside", "tree/a/link");
    scratch.symlink("outside", "link");
    scratch.symlink("outside", "link with slash");
    for (const std::u16string& name :
         {std::u16string(u"tree"), std::u16string(u"link"), std::u16string(u"link with slash/")}) {
        const Outcome outcome = platform::removeItem(scratch.text16() + u"/" + name);
        EXPECT_TRUE(outcome.ok()) << outcome.description();
    }
    EXPECT_EQ(scratch.list(), std::vector<std::string>{"outside"});
    EXPECT_EQ(scratch.read("outside/kept"), "k");
}

TEST(RemoveItem, RefusesWithoutTouchingAnything)
{
    const ScratchFolder scratch;
    scratch.write("folder/file", "f");
    const auto before = snapshot(scratch.path());
    for (const char16_t* end : {u"/nothing", u"/folder/file/", u"/folder/.", u"/folder/..", u"/folder/./"}) {
        EXPECT_FALSE(platform::removeItem(scratch.text16() + end).ok());
        EXPECT_EQ(snapshot(scratch.path()), before);
    }
    const std::string answer = inChild([&] {
        return chdir((scratch / "folder").c_str()) != 0          ? std::string("no folder")
               : platform::removeItem(u".").ok()                 ? std::string("removed")
               : platform::removeItem(std::u16string(1, 0)).ok() ? std::string("removed nothing")
                                                                 : std::string();
    });
    EXPECT_EQ(answer, "");
    EXPECT_EQ(snapshot(scratch.path()), before);
}

TEST(CreateFolder, MakesWhatIsMissing)
{
    const ScratchFolder scratch;
    scratch.write("file", "f");
    scratch.symlink("nowhere", "dangling");
    const mode_t mask = umask(027);
    struct Case {
        const char16_t* path;
        const char* made; // nothing for a failure
    };
    const Case cases[] = {
        {u"/one", "one"},        {u"/one/", "one"},         {u"/a/b//c/d/", "a/b/c/d"},
        {u"/a/../e/./f", "e/f"}, {u"/file", nullptr},       {u"/file/x", nullptr},
        {u"/dangling", nullptr}, {u"/dangling/x", nullptr}, {u"/\u00E9/x", "\u00E9/x"},
    };
    for (const Case& c : cases) {
        const Outcome outcome = platform::createFolder(scratch.text16() + c.path);
        EXPECT_EQ(outcome.ok(), c.made != nullptr) << fs::path(c.path) << outcome.description();
        EXPECT_TRUE(c.made == nullptr || fs::is_directory(scratch / c.made)) << fs::path(c.path);
    }
    umask(mask);
    struct stat status {};
    ASSERT_EQ(stat((scratch / "a/b").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0750U);
    EXPECT_FALSE(platform::createFolder(u"").ok());
    EXPECT_FALSE(platform::createFolder(scratch.text16() + u"/" + std::u16string(300, u'n') + u"/x").ok());
    EXPECT_EQ(scratch.read("file"), "f");
}

} // namespace
