// A place in a tree of folders, moved to by paths from the root: quick where one path is near the one before it.
#pragma once

#include "platform/posix/folder_stack.h"

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

namespace archiver {

// Links are never followed.
class TreeCursor {
public:
    // `root`: stays the caller's, and open.
    explicit TreeCursor(int root) : stack_(root) {}

    int folder() const { return stack_.folder(); }

    // Goes to a folder: "" (the root) or "a/b". With a mode, folders that are missing are made. Returns an errno value;
    // on failure it stands somewhere on the way.
    int go(std::string_view path, std::optional<mode_t> mode = std::nullopt);

private:
    int enter(const std::string& name, std::optional<mode_t> mode);

    platform::posix::FolderStack stack_;
    std::string path_;
};

// The path without its last component, and that component.
std::string_view folderOf(std::string_view path);
std::string nameOf(std::string_view path);

// Whether it is the path of something in the folder, however deep. Everything is in "".
bool isBelow(std::string_view path, std::string_view folder);

} // namespace archiver
