// What the Linux implementation promises beyond the common contract: metadata, other file systems and missing system
// calls, depth, mounts, late comers, and what a kill leaves.

#include "platform/copy_record.h"
#include "platform/file_manager.h"
#include "platform/linux/remove_tree.h"
#include "platform/linux/staged_copy.h"
#include "platform/linux/tree_walk.h"
#include "platform/unicode.h"
#include "support/child_process.h"
#include "support/scratch_folder.h"
#include "support/tree_snapshot.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/fs.h>
#include <linux/seccomp.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using folidex::test::becomeOrdinaryUser;
using folidex::test::inChild;
using folidex::test::isRoot;
using folidex::test::leaveMountNamespace;
using folidex::test::ScratchFolder;
using folidex::test::snapshot;
using platform::Outcome;

#define SKIP_UNLESS_ROOT(why)                                                                                          \
    if (!isRoot())                                                                                                     \
    GTEST_SKIP() << why " takes root's rights"

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
    if (isRoot()) {
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

// A folder's default list is for what is made in it, not for copies, which bring their own rights.
TEST(LinuxCopy, InheritsNoAccessList)
{
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
    SKIP_UNLESS_ROOT("a file of another owner");
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

TEST(LinuxCopy, RefusesSocketsByName)
{
    const ScratchFolder scratch;
    scratch.write("tree/file", "f");
    ASSERT_EQ(mknod((scratch / "tree/socket").c_str(), S_IFSOCK | 0600, 0), 0);
    const std::string expected = "could not copy " + scratch.text("tree/socket") + ": a socket can't be copied";
    EXPECT_EQ(copyIt(scratch / "tree", scratch / "copy"), expected);
    EXPECT_EQ(copyIt(scratch / "tree/socket", scratch / "copy"), expected);
    EXPECT_EQ(scratch.list(), std::vector<std::string>{"tree"});
}

TEST(LinuxCopy, ReadsFilesThatMakeUpTheirContent)
{
    const ScratchFolder scratch;
    EXPECT_EQ(copyIt("/proc/version", scratch / "version"), "");
    EXPECT_EQ(copyIt("/sys/kernel/mm/transparent_hugepage/enabled", scratch / "setting"), "");
    EXPECT_NE(scratch.read("version").find("Linux version"), std::string::npos);
    EXPECT_LT(scratch.read("setting").size(), 200U) << "the file says 4096";
    EXPECT_NE(scratch.read("setting").find("never"), std::string::npos);
}

// Makes one system call answer `error`, where `flag` (0: always) is set in its last but `flagArgument` argument, for
// this process from here on.
void denySystemCall(long number, int error, unsigned flagArgument = 0, std::uint32_t flag = 0)
{
    const auto value = static_cast<std::uint32_t>(number);
    const auto argument =
        static_cast<std::uint32_t>(offsetof(seccomp_data, args) + flagArgument * sizeof(std::uint64_t));
    const std::uint32_t answer = SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error);
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 4),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, argument),
        BPF_STMT(BPF_ALU | BPF_AND | BPF_K, flag),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, flag, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, answer),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program{sizeof filter / sizeof *filter, filter};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        throw std::runtime_error("no system call filter");
    }
}

