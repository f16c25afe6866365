// What a copy found in its source, for a move that removes nothing else.
//
// Of each entry only two fingerprints of 8 bytes are kept, one of its whole state and one of what a copy shares with
// it, so that a million entries take 16 MB. That another state of an entry has a fingerprint of the record's is as
// likely as two million in 2^64.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace platform::posix {

// Stands for an entry's path below the root of a tree: a hash that is made name by name, for building and hashing the
// whole path of every entry takes time that grows with depth times depth.
using Place = std::uint64_t;
inline constexpr Place rootPlace = 0;
Place placeOf(Place folder, std::string_view name);

class CopyRecord {
public:
    // `status`: from before the entry was read.
    void add(Place place, const struct stat& status);

    // To be called once, after the last add() and before the first question.
    void close();

    // Whether the entry is as it was: kind, size, and the times of its last modification and of its last change, which
    // nobody can set back and which tells of new rights as well.
    bool holds(Place place, const struct stat& status) const;

    // Whether its content is as it was: of a folder its kind alone, of anything else kind, size and the time of its
    // last modification. True of the entry's copy, too, and of what has lost one of several names.
    bool holdsContent(Place place, const struct stat& status) const;

private:
    std::vector<std::uint64_t> prints_;
};

// Whether an item that was given another name is what it was: by device, size and time of last modification. Its inode
// number may be another one on file systems that make it of the name (exFAT, SMB, some of FUSE).
bool hasSameContent(const struct stat& now, const struct stat& before);

// How long a further change of the item could still get the time of its last one, in nanoseconds; 0: not any more. Goes
// by the precision that the time shows: two seconds are FAT's, one SFTP's and HFS+'s, 10 ms exFAT's; else a tick of the
// kernel's clock.
std::int64_t timeUntilNextStamp(const struct stat& status);

} // namespace platform::posix
