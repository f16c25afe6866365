// How items get their names: hidden ones for what is on its way, and final ones in one step, never in the place of
// something else.
//
// Integers that are returned are errno values, 0 for success.
#pragma once

#include <string>

namespace platform::posix {

// Every temporary name begins with it.
inline constexpr const char* temporaryPrefix = ".folidex-";

// A name that nothing has: the prefix and 16 random characters.
std::string temporaryName();

// Renames an entry; EEXIST when the target exists. Folders: open, or AT_FDCWD.
//
// Where the file system can't refuse to replace (many FUSE file systems, NFS, exFAT, SMB), anything but a folder is
// linked and then unlinked, which never replaces either. Where there are no hard links, and for folders, the name is
// claimed first, by a new empty file or folder of our own that the rename then replaces.
int renameExclusively(int fromFolder, const char* from, int toFolder, const char* to);

// Two entries exchange their names in one step. Not every file system can (EINVAL).
int exchange(int fromFolder, const char* from, int toFolder, const char* to);

// Takes an item's name away, and gives it back in the end, also to what is left of the item, unless it is gone by then.
class Hiding {
public:
    // `hidden`: a temporary name in the same folder; empty to leave the item its own. The texts must outlive the value.
    Hiding(int folder, const char* name, const std::string& hidden) noexcept;
    ~Hiding();
    Hiding(const Hiding&) = delete;
    Hiding& operator=(const Hiding&) = delete;

    // The item's name now.
    const char* name() const { return isHidden_ ? hidden_ : name_; }

    // The errno value with which it couldn't be hidden; 0 when it is, or was to keep its name.
    int error() const { return error_; }

    void itemIsGone() { isHidden_ = false; }

private:
    int folder_;
    const char* name_;
    const char* hidden_;
    bool isHidden_ = false;
    int error_ = 0;
};

} // namespace platform::posix
