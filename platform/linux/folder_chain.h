// The folders from the root of a tree down to where a walk is, and the names that it has still to visit.
//
// However deep the tree: no call nests, and only the innermost folders are kept open. An outer one is opened again
// through ".." when the walk comes back to it, and is taken for the same only if its device and inode are.
//
// Thread rule: a value belongs to one thread at a time.
#pragma once

#include "platform/linux/descriptor.h"
#include "platform/linux/folder_identity.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform::linux_os {

class FolderChain {
public:
    // `root`: a folder, open for reading.
    explicit FolderChain(Descriptor root);

    // The innermost folder.
    int current() const { return m_levels.back().folder.get(); }

    // Goes into a folder of the innermost one, never through a link. Answers an errno value; on failure nothing
    // changes.
    int enter(const char* name);

    // Goes back to the folder above, which must not be beyond the root; `left` is the folder that was left, still open.
    // Answers an errno value, ESTALE when the folder above isn't the one that the walk came through.
    int leave(Descriptor& left);

private:
    static constexpr std::size_t keptOpen = 32;

    struct Level {
        Descriptor folder;
        Identity identity; // known once the folder has been closed
    };

    std::vector<Level> m_levels;
    std::size_t m_firstOpen = 0;
};

// Names of one folder, packed so that a million of them take little more than their bytes. Last in, first out.
class PendingNames {
public:
    bool empty() const { return m_names.empty(); }
    void push(std::string_view name) { m_names.append(name).push_back('\0'); }
    std::string pop();

private:
    std::string m_names; // each followed by a zero, which no name contains
};

} // namespace platform::linux_os
