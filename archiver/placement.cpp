// The entries are gone through by their paths, beside the destination: a folder that is in both is merged, and so on
// with what it holds; whatever else comes first on a path is an item. An item whose name is free is renamed, a file or
// link that is there changes places with the new one, in one step where the file system can.
//
// What was done is noted with the items. Undone from the last to the first, the destination is as it was.

#include "archiver/placement.h"

#include "archiver/failure.h"
#include "archiver/workers.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/file_times.h"
#include "platform/posix/flush.h"
#include "platform/posix/names.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <new>
#include <optional>
#include <utility>

namespace archiver {

using platform::posix::Descriptor;
using platform::posix::exchange;
using platform::posix::openAt;
using platform::posix::renameExclusively;

namespace {

constexpr mode_t specialBits = S_ISUID | S_ISGID | S_ISVTX;
constexpr mode_t allBits = S_IRWXU | S_IRWXG | S_IRWXO | specialBits;

[[noreturn]] void failPlacing(std::string_view path, int error)
{
    failWriting(quoted(path) + " can't be put into place", error);
}

// Empty when there is nothing.
std::optional<struct stat> examine(int folder, const std::string& name, std::string_view path)
{
    struct stat status {};
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        return status;
    }
    if (errno != ENOENT) {
        failPlacing(path, errno);
    }
    return std::nullopt;
}

int moveOver(int fromFolder, const std::string& from, int toFolder, const std::string& to)
{
    return renameat(fromFolder, from.c_str(), toFolder, to.c_str()) == 0 ? 0 : errno;
}

} // namespace

// ---- What is to be done ---------------------------------------------------------------------------------------------

Placement::Placement(const ZipArchive& archive, int destination, std::string missing, mode_t mask)
    : archive_(archive), destination_(destination), missing_(std::move(missing)), mask_(mask), place_(destination),
      firstSet_(archive.entries().size())
{
    const std::size_t count = archive.entries().size();
    if (!missing_.empty()) {
        const std::size_t length = std::min(missing_.find('/'), missing_.size());
        items_.push_back({.first = 0, .end = count, .length = length, .exists = false});
        missingInWork_ = numberOf(items_.front()) + missing_.substr(length);
        return;
    }
    std::string merged; // the innermost folder that is being merged
    for (std::size_t index = 0; index < count;) {
        index = planItem(index, merged);
    }
    requireOneNameEach();
}

// Where upper and lower case are one, two entries can be about one file, of which the last would be left.
void Placement::requireOneNameEach()
{
    std::sort(existing_.begin(), existing_.end());
    if (std::adjacent_find(existing_.begin(), existing_.end()) != existing_.end()) {
        fail(Exit::unusableDestination, "two names in the archive are one in the destination");
    }
    existing_ = {};
}

std::string Placement::numberOf(const Item& item) const
{
    const auto index = static_cast<std::size_t>(&item - items_.data());
    return std::to_string(index / shareSize) + "/" + std::to_string(index);
}

// Returns the index of the next entry that isn't in an item.
std::size_t Placement::planItem(std::size_t index, std::string& merged)
{
    const std::vector<ZipEntry>& entries = archive_.entries();
    const std::string_view path = archive_.path(entries[index]);
    while (!isBelow(path, merged)) {
        merged = folderOf(merged);
    }
    for (;;) {
        const std::string_view item = path.substr(0, path.find('/', merged.empty() ? 0 : merged.size() + 1));
        const bool hasEntry = item.size() == path.size();
        const bool isFolder = !hasEntry || entries[index].kind == ZipEntry::Kind::folder;
        goTo(place_, item);
        const std::optional<struct stat> existing = examine(place_.folder(), nameOf(item), item);
        if (existing && isFolder != bool{S_ISDIR(existing->st_mode)}) {
            fail(Exit::unusableDestination, "something of another kind is in the way of " + quoted(item));
        }
        if (!existing || !isFolder) {
            std::size_t end = index + 1;
            while (end < entries.size() && isBelow(archive_.path(entries[end]), item)) {
                ++end;
            }
            if (existing && existing->st_nlink == 1) {
                existing_.emplace_back(existing->st_dev, existing->st_ino);
            }
            items_.push_back({index, end, item.size(), existing.has_value()});
            return end;
        }
        merged = item;
        if (hasEntry) {
            const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, platform::posix::modificationTime(*existing)};
            merged_.push_back({index, static_cast<mode_t>(existing->st_mode & allBits), times});
            return index + 1;
        }
    }
}

