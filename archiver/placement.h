// How what was expanded gets from a work folder into its place: whole or not at all.
#pragma once

#include "archiver/tree_cursor.h"
#include "archiver/zip_reader.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace archiver {

// What carryOut() throws when a name that was free has been taken meanwhile: it has to be planned anew.
struct NameTaken {};

// What is put into place by one step is an item: a file or a link, or a folder that the destination lacks, with all
// that is in it. It is expanded under its number in the work folder's folder for its share of the items.
class Placement {
public:
    // Items that one thread takes at a time.
    static constexpr std::size_t shareSize = 64;

    // Plans it. `destination`: open, stays the caller's; `missing`: the path of the folders that it lacks, else empty;
    // `mask`: the caller's umask. Failures: unusableDestination, also for what is in the way.
    Placement(const ZipArchive& archive, int destination, std::string missing, mode_t mask);

    // Where in the work folder an entry belongs; empty for a folder that the destination has.
    std::string workPath(std::size_t entry) const;

    // The same of the folder that the archive is expanded into, where the destination lacks it.
    const std::string& missingInWork() const { return missingInWork_; }

    // How many shares there are; the first one's folder is called "0".
    std::size_t shares() const { return (items_.size() + shareSize - 1) / shareSize; }

    // Puts everything into place, onto the disk, with folders' modes that lock their owner out last. What is replaced
    // is in the work folder then, which is on the destination's file system. Failures: unusableDestination, notWritten.
    void carryOut(int work);

    // Puts everything back after a failure; false when some of it can't be, so that the work folder holds its only
    // copy.
    bool undo(int work) noexcept;

private:
    struct Item {
        enum class State : std::uint8_t { planned, moved, replaced };

        std::size_t first;  // entry in it, whose path begins with the item's
        std::size_t end;    // behind the last one
        std::size_t length; // of its path
        bool exists;        // a file or link, when it was planned
        State state = State::planned;
    };

    // A folder of the destination as it was; of those that have an entry.
    struct Merged {
        std::size_t entry;
        mode_t mode;
        std::array<timespec, 2> times;
    };

    std::size_t planItem(std::size_t index, std::string& merged);
    void requireOneNameEach();
    std::string pathOf(const Item& item) const;
    std::string placeOf(const ZipEntry& entry) const;
    static void goTo(TreeCursor& cursor, std::string_view path);
    void place(Item& item, int work, TreeCursor& cursor);
    static int replace(Item& item, int work, const std::string& number, int place, const std::string& name);
    void setFolders();
    bool setFolder(const ZipEntry& entry, mode_t before, mode_t mode, const std::array<timespec, 2>& times);
    void unlock();
    bool undoItem(const Item& item, int work);
    void flush(int work);
    std::string numberOf(const Item& item) const;
    mode_t modeOf(const ZipEntry& entry) const { return entry.mode & ~mask_; }
    bool isLocked(const ZipEntry& entry) const;

    const ZipArchive& archive_;
    int destination_;
    std::string missing_;
    std::string missingInWork_;
    mode_t mask_;
    TreeCursor place_;
    std::vector<Item> items_;
    std::vector<Merged> merged_;
    std::vector<std::pair<dev_t, ino_t>> existing_; // what is replaced, of what has one name
    std::size_t firstSet_;                          // of the entries, from which on folders have their modes
};

// For utimensat(2): when the entry was modified.
std::array<timespec, 2> timesOf(const ZipEntry& entry);

} // namespace archiver
