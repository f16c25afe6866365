// One walk through a tree of folders, for whoever copies, removes, packs or adds up what is in it.
//
// However deep the tree: no call nests, and few descriptors are open (folder_stack.h). However wide: of a folder's
// entries only the names of its folders are kept, until they have been visited, unless all names are wanted first.
// Links aren't followed. What is mounted inside is walked like any other folder.
#pragma once

#include "platform/posix/copy_record.h"
#include "platform/posix/descriptor.h"
#include "platform/posix/directory_reader.h"
#include "platform/posix/failure.h"

#include <sys/stat.h>

#include <cstddef>
#include <string>

namespace platform::posix {

// Valid during a visitor's call only.
struct TreeEntry {
    int folder;         // the open folder that holds it
    const char* name;   // there; of the root whatever the walk was told
    unsigned char type; // DT_DIR, DT_REG, DT_LNK, …; DT_UNKNOWN only where it couldn't be examined
    std::size_t depth;  // 0 for the root

    // Below the root: "" for the root itself, or "/a/b". Built when it is asked for.
    std::string path() const;
    std::string folderPath() const { return walkPath->substr(0, folderPathLength); }
    Place place() const;

    bool isRoot() const { return depth == 0; }

    // The status of the entry itself, a link's own.
    Failure examine(struct stat& status) const;

    const std::string* walkPath = nullptr; // begins with the folder's
    std::size_t folderPathLength = 0;
    Place folderPlace = rootPlace;
};

// What is done on the way. A failure ends the walk; one that names no path gets the entry's.
class TreeVisitor {
public:
    virtual ~TreeVisitor() = default;

    // An entry that isn't a folder.
    virtual Failure visit(const TreeEntry& entry) = 0;

    enum class Choice { enter, skip };

    // A folder that is about to be opened.
    virtual Failure choose(const TreeEntry& folder, Choice& choice);

    // It is open, `opened`, and nothing of it has been read.
    virtual Failure enter(const TreeEntry& folder, int opened);

    enum class Next { go, repeat };

    // All that was in it has been visited; `left` is the folder, still open. With Next::repeat it is chosen anew.
    virtual Failure leave(const TreeEntry& folder, int left, Next& next);

    // An entry couldn't be examined, or a folder not be opened, read or come back from (ESTALE: it was moved). By
    // default a failure of the source; without one the walk goes on, and a folder that was entered is left.
    virtual Failure failed(const TreeEntry& entry, int error);

protected:
    TreeVisitor() = default;
    TreeVisitor(const TreeVisitor&) = default;
    TreeVisitor& operator=(const TreeVisitor&) = default;
};

// Visits what is at `name` in the open folder (or AT_FDCWD), and everything in it: of each folder first what isn't a
// folder, in the order of reading, then its folders.
Failure walkTree(int folder, const char* name, TreeVisitor& visitor, Names names = Names::asTheyAreRead);

// The same for a folder that is open for reading; it isn't chosen, and has no name.
Failure walkFolder(Descriptor root, TreeVisitor& visitor, Names names = Names::asTheyAreRead);

} // namespace platform::posix
