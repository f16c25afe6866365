// A file system in user space that shows a folder and keeps to few of the customs: for what network, cloud and foreign
// file systems do.
#pragma once

#include <filesystem>
#include <string>

namespace folidex::test {

// Each off: it is as the folder's own, but for unnamed files, which it never has.
struct Strangeness {
    bool closeFails = false;        // with ENOSPC, and what was written is lost
    bool noExclusiveRename = false; // renameat2 with flags: EINVAL
    bool noHardLinks = false;       // EPERM
    bool ignoresCase = false;       // of ASCII letters
    bool unstableInodes = false;    // each spelling of a name has a number of its own
};

// Mounted while the object lives, served by a child process. `folder` and `mountPoint`: absolute paths of folders.
// problem() says why there is no mount, for a test that is skipped then; empty when there is one.
class StrangeFileSystem {
public:
    StrangeFileSystem(const std::filesystem::path& folder, const std::filesystem::path& mountPoint,
                      Strangeness strangeness);
    ~StrangeFileSystem();
    StrangeFileSystem(const StrangeFileSystem&) = delete;
    StrangeFileSystem& operator=(const StrangeFileSystem&) = delete;

    const std::string& problem() const { return problem_; }

private:
    std::string problem_;
    std::string mountPoint_;
    int server_ = -1;
};

} // namespace folidex::test