// File systems and kernels differ in what they offer; whatever is missing, the outcome is the same.
TEST(LinuxCopyAndMove, DoWithoutWhatAFileSystemLacks)
{
    constexpr unsigned tmpfileBit = O_TMPFILE & ~O_DIRECTORY;
    struct Lack {
        const char* what;
        std::vector<std::function<void()>> deny;
    };
    const std::function<void()> noUnnamedFiles = [] { denySystemCall(SYS_openat, EOPNOTSUPP, 2, tmpfileBit); };
    const std::function<void()> noExclusiveRename = [] { denySystemCall(SYS_renameat2, EINVAL); };
    const std::function<void()> noHardLinks = [] { denySystemCall(SYS_linkat, EPERM); };
    const Lack lacks[] = {
        {"unnamed files", {noUnnamedFiles}},
        {"unnamed files, exclusive rename", {noUnnamedFiles, noExclusiveRename}},
        {"unnamed files, exclusive rename, hard links", {noUnnamedFiles, noExclusiveRename, noHardLinks}},
        {"names for unnamed files", {noHardLinks}},
        {"leases", {[] { denySystemCall(SYS_fcntl, EINVAL, 1, F_SETOWN_EX); }}},
        {"kernel copies", {[] { denySystemCall(SYS_copy_file_range, EXDEV); }}},
        {"hole seeking", {[] { denySystemCall(SYS_lseek, EINVAL); }}},
    };
    for (const Lack& lack : lacks) {
        const ScratchFolder scratch;
        scratch.write("tree/sub/file", std::string(1'000'000, 'f'));
        scratch.write("existing", "e");
        scratch.symlink("file", "tree/link");
        fs::resize_file(scratch / "tree/sub/file", 2'000'000);
        const std::string answers = inChild([&] {
            for (const auto& deny : lack.deny) {
                deny();
            }
            std::string text = copyIt(scratch / "tree/sub/file", scratch / "file");
            text += copyIt(scratch / "tree/link", scratch / "link");
            text += copyIt(scratch / "tree", scratch / "copy");
            text += moveIt(scratch / "copy", scratch / "moved");
            text += moveIt(scratch / "file", scratch / "moved file");
            text += moveIt(scratch / "moved file", scratch / "existing").empty() ? "replaced" : "";
            text += moveIt(scratch / "tree", scratch / "moved").empty() ? "replaced" : "";
            text += copyIt(scratch / "moved file", scratch / "existing").empty() ? "replaced" : "";
            return text;
        });
        EXPECT_EQ(answers, "") << lack.what;
        EXPECT_EQ(snapshot(scratch / "moved"), snapshot(scratch / "tree")) << lack.what;
        EXPECT_EQ(snapshot(scratch / "moved file"), snapshot(scratch / "tree/sub/file")) << lack.what;
        EXPECT_EQ(scratch.read("existing"), "e");
        const std::vector<std::string> left{"existing", "link", "moved", "moved file", "tree"};
        EXPECT_EQ(scratch.list(), left) << lack.what;
    }
}

// Mounts `type` at the folder, for this process alone, and answers what `body` does.
template <typename Body>
std::string onVolume(const fs::path& folder, const char* type, const char* options, Body&& body)
{
    return inChild([&] {
        leaveMountNamespace();
        if (mount("folidex-test", folder.c_str(), type, 0, options) != 0) {
            return std::string("mount: ") + strerror(errno);
        }
        return std::string(body());
    });
}

TEST(LinuxMove, CrossesFileSystems)
{
    SKIP_UNLESS_ROOT("a second file system");
    const ScratchFolder scratch;
    makeRichTree(scratch);
    scratch.write("tree/deep/er/file", std::string(1'000'000, 'd'));
    scratch.makeFolder("volume");
    const auto before = snapshot(scratch / "tree");
    const std::string answer = onVolume(scratch / "volume", "tmpfs", "size=16m", [&] {
        std::string text = moveIt(scratch / "tree", scratch / "volume/tree");
        text += snapshot(scratch / "volume/tree") == before ? "" : "the copy differs";
        text += fs::exists(scratch / "tree") ? "the source is left" : "";
        for (const char* name : {"set-id", "link", "fifo", "device"}) {
            text += moveIt(scratch / "volume/tree" / name, scratch / "volume" / name); // within
            text += moveIt(scratch / "volume" / name, scratch / name);                 // and across
            text += fs::exists(fs::symlink_status(scratch / "volume" / name)) ? " is left" : "";
        }
        return text + moveIt(scratch / "volume/tree", scratch / "back");
    });
    EXPECT_EQ(answer, "");
    EXPECT_EQ(snapshot(scratch / "set-id").at(""), before.at("/set-id"));
    EXPECT_EQ(snapshot(scratch / "device").at(""), before.at("/device"));
    EXPECT_EQ(snapshot(scratch / "back").at("/list"), before.at("/list"));
    EXPECT_EQ(scratch.list().size(), 6U) << "back, the four items, volume";
}

