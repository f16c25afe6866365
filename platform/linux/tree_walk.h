// Walks the folders of a tree, from an open root down and back, for whoever copies, removes or adds up what is in them.
//
// However deep the tree: no call nests, and only the innermost folders are kept open. An outer one is opened again
// through ".." when the walk comes back to it, and is taken for the same only if its device and inode are. However
// wide: of a folder's entries only the names of its folders are kept, until the walk has visited them.
//
// Nothing is followed: what a link has taken the place of isn't entered.
#pragma once

#include "platform/linux/descriptor.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform::linux_os {

// Which item an item is, whatever path led to it.
struct Identity {
    dev_t device = 0;
    ino_t inode = 0;

    static Identity of(const struct stat& status) { return {status.st_dev, status.st_ino}; }
    bool operator==(const Identity&) const = default;
};

// Whether the open folder is `ancestor` or lies anywhere below it, by the folders that hold it, not by any path's text.
// Nothing when a folder above can't be examined.
std::optional<bool> isInside(int folder, Identity ancestor);

// The name points into the reader's buffer: valid until the next entry is read.
struct DirectoryEntry {
    const char* name = nullptr;      // zero-terminated bytes
    unsigned char type = DT_UNKNOWN; // DT_DIR, DT_REG, DT_LNK, …; DT_UNKNOWN where the file system doesn't say
};

// Reads folders' entries straight from the kernel (getdents64(2)), some 8,000 of usual names to a call.
class DirectoryReader {
public:
    // Goes on with another folder, which must be open for reading and stays the caller's.
    void start(int folder);

    // The next entry, "." and ".." left out; nullptr at the end and after a failure, which error() tells apart.
    const DirectoryEntry* next();

    // errno of the failed read; 0 when the folder was read to its end.
    int error() const { return error_; }

private:
    bool fill();

    int folder_ = -1;
    std::unique_ptr<std::byte[]> buffer_;
    std::size_t position_ = 0;
    std::size_t filled_ = 0;
    DirectoryEntry entry_;
    int error_ = 0;
};

class TreeWalk {
public:
    // `root`: a folder, open for reading.
    explicit TreeWalk(Descriptor root);

    // The innermost folder.
    int folder() const { return levels_.back().folder.get(); }
    bool isAtRoot() const { return levels_.size() == 1; }

    // Of the innermost folder, below the root: "" or "/a/b"; and of one of its entries.
    const std::string& path() const { return path_; }
    std::string pathOf(std::string_view name) const { return path_ + "/" + std::string(name); }

    // Keeps the name of a folder of the innermost one, to be visited later.
    void keep(std::string_view name) { levels_.back().kept.append(name).push_back('\0'); }

    // A kept name, which is kept no longer; nothing when the innermost folder has none left.
    std::optional<std::string> takeKept();

    // Goes into a folder of the innermost one. Answers an errno value; on failure nothing changes.
    int enter(const std::string& name);

    // Goes back to the folder above, which must not be beyond the root; answers the folder that was left, still open,
    // or none with an errno value in `error`: ESTALE when the folder above isn't the one that the walk came through.
    Descriptor leave(int& error);

    // Of the folder that the last leave() left.
    const std::string& leftName() const { return leftName_; }

private:
    // Of two walks side by side, with what else a copy has open, fits into 40 descriptors.
    static constexpr std::size_t keptOpen = 12;

    struct Level {
        Descriptor folder;
        std::size_t pathLength = 0; // of path_ with this folder
        std::string kept;           // names, each followed by a zero, which no name contains
        Identity identity;          // known once the folder has been closed
    };

    std::vector<Level> levels_;
    std::size_t firstOpen_ = 0;
    std::string path_;
    std::string leftName_;
};

} // namespace platform::linux_os
