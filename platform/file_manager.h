// Files and folders: what the functions ask of an operating system's file services, with the outcomes of a Mac's
// file manager on every platform.
//
// Paths are UTF-16; relative ones start at the process's current folder; a path that isn't valid UTF-16 or holds a
// NUL names nothing that exists. Failures come back as an Outcome whose description names the path that failed.
// Allocation failures are thrown (std::bad_alloc), with everything that the call had made so far cleaned up.
//
// A call survives others changing the same files: it may fail then, but never acts outside the tree that it was given.
#pragma once

#include "platform/outcome.h"
#include "platform/path_text.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace platform {

struct Existence {
    bool exists = false;
    bool isFolder = false; // false when nothing exists
};

// Whether something is at `path`. Links are followed: a dangling link doesn't exist.
Existence existence(PathView path);

// Seconds since 1970-01-01 00:00 UTC, rounded towards the past (a fraction before 1970 belongs to the earlier second).
using UnixTime = std::int64_t;

// Of the item itself; a link's own, not its target's.
struct Attributes {
    std::uint64_t size = 0;               // bytes
    std::optional<UnixTime> creationDate; // empty where the file system keeps none
    std::optional<UnixTime> modificationDate;
};

// Empty when the item can't be examined.
std::optional<Attributes> attributes(PathView path);

// Last access of what `path` leads to, links followed (stat(2), st_atim); 0 when stat fails.
UnixTime accessTime(PathView path);

// One entry of a folder. `name`: the file system's own bytes, usually UTF-8, valid during the call only.
using EntryVisitor = std::function<void(std::string_view name, bool isFolder)>;

// Shows the entries that lie directly in the folder, hidden ones included, "." and ".." not, in the order in which
// the file system lists them. An entry is a folder when it is one or is a link that leads to one, and when that can be
// seen: in a folder that may be read but not searched nothing is. A failure may come after some entries were shown.
Outcome listFolder(PathView folder, const EntryVisitor& visitor);

// Adds up the sizes in bytes of everything below the folder, at every depth, sub-folders' own sizes included. Links
// count with the size of what they lead to but are not walked into. An entry that can be listed but not examined adds
// 0; a sub-folder that can't be read is a failure that names it.
Outcome sumFolderSizes(PathView folder, std::uint64_t& bytes);

// What becomes of an item that is at the target already.
enum class Existing {
    refused,  // nothing is ever replaced
    replaced, // it is removed first, a folder with everything in it, and stays removed should the rest fail
};

// Copies a file, a link (as a link) or a whole folder to `target`.
// The item appears at `target` whole or not at all, also after a crash, a kill or a full disk, and a failed copy
// leaves nothing behind. Kept are mode with set-id bits, times, extended attributes and access control lists, the
// owner where permitted, and holes. Data is cloned where the file system can. A folder into itself is refused.
// Sockets are refused; FIFOs and devices are made anew, never read. Files of a folder that are one file by several
// names (hard links) are so in its copy, where the file system can. An entry that vanishes while its folder is copied
// is left out.
//
// Every file that was written has been closed, and the closing found to succeed (close(2): where quotas and network
// file systems report what they couldn't keep), before the copy appears. A copy that replaces something is on the disk
// with its name before success is returned; other copies aren't synchronised.
//
// A replaced item first loses its name. Should the source then be found missing, as where two spellings mean one file,
// the item gets its name back and the call fails. A source that couldn't be read, or removed for a move, is refused
// before. What removalTakesAway() can see beforehand is the caller's to refuse.
//
// A target path that is longer than paths can be (PATH_MAX) is refused, for nothing could reach what is there.
//
// Linux: a set-id bit goes where the owner or group that it is about can't be kept. docs/guarantees.md says what a
// process that is killed leaves behind.
Outcome copyItem(PathView source, PathView target, Existing existing = Existing::refused);

// Moves an item to `target`. Within a file system that is one rename; where the system can't rename (another file
// system, a folder of an overlay's lower layer), the copy is complete and on disk before the source goes. What replaces
// something is on the disk with its name in both cases. After a failure the source is whole, but for a folder whose
// removal was stopped.
//
// A source that goes after its copy goes entry by entry. Each is compared with what was copied (there, kind, size,
// times) right before it is removed, and the first that differs stops the removal and is named; what wasn't copied is
// never removed. A source that was seen to change before anything was removed is left whole, and no copy appears. What
// couldn't be removed is refused before anything is copied, and, where that can be seen (Linux: fcntl(2), F_SETLEASE),
// a file that somebody has open for writing.
Outcome moveItem(PathView source, PathView target, Existing existing = Existing::refused);

// Removes a file, a link or a folder with everything in it. Links are never followed. Stops at the first entry that
// can't be removed; the description names that entry's path. What is mounted inside is such an entry and stays full.
Outcome removeItem(PathView path);

// Makes a folder (mode 0777 less the umask) with the missing folders above it. A folder that is there already is no
// failure.
Outcome createFolder(PathView path);

// Whether removing what is at `removed` would take `kept` away: the same item under another spelling, a folder that
// holds it, or either of these for what `kept` leads to, link by link. A second hard link of `kept` and a link that
// leads to it are items of their own. What can't be found out counts as taken away: the result decides what may be
// removed.
bool removalTakesAway(PathView removed, PathView kept);

} // namespace platform
