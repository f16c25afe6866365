// What the Linux implementation promises beyond the common contract: metadata, other file systems, depth, mounts. What
// it does without, who may come in between and what a kill leaves is in tests/faults.

#include "platform/file_manager.h"
#include "platform/posix/copy_record.h"
#include "platform/posix/folder_stack.h"
#include "platform/posix/moved_source.h"
#include "platform/unicode.h"
#include "support/child_process.h"
#include "support/scratch_folder.h"
#include "support/surroundings.h"
#include "support/tree_snapshot.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/time.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace {

namespace fs = std::filesystem;
using folidex::test::becomeOrdinaryUser;
using folidex::test::inChild;
using folidex::test::leaveMountNamespace;
using folidex::test::ScratchFolder;
using folidex::test::snapshot;

std::u16string utf16(const fs::path& path)
{
    return platform::utf16FromUtf8(path.native());
}

std::string copyIt(const fs::path& source, const fs::path& target)
{
    return platform::copyItem(utf16(source), utf16(target)).description();
}

std::string moveIt(const fs::path& source, const fs::path& target)
{
    return platform::moveItem(utf16(source), utf16(target)).description();
}

// An access list as the kernel keeps it (acl(5)): owner rw-, user 4711 rw-, owning group ---, mask rw-, others ---.
void giveAccessList(const fs::path& item)
{
    struct [[gnu::packed]] Entry {
        std::uint16_t tag;
        std::uint16_t rights;
        std::uint32_t id;
    };
    struct [[gnu::packed]] List {
        std::uint32_t version = 2;
        Entry entries[5];
    };
    constexpr std::uint32_t nobody = 0xFFFFFFFF;
    const List list{2, {{1, 6, nobody}, {2, 6, 4711}, {4, 0, nobody}, {16, 6, nobody}, {32, 0, nobody}}};
    ASSERT_EQ(setxattr(item.c_str(), "system.posix_acl_access", &list, sizeof list, 0), 0) << strerror(errno);
}

void giveAttribute(const fs::path& item, const std::string& value)
{
    ASSERT_EQ(lsetxattr(item.c_str(), "user.folidex", value.data(), value.size(), 0), 0) << strerror(errno);
}

