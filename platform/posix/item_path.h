// A path split where work on an item begins: the folder that holds it, and its name there. From the open folder on,
// everything is relative to descriptors, so that renaming a folder further up can't lead the work astray.
#pragma once

#include "platform/outcome.h"
#include "platform/path_text.h"
#include "platform/posix/descriptor.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform::posix {

struct ItemPath {
    std::string text;         // the whole path in file-system bytes, trailing slashes left out; for messages too
    std::string folder;       // "." when the path is a bare name
    std::string name;         // never empty: "." for "/"
    bool endsInSlash = false; // such a path names folders only (POSIX.1-2017, 4.13)

    // Empty for a text that names nothing that can exist (invalid UTF-16, a NUL, no text at all).
    static std::optional<ItemPath> of(PathView path);
    static std::optional<ItemPath> ofBytes(std::string path);

    // "." and "..": names that belong to a folder from inside, by which it can be neither moved nor removed.
    bool namesItself() const { return name == "." || name == ".."; }
};

// What the link at `name` in the open folder, or AT_FDCWD, says (readlink(2)); empty with errno.
std::optional<std::string> readLink(int folder, const char* name);

// An item's place: its path, and the folder that holds it, open as a place (descriptor.h).
struct Location {
    ItemPath path;
    Descriptor folder;
};

// Finds the place of what `path` names, whether or not anything is there. `action`: as in systemFailure().
Outcome locate(std::string_view action, PathView path, Location& location);

// The failure for a text that ItemPath::of() refuses. `action`: as in systemFailure().
Outcome nothingThere(std::string_view action, PathView path);

} // namespace platform::posix
