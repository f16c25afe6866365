// Every operation is the system call of the same name on the folder that is shown. Paths come from libfuse as texts
// from the mount's root; onDisk() makes the folder's own of them.

#define FUSE_USE_VERSION 35

#include "faults/strange_file_system.h"

#include <fcntl.h>
#include <fuse.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace folidex::test {
namespace fs = std::filesystem;
namespace {

fs::path shown;
Strangeness strange;

// Looks the names up one by one where their letters' case doesn't matter.
std::string onDisk(const char* path)
{
    fs::path found = shown;
    for (const fs::path& name : fs::path(path).relative_path()) {
        fs::path next = found / name;
        std::error_code unreadable;
        for (const auto& entry : fs::directory_iterator(found, unreadable)) {
            if (strange.ignoresCase && strcasecmp(entry.path().filename().c_str(), name.c_str()) == 0) {
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

int examine(const char* path, struct stat* status, fuse_file_info*)
{
    const int result = answer(lstat(onDisk(path).c_str(), status));
    if (strange.unstableInodes) {
        status->st_ino = std::hash<std::string_view>()(path);
    }
    if (strange.oneNumber) {
        status->st_ino = status->st_nlink = 2;
    }
    if (strange.neverRests) {
        clock_gettime(CLOCK_REALTIME, &status->st_ctim);
    }
    return result;
}

int readFile(const char*, char* bytes, std::size_t size, off_t position, fuse_file_info* file)
{
    struct stat status {};
    if (strange.readsShort && fstat(descriptorOf(file), &status) == 0) {
        size = std::min(size, static_cast<std::size_t>(std::max<off_t>(status.st_size / 2 - position, 0)));
    }
    return answer(pread(descriptorOf(file), bytes, size, position));
}

int list(const char* path, void* list, fuse_fill_dir_t fill, off_t, fuse_file_info*, fuse_readdir_flags)
{
    int listed = 0;
    for (const auto& entry : fs::directory_iterator(onDisk(path))) {
        if (!strange.listsFew || ++listed <= 3) {
            fill(list, entry.path().filename().c_str(), nullptr, 0, fuse_fill_dir_flags{});
        }
    }
    return 0;
}

int renameItem(const char* from, const char* to, unsigned flags)
{
    return strange.noExclusiveRename && flags != 0
               ? -EINVAL
               : answer(renameat2(AT_FDCWD, onDisk(from).c_str(), AT_FDCWD, onDisk(to).c_str(), flags));
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
    config->use_ino = 1;
    config->hard_remove = strange.hidesOpenFiles ? 0 : 1; // ".fuse_hidden…" in place of what is open
    config->direct_io = strange.readsShort ? 1 : 0;
    config->negative_timeout = 0;
    config->entry_timeout = config->attr_timeout = strange.cachesNames ? 1000 : 0; // seconds
    return nullptr;
}

fuse_operations operations()
{
    using Path = const char*;
    using File = fuse_file_info*;
    fuse_operations all{};
    all.init = settle;
    all.getattr = examine;
    all.mkdir = [](Path path, mode_t mode) { return answer(mkdir(onDisk(path).c_str(), mode)); };
    all.unlink = [](Path path) { return answer(unlink(onDisk(path).c_str())); };
    all.rmdir = [](Path path) { return answer(rmdir(onDisk(path).c_str())); };
    all.rename = renameItem;
    all.link = [](Path from, Path to) {
        return strange.hardLinks ? answer(link(onDisk(from).c_str(), onDisk(to).c_str())) : -ENOSYS;
    };
    all.chmod = [](Path path, mode_t mode, File) { return answer(chmod(onDisk(path).c_str(), mode)); };
    all.truncate = [](Path path, off_t size, File) { return answer(truncate(onDisk(path).c_str(), size)); };
    all.utimens = [](Path path, const timespec* times, File) {
        return answer(utimensat(AT_FDCWD, onDisk(path).c_str(), times, AT_SYMLINK_NOFOLLOW));
    };
    all.open = [](Path path, File file) { return openFile(path, file, 0); };
    all.create = [](Path path, mode_t mode, File file) { return openFile(path, file, mode); };
    all.read = readFile;
    all.write = [](Path, const char* bytes, std::size_t size, off_t position, File file) {
        return answer(pwrite(descriptorOf(file), bytes, size, position));
    };
    all.flush = closeOnce;
    all.release = [](Path, File file) { return answer(close(descriptorOf(file))); };
    all.readdir = list;
    return all;
}

} // namespace

StrangeFileSystem::StrangeFileSystem(const fs::path& folder, const fs::path& mountPoint, Strangeness strangeness)
{
    shown = folder;
    strange = strangeness;
    const fuse_operations all = operations();
    std::string program = "strange_file_system";
    char* arguments = program.data();
    fuse_args options = FUSE_ARGS_INIT(1, &arguments);
    server_ = fuse_new(&options, &all, sizeof all, nullptr);
    if (server_ == nullptr || fuse_mount(server_, mountPoint.c_str()) != 0) {
        fuse_destroy(server_);
        throw std::runtime_error("no FUSE mount at " + mountPoint.native());
    }
    thread_ = std::thread([this] { fuse_loop(server_); });
}

StrangeFileSystem::~StrangeFileSystem()
{
    fuse_unmount(server_);
    thread_.join();
    fuse_destroy(server_);
}

} // namespace folidex::test
