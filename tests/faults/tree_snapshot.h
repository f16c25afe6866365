// What stands in some folders at one moment, to be compared with another.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace folidex::test {

struct SnapshotEntry {
    std::string essence;  // kind, size, content
    std::string metadata; // mode, owner, dates, a "user." attribute; a date of today counts as "now"

    friend bool operator==(const SnapshotEntry&, const SnapshotEntry&) = default;
};

using Snapshot = std::map<std::string, SnapshotEntry>; // by path

Snapshot takeSnapshot(const std::vector<std::string>& folders);

// Whether both have the same entries with the same essence.
bool sameEssence(const Snapshot& first, const Snapshot& second);

// Whether everything in `now` was before or will be after, and what is in both is still there.
bool isBetween(const Snapshot& before, const Snapshot& now, const Snapshot& after);

// Whether each entry of `wanted` at and below `path` is in `now`, of the same essence, and there is one.
bool holdsAll(const Snapshot& now, const Snapshot& wanted, std::string_view path);

// Lines that tell how `now` differs from `before`.
std::string differences(const Snapshot& before, const Snapshot& now);

} // namespace folidex::test
