#include "bench/floor.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>

namespace folidex::bench::floor {
namespace {

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

int checked(int result, const char* what)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

// Calls visit(name, type) for each entry of the open folder.
template <std::size_t bufferSize, typename Visit>
void forEachEntry(int folder, Visit&& visit)
{
    const auto buffer = std::make_unique_for_overwrite<std::array<char, bufferSize>>();
    for (;;) {
        const ssize_t bytes = getdents64(folder, buffer->data(), bufferSize);
        if (bytes <= 0) {
            checked(static_cast<int>(bytes), "getdents64");
            return;
        }
        for (ssize_t position = 0; position < bytes;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer->data() + position);
            position += entry->d_reclen;
            const std::string_view name(entry->d_name);
            if (name != "." && name != "..") {
                visit(entry->d_name, entry->d_type);
            }
        }
    }
}

constexpr std::size_t wideBuffer = std::size_t{256} * 1024;
constexpr std::size_t deepBuffer = std::size_t{32} * 1024;

std::uint64_t sumSizes(int folder)
{
    std::uint64_t bytes = 0;
    forEachEntry<deepBuffer>(folder, [&](const char* name, unsigned char type) {
        struct statx status;
        if (statx(folder, name, AT_NO_AUTOMOUNT, STATX_SIZE, &status) == 0) {
            bytes += status.stx_size;
        }
        if (type == DT_DIR) {
            const int below = checked(openat(folder, name, folderFlags), name);
            bytes += sumSizes(below);
            close(below);
        }
    });
    return bytes;
}

void copyFile(int sourceFolder, int targetFolder, const char* source, const char* target)
{
    const int from = checked(openat(sourceFolder, source, O_RDONLY | O_CLOEXEC), source);
    struct stat status;
    checked(fstat(from, &status), source);
    const int to =
        checked(openat(targetFolder, target, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, status.st_mode & 07777), target);
    for (off_t rest = status.st_size; rest > 0;) {
        const ssize_t copied = copy_file_range(from, nullptr, to, nullptr, static_cast<std::size_t>(rest), 0);
        if (copied <= 0) {
            throw std::system_error(copied == 0 ? EIO : errno, std::generic_category(), "copy_file_range");
        }
        rest -= copied;
    }
    close(to);
    close(from);
}

void copyTree(int source, int target)
{
    forEachEntry<deepBuffer>(source, [&](const char* name, unsigned char type) {
        if (type != DT_DIR) {
            copyFile(source, target, name, name);
            return;
        }
        checked(mkdirat(target, name, 0777), name);
        const int from = checked(openat(source, name, folderFlags), name);
        const int to = checked(openat(target, name, folderFlags), name);
        copyTree(from, to);
        close(to);
        close(from);
    });
}

void removeTree(int folder)
{
    forEachEntry<deepBuffer>(folder, [&](const char* name, unsigned char type) {
        if (type == DT_DIR) {
            const int below = checked(openat(folder, name, folderFlags), name);
            removeTree(below);
            close(below);
        }
        checked(unlinkat(folder, name, type == DT_DIR ? AT_REMOVEDIR : 0), name);
    });
}

} // namespace

std::uint64_t countFiles(const std::string& folder)
{
    const int descriptor = checked(open(folder.c_str(), folderFlags), folder.c_str());
    std::uint64_t files = 0;
    forEachEntry<wideBuffer>(descriptor, [&files](const char*, unsigned char type) { files += type != DT_DIR; });
    close(descriptor);
    return files;
}

std::uint64_t sumSizes(const std::string& folder)
{
    const int descriptor = checked(open(folder.c_str(), folderFlags), folder.c_str());
    const std::uint64_t bytes = sumSizes(descriptor);
    close(descriptor);
    return bytes;
}

int statTwice(const char* first, const char* second)
{
    struct stat status;
    return (stat(first, &status) == 0) + (stat(second, &status) == 0);
}

void copyFile(const std::string& source, const std::string& target)
{
    copyFile(AT_FDCWD, AT_FDCWD, source.c_str(), target.c_str());
}

void copyTree(const std::string& source, const std::string& target)
{
    checked(mkdir(target.c_str(), 0777), target.c_str());
    const int from = checked(open(source.c_str(), folderFlags), source.c_str());
    const int to = checked(open(target.c_str(), folderFlags), target.c_str());
    copyTree(from, to);
    close(to);
    close(from);
}

void removeTree(const std::string& folder)
{
    const int descriptor = checked(open(folder.c_str(), folderFlags), folder.c_str());
    removeTree(descriptor);
    close(descriptor);
    checked(rmdir(folder.c_str()), folder.c_str());
}

} // namespace folidex::bench::floor
