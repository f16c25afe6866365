// Entry by entry, in the order of their paths: what has no counterpart in the destination is renamed, a folder with all
// that is in it. A folder that has one is merged, and so on with what it holds. A file that has one takes its place in
// one step, once the old one has another name in the work folder, by a hard link where there are such.
//
// Each step is noted. Undone from the last to the first, they leave the destination as it was.

#include "archiver/placement.h"

#include "archiver/failure.h"
#include "archiver/tree_cursor.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/flush.h"
#include "platform/posix/names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string_view>
#include <vector>

namespace archiver {

namespace {

using platform::posix::Descriptor;
using platform::posix::folderItself;
using platform::posix::openAt;

class Placement {
public:
    Placement(const ZipArchive& archive, const Expansion& expansion)
        : archive_(archive), expansion_(expansion), place_(expansion.destination), work_(expansion.tree),
          firstSet_(archive.entries().size())
    {
    }

    void run()
    {
        if (expansion_.missing.empty()) {
            placeEntries();
        } else {
            const std::string_view missing = expansion_.missing;
            const std::string first(missing.substr(0, missing.find('/')));
            goTo(first);
            move(first, {Step::Kind::movedMissing, 0, first.size()});
        }
        setFolders();
        flush();
    }

    // Returns whether everything is where it was.
    bool undo()
    {
        unlock();
        bool isUndone = true;
        for (std::size_t index = steps_.size(); index-- > 0;) {
            isUndone = undoStep(index) && isUndone;
        }
        for (const Merged& merged : merged_) {
            const Descriptor folder = openFolder(archive_.entries()[merged.entry]);
            if (folder) {
                fchmod(folder.get(), merged.mode);
                futimens(folder.get(), merged.times.data());
            }
        }
        return isUndone;
    }

private:
    // What was done, to be undone.
    struct Step {
        enum class Kind : std::uint8_t { moved, movedMissing, replaced } kind;
        std::size_t entry;  // whose path begins with the item's
        std::size_t length; // of the item's path
    };

    // A folder of the destination as it was; of those that have an entry.
    struct Merged {
        std::size_t entry;
        mode_t mode;
        std::array<timespec, 2> times;
    };

    void placeEntries()
    {
        std::string merged; // the innermost folder that is being merged
        for (std::size_t index = 0; index < archive_.entries().size();) {
            const std::string_view path = archive_.path(archive_.entries()[index]);
            while (!isBelow(path, merged)) {
                merged = folderOf(merged);
            }
            index = placeEntry(index, path, merged);
        }
    }

    // Returns the index of the next entry that isn't in place.
    std::size_t placeEntry(std::size_t index, std::string_view path, std::string& merged)
    {
        const std::vector<ZipEntry>& entries = archive_.entries();
        for (;;) {
            const std::string_view item = path.substr(0, path.find('/', merged.empty() ? 0 : merged.size() + 1));
            const bool hasEntry = item.size() == path.size();
            const bool isFolder = !hasEntry || entries[index].kind == ZipEntry::Kind::folder;
            const std::optional<struct stat> existing = examine(item);
            if (!existing) {
                move(item, {Step::Kind::moved, index, item.size()});
            } else if (isFolder != bool{S_ISDIR(existing->st_mode)}) {
                fail(Exit::unusableDestination, "something of another kind is in the way of " + quoted(item));
            } else if (!isFolder) {
                replace(item, index);
            } else if (hasEntry) {
                merged_.push_back({index, static_cast<mode_t>(existing->st_mode & allBits), timesOf(*existing)});
                merged = item;
                return index + 1;
            } else {
                merged = item;
                continue;
            }
            do {
                ++index;
            } while (index < entries.size() && isBelow(archive_.path(entries[index]), item));
            return index;
        }
    }

