// What is settled about an item before the frameworks are let at it, by plain POSIX calls: they would follow, replace
// or empty what they were not meant to.
//
// Paths are file-system bytes without trailing slashes. `action` completes "could not …" in a failure's description: a bare
// verb.
#pragma once

#include "platform/outcome.h"
#include "platform/path_text.h"

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace platform::cocoa {

struct Item {
    std::string path;
    struct stat status {}; // its own, not that of what a link leads to
};

Outcome posixFailure(std::string_view action, const std::string& path, int error);

// Finds an item that is to be copied. With a slash at its end a path names folders and links to folders only
// (POSIX.1-2017, 4.13).
Outcome findItem(std::string_view action, PathView path, Item& item);

// The same for an item that is to leave its place, which no folder does by its own "." or "..".
Outcome findRemovableItem(std::string_view action, PathView path, Item& item);

// Settles where `source` goes: a name that isn't taken, in a folder that is there and isn't part of the source.
Outcome findTarget(std::string_view action, const Item& source, PathView path, std::string& target);

// A name in the same folder that nothing else uses.
std::string temporaryNameBeside(const std::string& target);

// Renames without replacing anything, in one step where the file system can. Answers 0 or the number of the error.
int renameExclusively(const std::string& from, const std::string& to);

// A file, folder or link: what a file manager copies by itself. Reading a FIFO would wait for a writer, and a device
// has no end.
inline bool isOrdinary(mode_t mode)
{
    return S_ISREG(mode) || S_ISDIR(mode) || S_ISLNK(mode);
}

// Makes a FIFO or device like the one described, with its owner where permitted, mode and times. Answers 0 or the
// number of the error: ENOTSUP for anything else.
int makeSpecialFile(const std::string& path, const struct stat& original);

// Waits until the volume that holds `path` is on its disk. Answers 0 or the number of the error.
int synchroniseVolume(const std::string& path);

} // namespace platform::cocoa
