#include "platform/linux/copy_data.h"

#include "platform/posix/descriptor.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace platform::linux_os {

using posix::Failure;
using posix::retried;

namespace {

constexpr std::size_t bufferSize = std::size_t{256} * 1024;

// glibc 2.41 and 2.42 mishandle ranges above 2 GiB.
constexpr off_t kernelStep = off_t{1} << 30;

// Below this a read and a write are quicker than asking the kernel to copy.
constexpr off_t smallFile = static_cast<off_t>(bufferSize);

int writeAll(int target, const std::byte* bytes, std::size_t count, off_t position)
{
    while (count > 0) {
        const auto written = retried([&] { return pwrite(target, bytes, count, position); });
        if (written < 0) {
            return errno;
        }
        bytes += written;
        position += written;
        count -= static_cast<std::size_t>(written);
    }
    return 0;
}

bool mayHaveHoles(const struct stat& status)
{
    return status.st_blocks < status.st_size / 512;
}

} // namespace

Failure DataCopier::copy(int source, int target, const struct stat& status, off_t& copied)
{
    copied = 0;
    if (status.st_size == 0) {
        return copyUnsized(source, target);
    }
    if (cloned(source, target, status)) {
        copied = status.st_size;
        return {};
    }
    if (mayHaveHoles(status)) {
        return copySparse(source, target, copied, status.st_size);
    }
    return copyRange(source, target, copied, status.st_size);
}

bool DataCopier::cloned(int source, int target, const struct stat& status)
{
    if (deviceWithoutClones_ == status.st_dev) {
        return false;
    }
    if (retried([&] { return ioctl(target, FICLONE, source); }) == 0) {
        return true;
    }
    // Other errors concern the one file only (a swap file, a file without copy-on-write).
    if (errno == EOPNOTSUPP || errno == ENOTTY || errno == EXDEV) {
        deviceWithoutClones_ = status.st_dev;
    }
    return false;
}

// Files that make up their content as they are read say 0 to the end. One that says more by now is a file that is just
// being filled, and is copied as far as it says, for its writer may be quicker for ever.
Failure DataCopier::copyUnsized(int source, int target)
{
    for (off_t position = 0;;) {
        const auto count = retried([&] { return read(source, buffer(), bufferSize); });
        if (count < 0) {
            return Failure::ofSource(errno);
        }
        if (count == 0) {
            return {};
        }
        if (const int error = writeAll(target, buffer(), static_cast<std::size_t>(count), position)) {
            return Failure::ofTarget(error);
        }
        position += count;
        struct stat now {};
        if (fstat(source, &now) == 0 && now.st_size > 0) {
            return copyRange(source, target, position, now.st_size);
        }
    }
}

Failure DataCopier::copySparse(int source, int target, off_t& reached, off_t size)
{
    for (off_t position = 0; position < size;) {
        const off_t data = lseek(source, position, SEEK_DATA);
        if (data < 0 && errno == ENXIO) {
            break; // a hole up to the end
        }
        const off_t hole = data < 0 ? data : lseek(source, data, SEEK_HOLE);
        if (hole < 0) {
            return copyRange(source, target, reached, size); // a file system that doesn't tell where its holes are
        }
        position = data;
        const off_t end = std::min(hole, size);
        if (Failure failed = copyRange(source, target, position, end)) {
            return failed;
        }
        reached = position;
        if (position < end) {
            return {}; // less than it said
        }
    }
    struct stat now {};
    if (fstat(source, &now) != 0) {
        return Failure::ofSource(errno);
    }
    const off_t end = std::min(size, now.st_size);
    if (end > reached && retried([&] { return ftruncate(target, end); }) != 0) {
        return Failure::ofTarget(errno);
    }
    reached = end;
    return {};
}

// Copies from `position` up to `end` or to where the source ends; `position` tells how far it came.
Failure DataCopier::copyRange(int source, int target, off_t& position, off_t end)
{
    Failure failed;
    if (end - position > smallFile && copyInKernel(source, target, position, end, failed)) {
        return failed;
    }
    return copyThroughBuffer(source, target, position, end);
}

// Returns false when the rest has to go through the buffer: copy_file_range(2) can't copy between all file systems, and
// ends early on files that make up their content as they are read.
bool DataCopier::copyInKernel(int source, int target, off_t& position, off_t end, Failure& failed)
{
    off_t written = position;
    while (position < end) {
        const auto step = static_cast<std::size_t>(std::min(end - position, kernelStep));
        const auto count = retried([&] { return copy_file_range(source, &position, target, &written, step, 0); });
        if (count > 0) {
            continue;
        }
        if (count < 0 && (errno == ENOSPC || errno == EDQUOT || errno == EFBIG)) {
            failed = Failure::ofTarget(errno);
            return true;
        }
        return false;
    }
    return true;
}

Failure DataCopier::copyThroughBuffer(int source, int target, off_t& position, off_t end)
{
    while (position < end) {
        const std::size_t step = std::min(static_cast<std::size_t>(end - position), bufferSize);
        const auto count = retried([&] { return pread(source, buffer(), step, position); });
        if (count < 0) {
            return Failure::ofSource(errno);
        }
        if (count == 0) {
            break;
        }
        if (const int error = writeAll(target, buffer(), static_cast<std::size_t>(count), position)) {
            return Failure::ofTarget(error);
        }
        position += count;
    }
    return {};
}

std::byte* DataCopier::buffer()
{
    if (!buffer_) {
        buffer_ = std::make_unique_for_overwrite<std::byte[]>(bufferSize);
    }
    return buffer_.get();
}

} // namespace platform::linux_os