TEST(LinuxMove, RefusesBeforehandWhatItCouldNotRemove)
{
    SKIP_UNLESS_ROOT("a second file system");
    const ScratchFolder scratch;
    scratch.write("tree/a/file", "f");
    scratch.write("tree/sub/locked/file", "f");
    scratch.makeFolder("tree/sub/mounted");
    scratch.makeFolder("volume");
    fs::permissions(scratch.path(), fs::perms::all);
    const auto before = snapshot(scratch / "tree");
    const std::string answer = onVolume(scratch / "volume", "tmpfs", "mode=0777", [&] {
        if (mount("folidex-test", (scratch / "tree/sub/mounted").c_str(), "tmpfs", 0, nullptr) != 0) {
            return std::string("no mount");
        }
        std::string text = moveIt(scratch / "tree", scratch / "volume/tree") + "\n";
        umount((scratch / "tree/sub/mounted").c_str());
        becomeOrdinaryUser();
        text += moveIt(scratch / "tree/a/file", scratch / "volume/file") + "\n";
        return text + (fs::is_empty(scratch / "volume") ? "" : "something is left");
    });
    EXPECT_EQ(answer, "could not move " + scratch.text("tree/sub/mounted") + ": Device or resource busy\n" +
                          "could not move " + scratch.text("tree/a/file") + ": Permission denied\n");
    EXPECT_EQ(snapshot(scratch / "tree"), before);
}

// A mode's group bits are the mask of an access list; without the list they would give the owning group too much.
TEST(LinuxCopy, GivesNobodyMoreWhereAccessListsCannotBeKept)
{
    SKIP_UNLESS_ROOT("a second file system");
    const ScratchFolder scratch;
    makeRichTree(scratch);
    scratch.makeFolder("volume");
    const std::string answer = onVolume(scratch / "volume", "ramfs", "mode=0755", [&] {
        std::string text = copyIt(scratch / "tree", scratch / "volume/tree");
        struct stat status {};
        stat((scratch / "volume/tree/list").c_str(), &status);
        return text + std::to_string(status.st_mode & 07777U);
    });
    EXPECT_EQ(answer, std::to_string(0600U));
}

TEST(LinuxRemove, NeverEmptiesWhatIsMountedInside)
{
    SKIP_UNLESS_ROOT("a mount");
    const ScratchFolder scratch;
    scratch.makeFolder("tree/sub/mounted");
    const std::string answer = onVolume(scratch / "tree/sub/mounted", "tmpfs", nullptr, [&] {
        scratch.write("tree/sub/mounted/kept", "k");
        const std::string text = platform::removeItem(scratch.text16("tree")).description();
        return text + (scratch.exists("tree/sub/mounted/kept") ? "" : " and it is empty");
    });
    EXPECT_EQ(answer, "could not remove " + scratch.text("tree/sub/mounted") + ": Device or resource busy");
}

// Reached through a mount, a sub-folder has no ancestor that gives it away.
TEST(LinuxCopy, StopsWhenItMeetsItsOwnTarget)
{
    SKIP_UNLESS_ROOT("a mount");
    const ScratchFolder scratch;
    scratch.write("tree/file", "f");
    scratch.makeFolder("tree/sub");
    scratch.makeFolder("elsewhere");
    const std::string answer = inChild([&] {
        leaveMountNamespace();
        mount((scratch / "tree/sub").c_str(), (scratch / "elsewhere").c_str(), nullptr, MS_BIND, nullptr);
        return copyIt(scratch / "tree", scratch / "elsewhere/copy");
    });
    EXPECT_EQ(answer, "could not copy " + scratch.text("tree/sub") + ": a folder can't be put into itself");
    EXPECT_TRUE(fs::is_empty(scratch / "tree/sub"));
}

// Whether the slow proofs are asked for.
bool isFull()
{
    return std::getenv("FOLIDEX_FULL") != nullptr;
}

// Descends by single names, for no path is long enough. Answers how deep the chain of "d" below the folder is.
int depthOf(const fs::path& folder)
{
    int at = open(folder.c_str(), O_PATH | O_DIRECTORY);
    for (int level = 0;; ++level) {
        const int next = openat(at, "d", O_PATH | O_DIRECTORY);
        close(at);
        if (next < 0) {
            return level;
        }
        at = next;
    }
}