std::string Placement::workPath(std::size_t entry) const
{
    const std::string_view path = archive_.path(archive_.entries()[entry]);
    if (!missing_.empty()) {
        return missingInWork_ + "/" + std::string(path);
    }
    const auto after = std::upper_bound(items_.begin(), items_.end(), entry,
                                        [](std::size_t index, const Item& item) { return index < item.first; });
    if (after == items_.begin() || entry >= std::prev(after)->end) {
        return "";
    }
    const Item& item = *std::prev(after);
    return numberOf(item) + std::string(path.substr(item.length));
}

std::string Placement::pathOf(const Item& item) const
{
    return missing_.empty() ? std::string(archive_.path(archive_.entries()[item.first]).substr(0, item.length))
                            : missing_.substr(0, item.length);
}

std::string Placement::placeOf(const ZipEntry& entry) const
{
    const std::string path(archive_.path(entry));
    return missing_.empty() ? path : missing_ + "/" + path;
}

void Placement::goTo(TreeCursor& cursor, std::string_view path)
{
    if (const int error = cursor.go(folderOf(path))) {
        failPlacing(path, error);
    }
}

// ---- There ----------------------------------------------------------------------------------------------------------

void Placement::carryOut(int work)
{
    forEachInParallel(shares(), [&](std::size_t share) {
        TreeCursor cursor(destination_);
        const std::size_t end = std::min(items_.size(), (share + 1) * shareSize);
        for (std::size_t index = share * shareSize; index < end; ++index) {
            place(items_[index], work, cursor);
        }
    });
    setFolders();
    flush(work);
}

void Placement::place(Item& item, int work, TreeCursor& cursor)
{
    const std::string path = pathOf(item);
    const std::string name = nameOf(path);
    const std::string number = numberOf(item);
    goTo(cursor, path);
    const int place = cursor.folder();
    int error = item.exists ? replace(item, work, number, place, name) : ENOENT;
    if (error == ENOENT) {
        error = renameExclusively(work, number.c_str(), place, name.c_str());
        item.state = error == 0 ? Item::State::moved : Item::State::planned;
    }
    if (error == EEXIST) {
        throw NameTaken();
    }
    if (error != 0) {
        failPlacing(path, error);
    }
}

