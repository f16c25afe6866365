// The folders from a place in the file system down to one that is worked in, however deep: only the innermost ones are
// kept open. An outer one is opened again through ".." when it is come back to, and is taken for the same only if its
// device and inode are.
//
// Nothing is followed: what a link has taken the place of isn't entered.
#pragma once

#include "platform/posix/descriptor.h"
#include "platform/posix/identity.h"

#include <cstddef>
#include <string>
#include <vector>

namespace platform::posix {

class FolderStack {
public:
    // `base`: what the first folder is entered from, AT_FDCWD included. Stays the caller's, and open.
    explicit FolderStack(int base) : base_(base) {}

    // The innermost folder; the base while none was entered.
    int folder() const { return levels_.empty() ? base_ : levels_.back().folder.get(); }
    std::size_t depth() const { return levels_.size(); }

    // Goes into a folder of the innermost one. Returns an errno value; on failure nothing changes.
    int enter(const std::string& name);

    // The same with a folder that is open already.
    int enter(std::string name, Descriptor folder);

    // Goes back to the folder above. Returns the folder that was left, still open, or an empty one with an errno value
    // in `error`: ESTALE when the folder above isn't the one that was come through.
    Descriptor leave(int& error);

    // Of the innermost folder, which must not be the base.
    const std::string& name() const { return levels_.back().name; }

    // Of the folder that the last leave() left.
    const std::string& leftName() const { return leftName_; }

    // Of the innermost folder below the first that was entered: "" or "/a/b".
    const std::string& path() const { return path_; }

private:
    // Two side by side, with what else a copy has open, fit into 40 descriptors.
    static constexpr std::size_t keptOpen = 12;

    struct Level {
        Descriptor folder;
        std::string name;
        Identity identity{}; // known once the folder has been closed
    };

    int base_;
    std::vector<Level> levels_;
    std::size_t firstOpen_ = 0;
    std::string path_;
    std::string leftName_;
};

} // namespace platform::posix