void makeRichTree(const ScratchFolder& scratch)
{
    scratch.write("tree/attributes", "a");
    giveAttribute(scratch / "tree/attributes", std::string(2000, 'v'));
    scratch.write("tree/list", "l");
    giveAccessList(scratch / "tree/list");
    scratch.write("tree/set-id", "s");
    scratch.setMode("tree/set-id", 06751);
    scratch.makeFolder("tree/folder");
    giveAttribute(scratch / "tree/folder", "f");
    scratch.setMode("tree/folder", 03711);
    scratch.write("tree/\xFF\xFE not UTF-8", "n");
    ASSERT_EQ(mkfifo((scratch / "tree/fifo").c_str(), 0640), 0);
    if (folidex::test::lacking("root").empty()) {
        ASSERT_EQ(mknod((scratch / "tree/device").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
        scratch.symlink("nowhere", "tree/link");
        for (const char* name : {"attributes", "list", "link", "fifo", "folder"}) {
            ASSERT_EQ(lchown((scratch / "tree" / name).c_str(), 1234, 5678), 0);
        }
        ASSERT_EQ(chown((scratch / "tree/set-id").c_str(), 1234, 5678), 0);
        scratch.setMode("tree/set-id", 06751);
        scratch.setMode("tree/folder", 03711);
    }
}

TEST(LinuxCopy, KeepsOwnersAttributesListsAndSetIdBits)
{
    SKIP_WITHOUT("attributes access-lists");
    const ScratchFolder scratch;
    makeRichTree(scratch);
    const auto before = snapshot(scratch / "tree");
    EXPECT_EQ(copyIt(scratch / "tree", scratch / "copy"), "");
    EXPECT_EQ(snapshot(scratch / "copy"), before);
    for (const char* name : {"attributes", "list", "set-id", "folder", "fifo"}) {
        EXPECT_EQ(copyIt(scratch / "tree" / name, scratch / name), "");
        EXPECT_EQ(snapshot(scratch / name), snapshot(scratch / "tree" / name));
    }
}

nlink_t numberOfNames(const fs::path& item)
{
    struct stat status {};
    return lstat(item.c_str(), &status) == 0 ? status.st_nlink : 0;
}

TEST(LinuxCopy, KeepsHardLinksWithinTheTree)
{
    const ScratchFolder scratch;
    scratch.write("tree/first", "f");
    scratch.makeFolder("tree/sub");
    for (const char* name : {"tree/sub/twin", "tree/sub/third", "tree/sub/fourth"}) {
        scratch.hardLink("tree/first", name);
    }
    scratch.symlink("nowhere", "tree/link");
    scratch.hardLink("tree/link", "tree/sub/link");
    EXPECT_EQ(copyIt(scratch / "tree", scratch / "copy"), "");
    EXPECT_EQ(snapshot(scratch / "copy"), snapshot(scratch / "tree"));
    EXPECT_TRUE(fs::equivalent(scratch / "copy/first", scratch / "copy/sub/twin"));
    EXPECT_EQ(numberOfNames(scratch / "copy/first"), 4U);
    EXPECT_EQ(numberOfNames(scratch / "copy/link"), 2U);
}

// A thread may have descriptors of its own; what /proc/self shows are another's.
TEST(LinuxCopy, LinksItsOwnFileInAnyThread)
{
    const ScratchFolder scratch;
    const std::string other = scratch.write("other", "another file");
    scratch.write("file", "content");
    const std::string answer = inChild([&] {
        std::vector<int> numbers(50);
        for (int& number : numbers) {
            number = open(other.c_str(), O_RDONLY | O_CLOEXEC);
        }
        std::string text;
        std::thread([&] {
            text = unshare(CLONE_FILES) == 0 ? "" : "one table of descriptors";
            for (const int number : numbers) {
                close(number);
            }
            text += copyIt(scratch / "file", scratch / "copy");
        }).join();
        return text;
    });
    EXPECT_EQ(answer, "");
    EXPECT_EQ(scratch.read("copy"), "content");
}

// A folder's default list is for what is made in it, not for copies, which bring their own rights.
TEST(LinuxCopy, InheritsNoAccessList)
{
    SKIP_WITHOUT("access-lists");
    const ScratchFolder scratch;
    scratch.write("tree/sub/file", "f");
    scratch.makeFolder("target");
    giveAccessList(scratch / "target");
    char list[44];
    ASSERT_EQ(getxattr((scratch / "target").c_str(), "system.posix_acl_access", list, sizeof list), 44);
    ASSERT_EQ(setxattr((scratch / "target").c_str(), "system.posix_acl_default", list, sizeof list, 0), 0);
    scratch.setMode("target", 02777);
    EXPECT_EQ(copyIt(scratch / "tree", scratch / "target/tree"), "");
    EXPECT_EQ(copyIt(scratch / "tree/sub/file", scratch / "target/file"), "");
    EXPECT_EQ(snapshot(scratch / "target/tree"), snapshot(scratch / "tree"));
    EXPECT_EQ(snapshot(scratch / "target/file"), snapshot(scratch / "tree/sub/file"));
}

TEST(LinuxCopy, DropsSetIdBitsWithTheOwner)
{
    SKIP_WITHOUT("root");
    const ScratchFolder scratch;
    fs::permissions(scratch.path(), fs::perms::all);
    scratch.write("set-id", "s");
    scratch.setMode("set-id", 06755);
    const std::string answer = inChild([&] {
        becomeOrdinaryUser();
        return copyIt(scratch / "set-id", scratch / "copy");
    });
    EXPECT_EQ(answer, "");
    struct stat status {};
    ASSERT_EQ(stat((scratch / "copy").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
}

// Nothing is left of the copy, locked folders included.
TEST(LinuxCopy, RefusesSocketsByName)
{
    const ScratchFolder scratch;
    fs::permissions(scratch.path(), fs::perms::all);
    for (const char* folder : {"a", "b", "socket's", "c", "d"}) {
        scratch.write(fs::path("tree") / folder / "file", "f");
        scratch.setMode(fs::path("tree") / folder, 0555);
    }
    const std::string socket = scratch.text("tree/socket's/socket");
    scratch.setMode("tree/socket's", 0755);
    ASSERT_EQ(mknod(socket.c_str(), S_IFSOCK | 0600, 0), 0);
    const std::string expected = "could not copy " + socket + ": a socket can't be copied";
    for (const fs::path& source : {scratch / "tree", fs::path(socket)}) {
        const std::string answer = inChild([&] {
            becomeOrdinaryUser();
            return copyIt(source, scratch / "copy");
        });
        EXPECT_EQ(answer, expected);
    }
    EXPECT_EQ(scratch.list(), std::vector<std::string>{"tree"});
}

TEST(LinuxCopy, ReadsFilesThatMakeUpTheirContent)
{
    SKIP_WITHOUT("/sys/kernel/mm/transparent_hugepage/enabled");
    const ScratchFolder scratch;
    EXPECT_EQ(copyIt("/proc/version", scratch / "version"), "");
    EXPECT_EQ(copyIt("/sys/kernel/mm/transparent_hugepage/enabled", scratch / "setting"), "");
    EXPECT_NE(scratch.read("version").find("Linux version"), std::string::npos);
    EXPECT_LT(scratch.read("setting").size(), 200U) << "the file says 4096";
    EXPECT_NE(scratch.read("setting").find("never"), std::string::npos);
}

// With folders "tree" and "volume". What is mounted belongs to the test alone.
class LinuxMounts : public testing::Test {
protected:
    void SetUp() override
    {
        SKIP_WITHOUT("root mounts attributes access-lists");
        fs::permissions(scratch.path(), fs::perms::all);
    }

    // What `body` returns with a file system mounted at the folder.
    template <typename Body>
    std::string with(const fs::path& folder, const char* type, const std::string& options, Body&& body) const
    {
        return inChild([&] {
            leaveMountNamespace();
            return mount("folidex-test", folder.c_str(), type, 0, options.c_str()) == 0
                       ? std::string(body())
                       : std::string("mount: ") + strerror(errno);
        });
    }

    const ScratchFolder scratch;
    const fs::path tree = scratch.makeFolder("tree");
    const fs::path volume = scratch.makeFolder("volume");
};

TEST_F(LinuxMounts, AreCrossedByMoves)
{
    makeRichTree(scratch);
    scratch.write("tree/deep/er/file", std::string(1'000'000, 'd'));
    scratch.hardLink("tree/deep/er/file", "tree/twin");
    const auto before = snapshot(tree);
    const std::string answer = with(volume, "tmpfs", "size=16m", [&] {
        std::string text = moveIt(tree, volume / "tree");
        text += snapshot(volume / "tree") == before ? "" : "the copy differs";
        text += fs::exists(tree) ? "the source is left" : "";
        text += numberOfNames(volume / "tree/twin") == 2 ? "" : "the hard link is another file";
        for (const char* name : {"set-id", "link", "fifo", "device"}) {
            text += moveIt(volume / "tree" / name, volume / name); // within
            text += moveIt(volume / name, scratch / name);         // and across
            text += fs::exists(fs::symlink_status(volume / name)) ? " is left" : "";
        }
        return text + moveIt(volume / "tree", scratch / "back");
    });
    EXPECT_EQ(answer, "");
    EXPECT_EQ(snapshot(scratch / "set-id").at(""), before.at("/set-id"));
    EXPECT_EQ(snapshot(scratch / "device").at(""), before.at("/device"));
    EXPECT_EQ(snapshot(scratch / "back").at("/list"), before.at("/list"));
    EXPECT_EQ(scratch.list().size(), 6U) << "back, the four items, volume";
}

TEST_F(LinuxMounts, RefuseBeforehandToBeMovedIntoWhatCouldNotBeRemoved)
{
    scratch.write("tree/a/file", "f");
    scratch.setMode("tree/a/file", 0);
    scratch.write("tree/open/file", "f");
    scratch.write("tree/open/locked/file", "f");
    scratch.setMode("tree/open/locked", 0555);
    scratch.setMode("tree/open", 0777);
    scratch.setMode("tree", 0777);
    scratch.makeFolder("tree/sub/mounted");
    const auto before = snapshot(tree);
    const std::string answer = with(volume, "tmpfs", "mode=0777", [&] {
        if (mount("folidex-test", (tree / "sub/mounted").c_str(), "tmpfs", 0, nullptr) != 0) {
            return std::string("no mount");
        }
        std::string text = moveIt(tree, volume / "tree") + "\n";
        umount((tree / "sub/mounted").c_str());
        const int held = open((tree / "open/file").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        text += moveIt(tree / "open", volume / "open") + "\n";
        close(held);
        becomeOrdinaryUser();
        for (const char* name : {"open", "open/locked"}) {
            text += moveIt(tree / name, volume / "moved") + "\n";
        }
        fs::create_directory(volume / "old");
        for (const auto transfer : {platform::copyItem, platform::moveItem}) {
            text += transfer(utf16(tree / "a/file"), utf16(volume / "old"), platform::Existing::replaced).description();
            text += "\n";
        }
        return text + (fs::remove(volume / "old") && fs::is_empty(volume) ? "" : "something else is left");
    });
    EXPECT_EQ(answer, "could not move " + (tree / "sub/mounted").native() + ": Device or resource busy\n" +
                          "could not move " + (tree / "open/file").native() + ": the file is open for writing\n" +
                          "could not move " + (tree / "open/locked").native() + ": Permission denied\n" +
                          "could not move " + (tree / "open/locked").native() + ": Permission denied\n" +
                          "could not copy " + (tree / "a/file").native() + ": Permission denied\n" + "could not move " +
                          (tree / "a/file").native() + ": Permission denied\n");
    EXPECT_EQ(snapshot(tree), before);
}

TEST_F(LinuxMounts, AreNamedWhereTheyRefuse)
{
    scratch.write("file", "f");
    scratch.setMode("volume", 0555);
    const std::string answer = inChild([&] {
        becomeOrdinaryUser();
        return moveIt(scratch / "file", volume / "file");
    });
    EXPECT_EQ(answer, "could not write " + (volume / "file").native() + ": Permission denied");
}

// A mode's group bits are the mask of an access list; without the list they would give the owning group too much.
TEST_F(LinuxMounts, WithoutAccessListsGiveNobodyMore)
{
    makeRichTree(scratch);
    const std::string answer = with(volume, "ramfs", "mode=0755", [&] {
        std::string text = copyIt(tree, volume / "tree");
        struct stat status {};
        stat((volume / "tree/list").c_str(), &status);
        return text + std::to_string(status.st_mode & 07777U);
    });
    EXPECT_EQ(answer, std::to_string(0600U));
}

// ext4 keeps what an item has of attributes in one block. A copy does without what doesn't fit, a move would lose it.
TEST_F(LinuxMounts, WithoutRoomForAnAttributeAreCopiedButNotMovedTo)
{
    SKIP_WITHOUT("ext4");
    const std::string file = scratch.write("tree/file", "f");
    giveAttribute(file, std::string(3000, 'v'));
    ASSERT_EQ(setxattr(file.c_str(), "user.note", "kept", 4, 0), 0);
    const std::string image = scratch.write("image");
    fs::resize_file(image, 8 << 20);
    ASSERT_EQ(std::system(("mkfs.ext4 -q -b 1024 '" + image + "'").c_str()), 0);
    const std::string answer = inChild([&] {
        leaveMountNamespace();
        if (std::system(("mount -o loop '" + image + "' '" + volume.native() + "'").c_str()) != 0) {
            return std::string("no mount");
        }
        std::string text = copyIt(tree, volume / "copy");
        std::array<char, 8> note{};
        text += getxattr((volume / "copy/file").c_str(), "user.note", note.data(), note.size()) == 4 ? note.data() : "";
        return text + "\n" + moveIt(file, volume / "file") + (fs::exists(volume / "file") ? " but it is there" : "");
    });
    EXPECT_EQ(answer, "kept\ncould not move " + file +
                          ": an extended attribute is too large for the file system of the target");
    EXPECT_TRUE(fs::exists(file));
}

TEST_F(LinuxMounts, InsideOfWhatIsRemovedAreNeverEmptied)
{
    const std::string answer = with(scratch.makeFolder("tree/sub/mounted"), "tmpfs", "", [&] {
        scratch.write("tree/sub/mounted/kept", "k");
        const std::string text = platform::removeItem(utf16(tree)).description();
        return text + (scratch.exists("tree/sub/mounted/kept") ? "" : " and it is empty");
    });
    EXPECT_EQ(answer, "could not remove " + (tree / "sub/mounted").native() + ": Device or resource busy");
}

// Reached through a mount, a sub-folder has no ancestor that gives it away.
TEST_F(LinuxMounts, LeadNoCopyIntoItself)
{
    scratch.makeFolder("tree/sub");
    scratch.makeFolder("other");
    const std::string answer = inChild([&] {
        leaveMountNamespace();
        mount((tree / "sub").c_str(), volume.c_str(), nullptr, MS_BIND, nullptr);
        const auto goes = [&](const fs::path& removed, const fs::path& kept) {
            return platform::removalTakesAway(utf16(removed), utf16(kept));
        };
        const std::string file = scratch.write("volume/file", "f");
        scratch.symlink(file, "other/link");
        const bool isSeen = goes(tree, file) && goes(tree, volume) && goes(tree, scratch / "other/link") &&
                            !goes(scratch / "other", file);
        fs::remove(file);
        return isSeen ? copyIt(tree, volume / "copy") : "the source would go with what it replaces";
    });
    EXPECT_EQ(answer, "could not copy " + (tree / "sub").native() + ": a folder can't be put into itself");
    EXPECT_TRUE(fs::is_empty(tree / "sub"));
}

// A folder of an overlay's lower layer can't be renamed (EXDEV), neither to hide it nor to move it.
TEST_F(LinuxMounts, OfOverlaysHaveFoldersThatAreNotRenamed)
{
    scratch.write("lower/old/file", "o");
    scratch.write("lower/folder/file", "f");
    scratch.write("lower/file", "new");
    const std::string answer = with(scratch.makeFolder("layers"), "tmpfs", "", [&] {
        scratch.makeFolder("layers/upper");
        scratch.makeFolder("layers/work");
        const std::string options = "lowerdir=" + scratch.text("lower") + ",upperdir=" + scratch.text("layers/upper") +
                                    ",workdir=" + scratch.text("layers/work");
        if (mount("folidex-test", volume.c_str(), "overlay", 0, options.c_str()) != 0) {
            return std::string("no overlay");
        }
        std::string text =
            platform::copyItem(utf16(volume / "file"), utf16(volume / "old"), platform::Existing::replaced)
                .description();
        text += moveIt(volume / "folder", volume / "moved");
        return text + scratch.read("volume/old") + scratch.read("volume/moved/file") +
               (fs::exists(volume / "folder") ? " is left" : "");
    });
    EXPECT_EQ(answer, "newf");
}

std::uint64_t ownSize(const char* path)
{
    struct stat status {};
    return stat(path, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

TEST(LinuxTrees, MayBeDeeperThanPathsAndDescriptors)
{
    // In memory where that can be had: a journal makes thousands of nested folders slow, whoever removes them.
    const ScratchFolder scratch(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path());
    constexpr int depth = 5000;
    const std::string answer = inChild([&] {
        std::uint64_t expected = 4; // and the folders' own sizes
        fs::current_path(scratch.makeFolder("deep"));
        for (int level = 0; level < depth; ++level) {
            mkdir("d", 0755);
            expected += level > 0 ? ownSize(".") : 0;
            fs::current_path("d");
        }
        const int file = creat("file", 0600);
        std::string text = write(file, "1234", 4) == 4 ? "" : "no file";
        expected += ownSize(".");
        const auto limit = static_cast<rlim_t>(file) + 40; // as many free ones
        close(file);
        const rlimit few{limit, limit};
        setrlimit(RLIMIT_NOFILE, &few);
        text += copyIt(scratch / "deep", scratch / "copy");
        std::uint64_t bytes = 0;
        text += platform::sumFolderSizes(scratch.text16("copy"), bytes).description();
        text += bytes == expected ? "" : std::to_string(bytes) + " bytes in place of " + std::to_string(expected);
        for (const char* name : {"deep", "copy"}) {
            text += platform::removeItem(scratch.text16(name)).description();
        }
        return text;
    });
    EXPECT_EQ(answer, "");
    EXPECT_EQ(scratch.list(), std::vector<std::string>());
}

TEST(LinuxTrees, AreCopiedAndRemovedWithinAFewMebibytesHoweverWide)
{
    const int width = std::getenv("FOLIDEX_FULL") != nullptr ? 1'000'000 : 30'000;
    const ScratchFolder scratch;
    const fs::path wide = scratch.makeFolder("wide");
    for (int i = 0; i < width; ++i) {
        const int file = creat((wide / ("a name of middling length " + std::to_string(i))).c_str(), 0600);
        ASSERT_GE(file, 0);
        close(file);
    }
    const std::string answer = inChild([&] {
        rusage before{};
        rusage after{};
        getrusage(RUSAGE_SELF, &before);
        std::string text = copyIt(wide, scratch / "copy");
        text += platform::removeItem(utf16(wide)).description();
        getrusage(RUSAGE_SELF, &after);
        const long growth = after.ru_maxrss - before.ru_maxrss; // KiB
        const long names = width / 8;                           // all that a copy keeps of the folder, with some room
        return text + (growth > 8192 + names ? std::to_string(growth) + " KiB" : "");
    });
    EXPECT_EQ(answer, "");
    EXPECT_FALSE(fs::exists(wide));
    EXPECT_EQ(std::distance(fs::directory_iterator(scratch / "copy"), {}), width);
}

// Folders that a walk has left behind are found again only where it came from.
TEST(LinuxTrees, AreLeftNowhereButWhereTheyWereEntered)
{
    const ScratchFolder scratch;
    constexpr int depth = 20; // more than a walk keeps open
    std::string path = "0";
    for (int level = 1; level < depth; ++level) {
        path += "/" + std::to_string(level);
    }
    scratch.makeFolder(path);
    scratch.makeFolder("elsewhere");
    platform::posix::FolderStack folders(AT_FDCWD);
    ASSERT_EQ(folders.enter(scratch.path()), 0);
    for (int level = 0; level < depth; ++level) {
        ASSERT_EQ(folders.enter(std::to_string(level)), 0);
    }
    EXPECT_EQ(folders.path(), "/" + path);
    fs::rename(scratch / "0/1/2/3/4", scratch / "elsewhere/4");
    int error = 0;
    while (folders.leave(error)) {
    }
    EXPECT_EQ(error, ESTALE);
    EXPECT_EQ(folders.path(), "/0/1/2/3/4");
}

// What was moved into another folder meanwhile isn't what was copied there.
TEST(LinuxMove, TellsEntriesApartByTheirFolders)
{
    using platform::posix::placeOf;
    using platform::posix::rootPlace;
    struct stat status {};
    platform::posix::CopyRecord record;
    record.add(placeOf(placeOf(rootPlace, "a"), "file"), status);
    record.close();
    EXPECT_TRUE(record.holds(placeOf(placeOf(rootPlace, "a"), "file"), status));
    EXPECT_FALSE(record.holds(placeOf(placeOf(rootPlace, "b"), "file"), status));
}

// Times in whole seconds are FAT's, and those of many servers.
TEST(LinuxMove, WaitsUntilAnotherChangeWouldShow)
{
    struct stat status {};
    const time_t now = time(nullptr);
    for (const auto& [seconds, nanoseconds, waits] :
         {std::tuple{now + 1, 0L, true}, {now - 3, 0L, false}, {now - 1, 250'000'000L, false}, {now + 60, 0L, false}}) {
        status.st_ctim = {seconds, nanoseconds};
        EXPECT_EQ(platform::posix::timeUntilNextStamp(status) > 0, waits) << seconds - now << " s " << nanoseconds;
    }
}

// A host may have timers.
TEST(LinuxMove, WaitsThroughSignals)
{
    const ScratchFolder scratch;
    const std::string answer = inChild([&] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        const itimerval often{{0, 100}, {0, 100}}; // microseconds, less than a tick of the clock that stamps files
        setitimer(ITIMER_REAL, &often, nullptr);
        std::string text;
        for (int attempts = 0; attempts < 5; ++attempts) {
            struct stat status {};
            const int file = open(scratch.text("file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            fchmod(file, 0600);
            fstat(file, &status);
            text += platform::posix::waitUntilTimestampSettles(file, status).outcome("move", "file").description();
            close(file);
        }
        return text;
    });
    EXPECT_EQ(answer, "");
}

// Whoever limits the size of files (setrlimit(2)) gets an error, not the end of the process.
TEST(LinuxCopy, OutlivesTheLimitOnFileSizes)
{
    const ScratchFolder scratch;
    scratch.write("file", std::string(100'000, 'f'));
    const std::string answer = inChild([&] {
        const rlimit limit{50'000, 50'000};
        setrlimit(RLIMIT_FSIZE, &limit);
        return copyIt(scratch / "file", scratch / "copy");
    });
    EXPECT_EQ(answer, "could not write " + scratch.text("copy") + ": File too large");
}

TEST(LinuxCopy, TellsErrorsInTheLanguageOfTheProcess)
{
    SKIP_WITHOUT("french");
    const ScratchFolder scratch;
    ASSERT_EQ(std::system(("localedef -i fr_FR -f UTF-8 '" + scratch.text("fr_FR.UTF-8") + "'").c_str()), 0);
    scratch.write("file", "f");
    const std::string answer = inChild([&] {
        setenv("LOCPATH", scratch.text().c_str(), 1);
        const bool isFrench = setlocale(LC_ALL, "fr_FR.UTF-8") != nullptr;
        const std::string inFrench = strerror(ENOENT); // the C library's words differ from version to version
        return isFrench && inFrench != "No such file or directory" &&
                       copyIt(scratch / "file", scratch / "none/copy") ==
                           "could not write " + scratch.text("none/copy") + ": " + inFrench
                   ? "in French"
                   : "not in French";
    });
    EXPECT_EQ(answer, "in French");
}

} // namespace