// What was there has the new one's number from then on. Returns an errno value.
int Placement::replace(Item& item, int work, const std::string& number, int place, const std::string& name)
{
    const auto isFolder = [&] {
        struct stat replaced {};
        return fstatat(work, number.c_str(), &replaced, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(replaced.st_mode);
    };
    if (const int error = exchange(work, number.c_str(), place, name.c_str()); error == 0 || error == ENOENT) {
        if (error == 0 && isFolder()) {
            exchange(work, number.c_str(), place, name.c_str());
            return EISDIR;
        }
        item.state = error == 0 ? Item::State::replaced : Item::State::planned;
        return error;
    }
    // By a hard link where there are such, so that the name always has one of the two.
    const std::string fresh = number + "-new";
    int error = moveOver(work, number, work, fresh);
    if (error == 0 && linkat(place, name.c_str(), work, number.c_str(), 0) != 0) {
        error = moveOver(place, name, work, number);
    }
    if (error != 0) {
        moveOver(work, fresh, work, number);
        return error;
    }
    item.state = Item::State::replaced;
    return isFolder() ? EISDIR : moveOver(work, fresh, place, name);
}

// ---- Folders' modes and times, the inner ones first -----------------------------------------------------------------

bool Placement::isLocked(const ZipEntry& entry) const
{
    return entry.kind == ZipEntry::Kind::folder && (modeOf(entry) & S_IRWXU) != S_IRWXU;
}

void Placement::setFolders()
{
    std::size_t left = merged_.size();
    while (firstSet_ > 0) {
        const std::size_t index = --firstSet_;
        const ZipEntry& entry = archive_.entries()[index];
        if (left > 0 && merged_[left - 1].entry == index) {
            // It is the archive's folder now, as far as it may be changed. What it has beyond permissions is its own.
            const mode_t before = merged_[--left].mode;
            setFolder(entry, before, modeOf(entry) | (before & specialBits), timesOf(entry));
        } else if (isLocked(entry) && !setFolder(entry, S_IRWXU, modeOf(entry), timesOf(entry))) {
            failPlacing(archive_.path(entry), errno);
        }
    }
}

// Returns whether it could be changed, else with errno.
bool Placement::setFolder(const ZipEntry& entry, mode_t before, mode_t mode, const std::array<timespec, 2>& times)
{
    const std::string path = placeOf(entry);
    const std::string name = nameOf(path);
    if (const int error = place_.go(folderOf(path))) {
        errno = error;
        return false;
    }
    if (mode != before) {
        const Descriptor folder = openAt(place_.folder(), name.c_str(), platform::posix::folderItself);
        if (!folder || fchmod(folder.get(), mode) != 0) {
            return false;
        }
    }
    return utimensat(place_.folder(), name.c_str(), times.data(), AT_SYMLINK_NOFOLLOW) == 0;
}

void Placement::flush(int work)
{
    std::optional<std::string> flushed;
    int error = 0;
    if (platform::posix::isFlushedAsAWhole(work)) {
        error = platform::posix::flushFileSystem(work);
    } else {
        for (auto item = items_.begin(); item != items_.end() && error == 0; ++item) {
            const std::string path = pathOf(*item);
            if (folderOf(path) != flushed) {
                goTo(place_, path);
                error = platform::posix::flushEntries(place_.folder(), work);
                flushed = folderOf(path);
            }
        }
    }
    if (error != 0) {
        failWriting("the result can't be written", error);
    }
}

// ---- Back -----------------------------------------------------------------------------------------------------------

bool Placement::undo(int work) noexcept
try {
    unlock();
    bool isUndone = true;
    for (auto item = items_.rbegin(); item != items_.rend(); ++item) {
        isUndone = undoItem(*item, work) && isUndone;
    }
    for (const Merged& merged : merged_) {
        setFolder(archive_.entries()[merged.entry], ~merged.mode, merged.mode, merged.times);
    }
    return isUndone;
} catch (const std::bad_alloc&) {
    return false;
}

// The outer ones first: nothing is moved out of, or by the name of, a folder that can't be written to.
void Placement::unlock()
{
    for (; firstSet_ < archive_.entries().size(); ++firstSet_) {
        const ZipEntry& entry = archive_.entries()[firstSet_];
        const std::string path = isLocked(entry) ? placeOf(entry) : "";
        if (!path.empty() && place_.go(folderOf(path)) == 0 &&
            fchmodat(place_.folder(), nameOf(path).c_str(), S_IRWXU, AT_SYMLINK_NOFOLLOW) != 0) {
            continue; // what can't be moved back then says so
        }
    }
}

bool Placement::undoItem(const Item& item, int work)
{
    if (item.state == Item::State::planned) {
        return true;
    }
    const std::string path = pathOf(item);
    if (place_.go(folderOf(path)) != 0) {
        return false;
    }
    return item.state == Item::State::moved ? moveOver(place_.folder(), nameOf(path), work, numberOf(item)) == 0
                                            : moveOver(work, numberOf(item), place_.folder(), nameOf(path)) == 0;
}

std::array<timespec, 2> timesOf(const ZipEntry& entry)
{
    constexpr std::int64_t perSecond = 10'000'000;
    constexpr std::int64_t nanoseconds = 100;
    const std::int64_t rest = entry.modified % perSecond;
    timespec modified{};
    modified.tv_sec = static_cast<time_t>(entry.modified / perSecond - (rest < 0 ? 1 : 0));
    modified.tv_nsec = static_cast<long>((rest < 0 ? rest + perSecond : rest) * nanoseconds);
    return {timespec{0, UTIME_OMIT}, modified};
}

} // namespace archiver
