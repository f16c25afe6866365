// Every operation is the system call of the same name on the folder that is shown. Paths come from libfuse as texts
// from the mount's root; onDisk() makes the folder's own of them.

#define FUSE_USE_VERSION 35

#include "faults/strange_file_system.h"

#include <dirent.h>
#include <fcntl.h>
#include <fuse.h>
#include <strings.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

// Of the process that serves; there is one file system in each.
fs::path shown;
Strangeness strange;

// Looks the names up one by one where their letters' case doesn't matter.
std::string onDisk(const char* path)
{
    if (!strange.ignoresCase) {
        return shown.string() + path;
    }
    fs::path found = shown;
    for (const fs::path& name : fs::path(path).relative_path()) {
        fs::path next = found / name;
        std::error_code unreadable;
        for (const auto& entry : fs::directory_iterator(found, unreadable)) {
            if (strcasecmp(entry.path().filename().c_str(), name.c_str()) == 0) {
                next = entry.path();
            }
        }
        found = next;
    }
    return found;
}

int answer(long result)
{
    return result == -1 ? -errno : static_cast<int>(result);
}

int descriptorOf(const fuse_file_info* file)
{
    return static_cast<int>(file->fh);
}

int openFile(const char* path, fuse_file_info* file, mode_t mode)
{
    const int opened = open(onDisk(path).c_str(), file->flags, mode);
    file->fh = static_cast<std::uint64_t>(opened);
    return opened == -1 ? -errno : 0;
}

int list(const char* path, void* list, fuse_fill_dir_t fill, off_t, fuse_file_info*, fuse_readdir_flags)
{
    DIR* const folder = opendir(onDisk(path).c_str());
    if (folder == nullptr) {
        return -errno;
    }
    while (const dirent* entry = readdir(folder)) {
        struct stat status {};
        status.st_ino = entry->d_ino;
        status.st_mode = DTTOIF(entry->d_type);
        fill(list, entry->d_name, &status, 0, fuse_fill_dir_flags{});
    }
    closedir(folder);
    return 0;
}

int renameItem(const char* from, const char* to, unsigned flags)
{
    if (strange.noExclusiveRename && flags != 0) {
        return -EINVAL;
    }
    return answer(renameat2(AT_FDCWD, onDisk(from).c_str(), AT_FDCWD, onDisk(to).c_str(), flags));
}

// One for each close(2) of a descriptor. Where it fails what was written is lost, as with a quota or an upload that
// only the server knows of. The kernel doesn't say here how the file was opened (struct fuse_flush_in).
int closeOnce(const char*, fuse_file_info* file)
{
    if (!strange.closeFails || (fcntl(descriptorOf(file), F_GETFL) & O_ACCMODE) == O_RDONLY) {
        return 0;
    }
    return ftruncate(descriptorOf(file), 0) == 0 ? -ENOSPC : -errno;
}

void* settle(fuse_conn_info*, fuse_config* config)
{
    config->use_ino = strange.unstableInodes ? 0 : 1; // libfuse's own numbers are by path
    config->entry_timeout = config->attr_timeout = config->negative_timeout = 0;
    return nullptr;
}

fuse_operations operations()
{
    using Path = const char*;
    using File = fuse_file_info*;
    fuse_operations all{};
    all.init = settle;
    all.getattr = [](Path path, struct stat* status, File) { return answer(lstat(onDisk(path).c_str(), status)); };
    all.readlink = [](Path path, char* text, std::size_t size) {
        const ssize_t length = readlink(onDisk(path).c_str(), text, size - 1);
        text[length < 0 ? 0 : length] = '\0';
        return length < 0 ? -errno : 0;
    };
    all.mknod = [](Path path, mode_t mode, dev_t device) { return answer(mknod(onDisk(path).c_str(), mode, device)); };
    all.mkdir = [](Path path, mode_t mode) { return answer(mkdir(onDisk(path).c_str(), mode)); };
    all.unlink = [](Path path) { return answer(unlink(onDisk(path).c_str())); };
    all.rmdir = [](Path path) { return answer(rmdir(onDisk(path).c_str())); };
    all.symlink = [](Path text, Path path) { return answer(symlink(text, onDisk(path).c_str())); };
    all.rename = renameItem;
    all.link = [](Path from, Path to) {
        return strange.noHardLinks ? -EPERM : answer(link(onDisk(from).c_str(), onDisk(to).c_str()));
    };
    all.chmod = [](Path path, mode_t mode, File) { return answer(chmod(onDisk(path).c_str(), mode)); };
    all.chown = [](Path path, uid_t user, gid_t group, File) {
        return answer(lchown(onDisk(path).c_str(), user, group));
    };
    all.truncate = [](Path path, off_t size, File) { return answer(truncate(onDisk(path).c_str(), size)); };
    all.utimens = [](Path path, const timespec* times, File) {
        return answer(utimensat(AT_FDCWD, onDisk(path).c_str(), times, AT_SYMLINK_NOFOLLOW));
    };
    all.open = [](Path path, File file) { return openFile(path, file, 0); };
    all.create = [](Path path, mode_t mode, File file) { return openFile(path, file, mode); };
    all.read = [](Path, char* bytes, std::size_t size, off_t position, File file) {
        return answer(pread(descriptorOf(file), bytes, size, position));
    };
    all.write = [](Path, const char* bytes, std::size_t size, off_t position, File file) {
        return answer(pwrite(descriptorOf(file), bytes, size, position));
    };
    all.flush = closeOnce;
    all.release = [](Path, File file) { return answer(close(descriptorOf(file))); };
    all.readdir = list;
    all.statfs = [](Path path, struct statvfs* space) { return answer(statvfs(onDisk(path).c_str(), space)); };
    return all;
}

// In the child process: serves until it is unmounted. A byte in the pipe says that it is mounted.
[[noreturn]] void serve(const std::string& mountPoint, int ready)
{
    const fuse_operations all = operations();
    std::string program = "strange_file_system";
    std::array<char*, 1> arguments{program.data()};
    fuse_args options = FUSE_ARGS_INIT(1, arguments.data());
    fuse* const server = fuse_new(&options, &all, sizeof all, nullptr);
    if (server == nullptr || fuse_mount(server, mountPoint.c_str()) != 0 || write(ready, "+", 1) != 1) {
        _exit(1);
    }
    close(ready);
    _exit(fuse_loop(server));
}

} // namespace

StrangeFileSystem::StrangeFileSystem(const fs::path& folder, const fs::path& mountPoint, Strangeness strangeness)
    : mountPoint_(mountPoint)
{
    std::array<int, 2> ready{};
    if (access("/dev/fuse", R_OK | W_OK) != 0 || geteuid() != 0 || pipe2(ready.data(), O_CLOEXEC) != 0) {
        problem_ = "needs /dev/fuse and root's rights";
        return;
    }
    server_ = fork();
    if (server_ == 0) {
        shown = folder;
        strange = strangeness;
        umask(0); // the kernel has applied the caller's
        serve(mountPoint_, ready[1]);
    }
    close(ready[1]);
    char mark = 0;
    if (read(ready[0], &mark, 1) != 1) {
        problem_ = "can't mount a file system in user space here";
    }
    close(ready[0]);
}

StrangeFileSystem::~StrangeFileSystem()
{
    if (server_ > 0) {
        umount2(mountPoint_.c_str(), MNT_DETACH);
        kill(server_, SIGTERM); // what is mounted is none of its own any more
        waitpid(server_, nullptr, 0);
    }
}

} // namespace folidex::test
