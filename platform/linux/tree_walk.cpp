#include "platform/linux/tree_walk.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

namespace platform::linux_os {

namespace {

constexpr std::size_t bufferSize = std::size_t{256} * 1024;
constexpr int openFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Nothing when that can't be seen.
std::optional<bool> isRoot(int folder, int parent)
{
    struct statx here {};
    struct statx above {};
    const unsigned mask = STATX_INO | STATX_MNT_ID; // a folder may be mounted below itself
    if (statx(folder, "", AT_EMPTY_PATH, mask, &here) != 0 || statx(parent, "", AT_EMPTY_PATH, mask, &above) != 0) {
        return std::nullopt;
    }
    return here.stx_dev_major == above.stx_dev_major && here.stx_dev_minor == above.stx_dev_minor &&
           here.stx_ino == above.stx_ino && here.stx_mnt_id == above.stx_mnt_id;
}

} // namespace

std::optional<bool> isInside(int folder, Identity ancestor)
{
    Descriptor current;
    for (int at = folder;;) {
        struct stat status {};
        if (fstat(at, &status) != 0) {
            return std::nullopt;
        }
        if (Identity::of(status) == ancestor) {
            return true;
        }
        Descriptor parent(retried([at] { return openat(at, "..", O_PATH | O_DIRECTORY | O_CLOEXEC); }));
        const std::optional<bool> isTop = parent ? isRoot(at, parent.get()) : std::nullopt;
        if (!isTop) {
            return std::nullopt;
        }
        if (*isTop) {
            return false;
        }
        current = std::move(parent);
        at = current.get();
    }
}

void DirectoryReader::start(int folder)
{
    if (!buffer_) {
        buffer_ = std::make_unique_for_overwrite<std::byte[]>(bufferSize);
    }
    folder_ = folder;
    position_ = filled_ = 0;
    error_ = 0;
}

bool DirectoryReader::fill()
{
    const auto bytes = retried([this] { return getdents64(folder_, buffer_.get(), bufferSize); });
    if (bytes < 0) {
        error_ = errno;
        return false;
    }
    position_ = 0;
    filled_ = static_cast<std::size_t>(bytes);
    return filled_ > 0;
}

const DirectoryEntry* DirectoryReader::next()
{
    for (;;) {
        if (position_ >= filled_ && !fill()) {
            filled_ = position_ = 0;
            return nullptr;
        }
        // The kernel aligns every record for direct access (getdents(2), d_reclen).
        const auto* record = reinterpret_cast<const dirent64*>(buffer_.get() + position_);
        position_ += record->d_reclen;
        const std::string_view name(record->d_name);
        if (name != "." && name != "..") {
            entry_ = {record->d_name, record->d_type};
            return &entry_;
        }
    }
}

TreeWalk::TreeWalk(Descriptor root)
{
    levels_.push_back({std::move(root), 0, {}, {}});
}

std::optional<std::string> TreeWalk::takeKept()
{
    std::string& kept = levels_.back().kept;
    if (kept.empty()) {
        return std::nullopt;
    }
    kept.pop_back();
    const std::size_t start = kept.rfind('\0') + 1; // npos + 1 is 0
    std::string name = kept.substr(start);
    kept.resize(start);
    return name;
}

int TreeWalk::enter(const std::string& name)
{
    Descriptor next(retried([&] { return openat(folder(), name.c_str(), openFolder); }));
    if (!next) {
        return errno;
    }
    if (levels_.size() - firstOpen_ >= keptOpen) {
        Level& outermost = levels_[firstOpen_];
        struct stat status {};
        if (fstat(outermost.folder.get(), &status) != 0) {
            return errno;
        }
        outermost.identity = Identity::of(status);
        outermost.folder.close();
        ++firstOpen_;
    }
    path_.append("/").append(name);
    levels_.push_back({std::move(next), path_.size(), {}, {}});
    return 0;
}

Descriptor TreeWalk::leave(int& error)
{
    Level& above = levels_[levels_.size() - 2];
    if (!above.folder) {
        Descriptor again(retried([&] { return openat(folder(), "..", openFolder); }));
        struct stat status {};
        if (!again || fstat(again.get(), &status) != 0) {
            error = errno;
            return {};
        }
        if (Identity::of(status) != above.identity) {
            error = ESTALE;
            return {};
        }
        above.folder = std::move(again);
        --firstOpen_;
    }
    Descriptor left = std::move(levels_.back().folder);
    leftName_ = path_.substr(above.pathLength + 1);
    path_.resize(above.pathLength);
    levels_.pop_back();
    return left;
}

} // namespace platform::linux_os
