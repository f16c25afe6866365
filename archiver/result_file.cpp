// The unnamed file gets its name by a link, which never replaces; where the name is taken the link gets a name of its
// own first, which is then renamed over it. Where a link of an unnamed file is refused, as some security modules do,
// the content is copied into a named one.

#include "archiver/result_file.h"

#include "archiver/failure.h"
#include "archiver/interruption.h"
#include "archiver/leftovers.h"
#include "platform/posix/access_lists.h"
#include "platform/posix/copy_item.h"
#include "platform/posix/flush.h"
#include "platform/posix/identity.h"
#include "platform/posix/names.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

namespace archiver {

using platform::posix::asPlace;
using platform::posix::Descriptor;
using platform::posix::Identity;
using platform::posix::linkUnnamed;
using platform::posix::openAt;
using platform::posix::retried;

namespace {

[[noreturn]] void failResult(int error)
{
    fail(Exit::notWritten, std::string("the result can't be written: ") + std::strerror(error));
}

constexpr const char* inTheWay = "a folder, a device or the source itself is in the way";

// Rights of group or others, moved to the place of others' bits: whether they include reading and, of a folder,
// entering.
bool letsIn(mode_t rights, mode_t item)
{
    const mode_t wanted = S_ISDIR(item) ? S_IROTH | S_IXOTH : S_IROTH;
    return (rights & wanted) == wanted;
}

// Some file systems tell only who closes a file of what they couldn't keep.
void flush(int file)
{
    int error = platform::posix::flushFile(file);
    error = error != 0 ? error : platform::posix::errorOfClosing(file);
    if (error != 0) {
        failResult(error);
    }
}

} // namespace

int writeAll(int file, std::span<const std::byte> bytes, std::uint64_t offset)
{
    while (!bytes.empty()) {
        const auto count =
            retried([&] { return pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset)); });
        if (count <= 0) {
            return count < 0 ? errno : ENOSPC;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(count));
        offset += static_cast<std::uint64_t>(count);
    }
    return 0;
}

mode_t callersMask()
{
    static const mode_t mask = umask(0);
    return mask;
}

// ---- Privacy --------------------------------------------------------------------------------------------------------

Privacy::Privacy() : mode_(static_cast<mode_t>(S_IRUSR | S_IWUSR | ((S_IRGRP | S_IROTH) & ~callersMask()))) {}

// Who belongs to the result's group may belong to the item's or not, unless the two are one.
void Privacy::narrowTo(int item, const struct stat& status)
{
    const bool letsGroupIn = letsIn(status.st_mode >> 3U, status.st_mode);
    const bool letsOthersIn = letsIn(status.st_mode, status.st_mode);
    if (platform::posix::hasAccessList(item) || (!letsGroupIn && !letsOthersIn)) {
        mode_ &= ~mode_t{S_IRWXG | S_IRWXO};
    } else if (!letsGroupIn || !letsOthersIn) {
        mode_ &= ~(letsGroupIn ? mode_t{S_IRWXO} : mode_t{S_IRWXG});
        if (!group_) {
            group_ = status.st_gid;
        } else if (*group_ != status.st_gid) {
            mode_ &= ~mode_t{S_IRWXG | S_IRWXO};
        }
    }
}

mode_t Privacy::modeFor(const struct stat& result) const
{
    return !group_ || *group_ == result.st_gid ? mode_ : mode_ & ~mode_t{S_IRWXG | S_IRWXO};
}

// ---- The result -----------------------------------------------------------------------------------------------------

ResultFile::ResultFile(const std::string& folder, const std::string& name, const struct stat& source)
    : folder_(openAt(AT_FDCWD, folder.c_str(), asPlace)), name_(name)
{
    if (!folder_) {
        failWriting("the destination is no folder that can be used", errno);
    }
    struct stat existing {};
    if (fstatat(this->folder(), name.c_str(), &existing, 0) == 0 &&
        (!S_ISREG(existing.st_mode) || Identity::of(existing) == Identity::of(source))) {
        fail(Exit::unusableDestination, inTheWay);
    }
    removeLeftovers(this->folder());
    make();
}

ResultFile::~ResultFile()
{
    if (!item_.name.empty()) {
        unlinkat(folder(), item_.name.c_str(), 0);
    }
}