TEST(LinuxTrees, MayBeDeeperThanPathsAndDescriptors)
{
    // In memory where that can be had: a journal makes thousands of nested folders slow, whoever removes them.
    const char* before = std::getenv("TMPDIR");
    const std::string usual = before == nullptr ? "/tmp" : before;
    setenv("TMPDIR", access("/dev/shm", W_OK) == 0 ? "/dev/shm" : usual.c_str(), 1);
    const ScratchFolder scratch;
    setenv("TMPDIR", usual.c_str(), 1);
    constexpr int depth = 5000;
    const std::string answer = inChild([&] {
        scratch.makeFolder("deep");
        std::uint64_t expected = 4;
        const auto sizeOf = [](int folder) {
            struct stat status {};
            return fstat(folder, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
        };
        int at = open((scratch / "deep").c_str(), O_PATH | O_DIRECTORY);
        for (int level = 0; level < depth; ++level) {
            if (mkdirat(at, "d", 0755) != 0) {
                return std::string("no folder");
            }
            expected += level > 0 ? sizeOf(at) : 0;
            const int next = openat(at, "d", O_PATH | O_DIRECTORY);
            close(at);
            at = next;
        }
        const int file = openat(at, "file", O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        std::string text = write(file, "1234", 4) == 4 ? "" : "no file";
        expected += sizeOf(at);
        close(at);
        const auto limit = static_cast<rlim_t>(file) + 40; // as many free ones
        close(file);
        const rlimit few{limit, limit};
        setrlimit(RLIMIT_NOFILE, &few);
        text += copyIt(scratch / "deep", scratch / "copy");
        text += depthOf(scratch / "copy") == depth ? "" : "the copy isn't as deep";
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
    const int width = isFull() ? 1'000'000 : 30'000;
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
        return text + (growth > 8192 ? std::to_string(growth) + " KiB" : "");
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
    using platform::linux_os::Descriptor;
    platform::linux_os::TreeWalk walk(Descriptor(open(scratch.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
    for (int level = 0; level < depth; ++level) {
        ASSERT_EQ(walk.enter(std::to_string(level)), 0);
    }
    EXPECT_EQ(walk.path(), "/" + path);
    fs::rename(scratch / "0/1/2/3/4", scratch / "elsewhere/4");
    int error = 0;
    while (walk.leave(error)) {
    }
    EXPECT_EQ(error, ESTALE);
    EXPECT_EQ(walk.path(), "/0/1/2/3/4");
}

// A copy between its two halves: others act here between the look at the target and the copy's appearance there, and
// between the copy and the removal of its source.
struct Halves {
    Halves(const fs::path& source, const fs::path& target) : copy(from, to, {.isMove = true})
    {
        const bool isFound = platform::linux_os::locate("move", utf16(source), from).ok() &&
                             platform::linux_os::locate("move", utf16(target), to).ok();
        EXPECT_TRUE(isFound && copy.build().ok());
    }
    std::string publish()
    {
        const Outcome outcome = copy.publish();
        copy.keep();
        return outcome.description();
    }
    std::string removeSource()
    {
        return platform::linux_os::removeCopied(from.folder.get(), from.path.name.c_str(), from.path.text,
                                                copy.copied())
            .description();
    }

    platform::linux_os::Location from;
    platform::linux_os::Location to;
    platform::linux_os::StagedCopy copy;
};

TEST(LinuxCopy, NeverReplacesWhatAppearsAtTheLastMoment)
{
    for (const bool lacksEverything : {false, true}) {
        const ScratchFolder scratch;
        scratch.write("file", "f");
        scratch.write("folder/inner", "i");
        scratch.symlink("file", "link");
        const std::string answer = inChild([&] {
            if (lacksEverything) {
                denySystemCall(SYS_renameat2, EINVAL);
                denySystemCall(SYS_linkat, EPERM);
            }
            std::string text;
            for (const char* name : {"file", "folder", "link"}) {
                Halves halves(scratch / name, scratch / "target");
                scratch.write("target", "late");
                text += halves.publish() == "could not write " + scratch.text("target") + ": File exists" ? "" : name;
                text += scratch.read("target") == "late" ? "" : " replaced";
                fs::remove(scratch / "target");
            }
            return text;
        });
        EXPECT_EQ(answer, "");
        EXPECT_EQ(scratch.list(), (std::vector<std::string>{"file", "folder", "link"}));
    }
}

TEST(LinuxMove, RemovesNothingButWhatWasCopied)
{
    const ScratchFolder scratch;
    const fs::path at = scratch / "tree/sub";
    int held = -1;
    struct Case {
        std::function<void()> act;
        const char* changed; // the entry that the failure names
    };
    const timespec sameTimes[] = {{1000, 0}, {1000, 0}};
    const auto rewrite = [&] { // same size, same times but for the one that nobody can set
        scratch.write(at / "file", "text");
        utimensat(AT_FDCWD, (at / "file").c_str(), sameTimes, 0);
    };
    const Case cases[] = {
        {[&] { scratch.write(at / "file", "longer"); }, "/sub/file"},
        {rewrite, "/sub/file"},
        {[&] { scratch.write(at / "new"); }, "/sub/new"},
        {[&] { scratch.makeFolder(at / "empty"); }, "/sub/empty"},
        {[&] { fs::create_symlink("elsewhere", at / "late link"); }, "/sub/late link"},
        {[&] { fs::remove(at / "file"), fs::create_symlink("other", at / "file"); }, "/sub/file"},
        {[&] { fs::rename(at / "other", at / "file"); }, "/sub/file"},
        {[&] { held = open((at / "file").c_str(), O_WRONLY | O_CLOEXEC); }, "/sub/file"},
        {[] {}, nullptr},
    };
    for (const Case& c : cases) {
        scratch.write(at / "file", "text");
        scratch.write(at / "other", "text");
        scratch.hardLink(at / "other", at / "../twin"); // each removal changes the other's times
        utimensat(AT_FDCWD, (at / "file").c_str(), sameTimes, 0);
        Halves halves(scratch / "tree", scratch / "copy");
        ASSERT_EQ(halves.publish(), "");
        c.act();
        const auto before = snapshot(at);
        const std::string expected = c.changed == nullptr ? ""
                                                          : "could not move " + scratch.text("tree") + c.changed +
                                                                ": it was changed while it was being moved";
        EXPECT_EQ(halves.removeSource(), expected);
        if (c.changed != nullptr) {
            EXPECT_EQ(snapshot(scratch / "tree").at(c.changed).content,
                      before.at(std::string(c.changed).substr(4)).content);
        }
        EXPECT_EQ(scratch.exists("tree"), c.changed != nullptr);
        close(std::exchange(held, -1));
        fs::remove_all(scratch / "tree");
        fs::remove_all(scratch / "copy");
    }
}

TEST(LinuxMove, LeavesASourceThatIsBeingWritten)
{
    SKIP_UNLESS_ROOT("a second file system");
    const ScratchFolder scratch;
    scratch.write("tree/file", "f");
    scratch.makeFolder("volume");
    const std::string answer = onVolume(scratch / "volume", "tmpfs", nullptr, [&] {
        const int held = open((scratch / "tree/file").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        std::string text = moveIt(scratch / "tree", scratch / "volume/tree") + "\n";
        text += moveIt(scratch / "tree/file", scratch / "volume/file") + "\n";
        close(held);
        return text + (fs::is_empty(scratch / "volume") ? "" : "something is left");
    });
    const std::string each = "could not move " + scratch.text("tree/file") + ": the file is open for writing\n";
    EXPECT_EQ(answer, each + each);
}

// Times in whole seconds are FAT's, and those of many servers.
TEST(LinuxMove, WaitsUntilAnotherChangeWouldShow)
{
    struct stat status {};
    const time_t now = time(nullptr);
    for (const auto& [seconds, nanoseconds, waits] :
         {std::tuple{now + 1, 0L, true}, {now - 3, 0L, false}, {now - 1, 250'000'000L, false}, {now + 60, 0L, false}}) {
        status.st_ctim = {seconds, nanoseconds};
        EXPECT_EQ(platform::timeUntilNextStamp(status) > 0, waits) << seconds - now << " s " << nanoseconds;
    }
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
    const ScratchFolder scratch;
    const std::string make = "localedef -i fr_FR -f UTF-8 '" + scratch.text("fr_FR.UTF-8") + "' 2>/dev/null";
    if (access("/usr/share/locale/fr/LC_MESSAGES/libc.mo", R_OK) != 0 || std::system(make.c_str()) != 0) {
        GTEST_SKIP() << "needs the C library's messages and locales (libc-l10n, locales)";
    }
    scratch.write("file", "f");
    const std::string answer = inChild([&] {
        setenv("LOCPATH", scratch.text().c_str(), 1);
        return setlocale(LC_ALL, "fr_FR.UTF-8") == nullptr ? "no locale"
                                                           : copyIt(scratch / "file", scratch / "none/copy");
    });
    EXPECT_EQ(answer, "could not write " + scratch.text("none/copy") + ": Aucun fichier ou dossier de ce type");
}

// Where file systems can, copies share their data with the source. The kernel is asked for 1 GiB at a time where it
// can't be asked for the whole file.
TEST(LinuxCopy, SharesDataOnXfsAndGoesOnBehindAGibibyte)
{
    SKIP_UNLESS_ROOT("a mount");
    const ScratchFolder scratch;
    const std::string image = scratch.write("image");
    const fs::path volume = scratch.makeFolder("volume");
    fs::resize_file(image, std::uintmax_t{3} << 30);
    if (std::system(("mkfs.xfs -q -m reflink=1 '" + image + "' 2>/dev/null").c_str()) != 0) {
        GTEST_SKIP() << "needs mkfs.xfs (xfsprogs)";
    }
    constexpr off_t size = (off_t{1} << 30) + 5;
    const std::string answer = inChild([&] {
        leaveMountNamespace();
        if (std::system(("mount -o loop '" + image + "' '" + volume.native() + "'").c_str()) != 0) {
            return std::string("no mount");
        }
        const int file = open((volume / "file").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        std::string text = fallocate(file, 0, 0, size) == 0 && pwrite(file, "end", 3, size - 3) == 3 ? "" : "no file";
        close(file);
        const auto before = fs::space(volume).free;
        for (const char* name : {"clone", "copy"}) {
            text += copyIt(volume / "file", volume / name);
            char end[4] = {};
            const int copy = open((volume / name).c_str(), O_RDONLY | O_CLOEXEC);
            text += fs::file_size(volume / name) == size && pread(copy, end, 3, size - 3) == 3 ? end : "too short";
            close(copy);
            denySystemCall(SYS_ioctl, EOPNOTSUPP, 1, FICLONE);
        }
        return text + (before - fs::space(volume).free < 8 << 20 ? "" : "; the copies take space of their own");
    });
    EXPECT_EQ(answer, "endend");
}

// Kills copies at growing distances from their start, and looks at what the target's name shows afterwards.
void killCopies(const fs::path& source, const ScratchFolder& target, std::chrono::milliseconds duration)
{
    using Clock = std::chrono::steady_clock;
    const auto expected = snapshot(source);
    const auto end = Clock::now() + duration;
    constexpr std::chrono::seconds patience(60); // where other work slows the copy down
    int whole = 0;
    for (std::chrono::microseconds delay{200}; Clock::now() < end || (whole == 0 && delay < patience);
         delay = delay * 13 / 10) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(copyIt(source, target / "copy").empty() ? 0 : 1);
        }
        std::this_thread::sleep_for(delay);
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        if (target.exists("copy")) {
            ASSERT_EQ(snapshot(target / "copy"), expected);
            ++whole;
            delay = std::chrono::microseconds(200);
        } else {
            ASSERT_TRUE(WIFSIGNALED(status)) << "the copy failed";
        }
        if (fs::is_regular_file(source)) {
            ASSERT_EQ(target.list().size(), target.exists("copy") ? 1U : 0U) << "an unnamed file leaves nothing";
        }
        for (const std::string& name : target.list()) {
            ASSERT_TRUE(name == "copy" || name.starts_with(".folidex-")) << name;
            std::error_code ignored; // there may be no such folder
            fs::permissions(target / name / "3", fs::perms::owner_all, ignored);
            ASSERT_TRUE(platform::removeItem(target.text16(name)).ok());
        }
    }
    EXPECT_GT(whole, 0) << "no copy was given enough time";
}

TEST(LinuxCopy, AppearsWholeOrNotAtAllWhenKilled)
{
    const bool full = isFull();
    const ScratchFolder source;
    const ScratchFolder target;
    const fs::path file = source.write("file", std::string(full ? 256 << 20 : 32 << 20, 'x'));
    for (int i = 0; i < 300; ++i) {
        source.write("tree/" + std::to_string(i % 7) + "/" + std::to_string(i), std::string(1000, 'y'));
    }
    source.setMode("tree/3", 0500);
    const std::chrono::milliseconds duration(full ? 40000 : 2500);
    killCopies(file, target, duration);
    killCopies(source / "tree", target, duration);
}

} // namespace
