// What the Linux implementation promises beyond the common contract: metadata, other file systems and missing system
// calls, depth, mounts, and what a kill leaves.

#include "platform/file_manager.h"
#include "support/tree_snapshot.h"
#include "platform/unicode.h"
#include "support/child_process.h"
#include "support/scratch_folder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/filter.h>
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

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
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

std::string compare(const fs::path& item, const std::map<std::string, std::string>& expected)
{
    std::string differences;
    const auto found = snapshot(item);
    for (const auto& [name, text] : expected) {
        const auto other = found.find(name);
        if (other == found.end() || other->second != text) {
            differences += name + ": " + text + " became " + (other == found.end() ? "nothing" : other->second) + "\n";
        }
    }
    return differences + (found.size() > expected.size() ? "more than expected" : "");
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
        text += compare(scratch / "volume/tree", before);
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

TEST(LinuxMove, LeavesSourceAndTargetAsTheyWereWhenTheTargetIsFull)
{
    SKIP_UNLESS_ROOT("a small file system");
    const ScratchFolder scratch;
    scratch.write("tree/sub/small", "s");
    scratch.write("tree/zlarge", std::string(3'000'000, 'l'));
    scratch.makeFolder("volume");
    const auto before = snapshot(scratch / "tree");
    const std::string answer = onVolume(scratch / "volume", "tmpfs", "size=2m", [&] {
        std::string text;
        for (const auto transfer : {copyIt, moveIt}) {
            text += transfer(scratch / "tree", scratch / "volume/tree") + "\n";
            text += transfer(scratch / "tree/zlarge", scratch / "volume/large") + "\n";
            text += fs::is_empty(scratch / "volume") ? "" : "something is left\n";
        }
        return text;
    });
    const std::string each = "could not write " + scratch.text("volume/tree/zlarge") + ": No space left on device\n" +
                             "could not write " + scratch.text("volume/large") + ": No space left on device\n";
    EXPECT_EQ(answer, each + each);
    EXPECT_EQ(snapshot(scratch / "tree"), before);
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
        const rlimit few{100, 100};
        setrlimit(RLIMIT_NOFILE, &few);
        scratch.makeFolder("deep");
        int at = open((scratch / "deep").c_str(), O_PATH | O_DIRECTORY);
        for (int level = 0; level < depth; ++level) {
            if (mkdirat(at, "d", 0755) != 0) {
                return std::string("no folder");
            }
            const int next = openat(at, "d", O_PATH | O_DIRECTORY);
            close(at);
            at = next;
        }
        close(openat(at, "file", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        close(at);
        std::string text = copyIt(scratch / "deep", scratch / "copy");
        text += depthOf(scratch / "copy") == depth ? "" : "the copy isn't as deep";
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

// Somebody exchanges a folder of the tree for a link that leads out of it, again and again.
TEST(LinuxTrees, AreNeverLeftThroughALinkThatAppears)
{
    const ScratchFolder scratch;
    scratch.write("outside/kept", "k");
    scratch.symlink(scratch / "outside", "lure");
    std::atomic<bool> stop = false;
    std::thread exchanger([&] {
        while (!stop) {
            renameat2(AT_FDCWD, (scratch / "tree/sub").c_str(), AT_FDCWD, (scratch / "lure").c_str(), 2 /* exchange */);
        }
    });
    for (int round = 0; round < 150; ++round) {
        scratch.write("tree/sub/inner", "i");
        static_cast<void>(copyIt(scratch / "tree", scratch / "copy"));
        EXPECT_FALSE(fs::exists(scratch / "copy/sub/kept") && !fs::is_symlink(scratch / "copy/sub"));
        static_cast<void>(platform::removeItem(scratch.text16("tree")));
        static_cast<void>(platform::removeItem(scratch.text16("copy")));
        ASSERT_TRUE(scratch.exists("outside/kept"));
    }
    stop = true;
    exchanger.join();
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
