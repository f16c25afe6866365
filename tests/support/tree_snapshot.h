// Everything that an item and what is below it are, to compare copies with their sources, and one moment with another.
#pragma once

#include <filesystem>
#include <map>
#include <ostream>
#include <string>

namespace folidex::test {

struct SnapshotEntry {
    std::string content;  // kind, and a link's text, a device's number or, in short, a file's bytes
    std::string metadata; // mode, owner, extended attributes
    std::string modified; // to the nanosecond; empty on macOS

    friend bool operator==(const SnapshotEntry&, const SnapshotEntry&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const SnapshotEntry& entry)
    {
        return stream << entry.content << ", " << entry.metadata << ", " << entry.modified;
    }
};

using Snapshot = std::map<std::string, SnapshotEntry>; // by path

// By path below `root` ("" for itself). Links aren't followed.
Snapshot snapshot(const std::filesystem::path& root);

} // namespace folidex::test