void ResultFile::make()
{
    item_.open = platform::posix::makeUnnamed(folder(), O_RDWR);
    if (item_.open) {
        platform::posix::dropAccessLists(item_.open.get());
    } else {
        item_ = makeWorkFile(folder());
    }
}

void ResultFile::giveName()
{
    if (item_.name.empty()) {
        const int error = linkUnnamed(descriptor(), folder(), name_.c_str());
        if (error == 0) {
            return;
        }
        std::string hidden = workName();
        if (error == EEXIST && lockWorkItem(descriptor()) && linkUnnamed(descriptor(), folder(), hidden.c_str()) == 0) {
            item_.name = std::move(hidden);
        } else {
            copyIntoNamed();
        }
    }
    struct stat replaced {};
    isExchanged_ = platform::posix::exchange(folder(), item_.name.c_str(), folder(), name_.c_str()) == 0;
    if (isExchanged_) {
        if (fstatat(folder(), item_.name.c_str(), &replaced, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISDIR(replaced.st_mode)) {
            return;
        }
        takeBack();
        fail(Exit::unusableDestination, inTheWay);
    }
    if (renameat(folder(), item_.name.c_str(), folder(), name_.c_str()) != 0) {
        failWriting("the target can't be replaced", errno);
    }
    hasReplaced_ = true;
    item_.name.clear();
}

// After a failure: what was there has its name again, or nothing has.
void ResultFile::takeBack()
{
    if (isExchanged_) {
        platform::posix::exchange(folder(), item_.name.c_str(), folder(), name_.c_str());
    } else if (!hasReplaced_ && isNameOf(folder(), name_, descriptor())) {
        unlinkat(folder(), name_.c_str(), 0);
    }
}

void ResultFile::copyIntoNamed()
{
    const Descriptor unnamed = std::exchange(item_, makeWorkFile(folder())).open;
    struct stat status {};
    std::vector<std::byte> buffer(std::size_t{1} << 20U);
    for (std::uint64_t at = 0; at < size_;) {
        const auto count =
            retried([&] { return pread(unnamed.get(), buffer.data(), buffer.size(), static_cast<off_t>(at)); });
        if (count <= 0) {
            failResult(count < 0 ? errno : EIO);
        }
        writeAt(at, std::span(buffer).first(static_cast<std::size_t>(count)));
        at += static_cast<std::uint64_t>(count);
    }
    if (fstat(unnamed.get(), &status) == 0) {
        fchmod(item_.open.get(), status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO));
    }
    flush(item_.open.get());
}

// As a source does. One that can't be opened lets nobody else in.
void ResultFile::narrowToReplaced(Privacy& privacy) const
{
    struct stat status {};
    if (fstatat(folder(), name_.c_str(), &status, 0) == 0) {
        const Descriptor replaced = openAt(folder(), name_.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
        privacy.narrowTo(replaced.get(), status);
    }
}

void ResultFile::write(std::span<const std::byte> bytes)
{
    writeAt(size_, bytes);
    size_ += bytes.size();
}

void ResultFile::writeAt(std::uint64_t offset, std::span<const std::byte> bytes)
{
    throwIfInterrupted();
    if (const int error = writeAll(descriptor(), bytes, offset)) {
        failResult(error);
    }
}

void ResultFile::publish(const Privacy& privacy)
{
    Privacy narrowed = privacy;
    struct stat status {};
    narrowToReplaced(narrowed);
    if (fstat(descriptor(), &status) != 0) {
        failResult(errno);
    }
    // A mode gives a list's entries their rights back. Where a file system keeps no modes the result stays as it was
    // made.
    if (!platform::posix::hasAccessList(descriptor())) {
        fchmod(descriptor(), narrowed.modeFor(status));
    }
    flush(descriptor());
    throwIfInterrupted();

    giveName();
    const int error = platform::posix::flushEntries(folder(), descriptor());
    if (error != 0) {
        takeBack();
        failResult(error);
    }
    if (!isNameOf(folder(), name_, descriptor()) && (errno == 0 || errno == ENOENT)) {
        fail(Exit::unusableDestination, "somebody else changes the destination");
    }
}

} // namespace archiver
