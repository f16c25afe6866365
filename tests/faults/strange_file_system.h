// A file system in user space that shows a folder and keeps to few of the customs: for what network, cloud and foreign
// file systems do. It has no unnamed files, no symbolic links, and doesn't tell what its entries are.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <thread>

struct fuse;

namespace folidex::test {

struct Strangeness {
    bool closeFails = false;        // with ENOSPC, and what was written is lost
    bool noExclusiveRename = false; // renameat2 with flags: EINVAL
    bool ignoresCase = false;       // of ASCII letters
    bool hardLinks = false;         // of which one that has lost its name can't be examined any more
    bool hidesOpenFiles = false;    // that are removed, until they are closed
    bool unstableInodes = false;    // each name has a number of its own
    bool oneNumber = false;         // all items have one, and two names
    bool cachesNames = false;       // what was there once seems to be there still
    bool readsShort = false;        // files end after half of their size
    bool neverRests = false;        // everything was changed just now, whenever it is looked at
    bool listsFew = false;          // three entries of a folder at a time
};

// Mounted while the object lives, served by a thread of this process; there can be one at a time. `folder` and
// `mountPoint`: absolute paths of folders. Errors: std::runtime_error.
class StrangeFileSystem {
public:
    StrangeFileSystem(const std::filesystem::path& folder, const std::filesystem::path& mountPoint,
                      Strangeness strangeness);
    ~StrangeFileSystem();
    StrangeFileSystem(const StrangeFileSystem&) = delete;
    StrangeFileSystem& operator=(const StrangeFileSystem&) = delete;

private:
    fuse* server_ = nullptr;
    std::thread thread_;
};

} // namespace folidex::test
