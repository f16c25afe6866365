// What a copy found in its source, for a move that removes nothing else.
//
// Of each entry only a fingerprint is kept, 8 bytes for place, kind, size and times, so that a million entries take
// 8 MB. That another state of an entry has a fingerprint of the record's is as likely as a million in 2^64.
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

    // To be called once, after the last add() and before the first holds().
    void close();

    // Whether the entry is as it was: a folder by its place alone, anything else by its size, the time of its last
    // modification and, unless it has or had several names, of its last change, which a removed name sets.
    bool holds(Place place, const struct stat& status) const;

private:
    std::vector<std::uint64_t> prints_;
};

// How long a further change of the item could still get the time of its last one, in nanoseconds; 0: not any more. Goes
// by the precision that the time shows: two seconds are FAT's, one SFTP's and HFS+'s, 10 ms exFAT's; else a tick of the
// kernel's clock.
std::int64_t timeUntilNextStamp(const struct stat& status);

} // namespace platform::posix