    // What has the item's place; empty when it is free.
    std::optional<struct stat> examine(std::string_view item)
    {
        goTo(item);
        struct stat status {};
        if (fstatat(place_.folder(), nameOf(item).c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
            return status;
        }
        if (errno != ENOENT) {
            failPlacing(item, errno);
        }
        return std::nullopt;
    }

    void goTo(std::string_view item)
    {
        if (const int error = place_.go(folderOf(item))) {
            failPlacing(item, error);
        }
        if (const int error = work_.go(folderOf(item))) {
            failPlacing(item, error);
        }
    }

    [[noreturn]] static void failPlacing(std::string_view item, int error)
    {
        failWriting(quoted(item) + " can't be put into place", error);
    }

    void move(std::string_view item, const Step& step)
    {
        steps_.push_back(step);
        const std::string name = nameOf(item);
        if (const int error =
                platform::posix::renameExclusively(work_.folder(), name.c_str(), place_.folder(), name.c_str())) {
            steps_.pop_back(); // what has the name isn't ours
            failPlacing(item, error);
        }
    }

    void replace(std::string_view item, std::size_t index)
    {
        const std::string name = nameOf(item);
        const std::string kept = std::to_string(steps_.size());
        if (linkat(place_.folder(), name.c_str(), expansion_.kept, kept.c_str(), 0) != 0 &&
            renameat(place_.folder(), name.c_str(), expansion_.kept, kept.c_str()) != 0) {
            failPlacing(item, errno);
        }
        steps_.push_back({Step::Kind::replaced, index, item.size()});
        if (renameat(work_.folder(), name.c_str(), place_.folder(), name.c_str()) != 0) {
            failPlacing(item, errno);
        }
    }

    // ---- Folders' modes and times, the inner ones first ----

    static constexpr mode_t allBits = S_IRWXU | S_IRWXG | S_IRWXO | S_ISUID | S_ISGID | S_ISVTX;

    mode_t modeOf(const ZipEntry& entry) const { return entry.mode & ~expansion_.mask; }
    bool isLocked(const ZipEntry& entry) const
    {
        return entry.kind == ZipEntry::Kind::folder && (modeOf(entry) & S_IRWXU) != S_IRWXU;
    }

    std::string placeOf(const ZipEntry& entry) const
    {
        const std::string path(archive_.path(entry));
        return expansion_.missing.empty() ? path : expansion_.missing + "/" + path;
    }

    Descriptor openFolder(const ZipEntry& entry)
    {
        const std::string path = placeOf(entry);
        return place_.go(folderOf(path)) == 0 ? openAt(place_.folder(), nameOf(path).c_str(), folderItself)
                                              : Descriptor();
    }

    void setFolders()
    {
        std::size_t left = merged_.size();
        while (firstSet_ > 0) {
            const std::size_t index = --firstSet_;
            const ZipEntry& entry = archive_.entries()[index];
            if (left > 0 && merged_[left - 1].entry == index) {
                setMerged(entry, merged_[--left]);
            } else if (isLocked(entry)) {
                const Descriptor folder = openFolder(entry);
                if (!folder || fchmod(folder.get(), modeOf(entry)) != 0) {
                    failPlacing(archive_.path(entry), errno);
                }
            }
        }
    }

    // It is the archive's folder now, as far as it may be changed. What it has beyond permissions is its own.
    void setMerged(const ZipEntry& entry, const Merged& merged)
    {
        if (const Descriptor folder = openFolder(entry)) {
            const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, modificationTime(entry)};
            const mode_t special = merged.mode & (S_ISUID | S_ISGID | S_ISVTX);
            if (fchmod(folder.get(), modeOf(entry) | special) == 0) {
                futimens(folder.get(), times.data());
            }
        }
    }

    static std::array<timespec, 2> timesOf(const struct stat& status)
    {
#ifdef __APPLE__
        return {status.st_atimespec, status.st_mtimespec};
#else
        return {status.st_atim, status.st_mtim};
#endif
    }

    void flush()
    {
        if (platform::posix::isFlushedAsAWhole(expansion_.tree)) {
            if (const int error = platform::posix::flushFileSystem(expansion_.tree)) {
                failWriting("the result can't be written", error);
            }
            return;
        }
        std::optional<std::string_view> flushed;
        for (const Step& step : steps_) {
            const std::string_view folder = folderOf(itemOf(step));
            if (folder != flushed) {
                goTo(itemOf(step));
                if (const int error = platform::posix::flushEntries(place_.folder(), expansion_.tree)) {
                    failWriting("the result can't be written", error);
                }
                flushed = folder;
            }
        }
    }

    // ---- Back ----

    std::string_view itemOf(const Step& step) const
    {
        const std::string_view path = step.kind == Step::Kind::movedMissing
                                          ? std::string_view(expansion_.missing)
                                          : archive_.path(archive_.entries()[step.entry]);
        return path.substr(0, step.length);
    }

    // The outer ones first: nothing is moved out of, or by the name of, a folder that can't be written to.
    void unlock()
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

    bool undoStep(std::size_t index)
    {
        const std::string_view item = itemOf(steps_[index]);
        const std::string name = nameOf(item);
        if (place_.go(folderOf(item)) != 0) {
            return false;
        }
        if (steps_[index].kind == Step::Kind::replaced) {
            const std::string kept = std::to_string(index);
            return renameat(expansion_.kept, kept.c_str(), place_.folder(), name.c_str()) == 0;
        }
        return work_.go(folderOf(item)) == 0 &&
               renameat(place_.folder(), name.c_str(), work_.folder(), name.c_str()) == 0;
    }

    const ZipArchive& archive_;
    const Expansion& expansion_;
    TreeCursor place_;
    TreeCursor work_;
    std::vector<Step> steps_;
    std::vector<Merged> merged_;
    std::size_t firstSet_; // of the entries, from which on folders have their modes
};

} // namespace

void putIntoPlace(const ZipArchive& archive, const Expansion& expansion, const std::function<void()>& keep)
{
    Placement placement(archive, expansion);
    try {
        placement.run();
    } catch (...) {
        if (!placement.undo()) {
            keep();
        }
        throw;
    }
}

timespec modificationTime(const ZipEntry& entry)
{
    constexpr std::int64_t perSecond = 10'000'000;
    constexpr std::int64_t nanoseconds = 100;
    const std::int64_t rest = entry.modified % perSecond;
    timespec time{};
    time.tv_sec = static_cast<time_t>(entry.modified / perSecond - (rest < 0 ? 1 : 0));
    time.tv_nsec = static_cast<long>((rest < 0 ? rest + perSecond : rest) * nanoseconds);
    return time;
}

} // namespace archiver
