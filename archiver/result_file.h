// A file that a call makes: private and without a name until it is whole and on the disk, then in its place in one
// step.
//
// Written into an unnamed file of the destination (open(2), O_TMPFILE) where the file system has them, so that a kill
// leaves nothing; else a hidden item (platform/posix/names.h), which a later call removes.
#pragma once

#include "archiver/leftovers.h"
#include "platform/posix/descriptor.h"

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace archiver {

// The umask of whoever started this process. The first call, which has to come before any thread starts, takes it away:
// from then on what is made has the mode that it is made with.
mode_t callersMask();

// Writes all of it. Returns an errno value, 0 for success.
int writeAll(int file, std::span<const std::byte> bytes, std::uint64_t offset);

// Who may read a result: nobody who couldn't read all that it was made from. Starts with what the process's umask
// allows, and is narrowed by each source.
class Privacy {
public:
    Privacy();

    // Narrows it to who may read the open item: mode bits, and owner only where its access list or another group than
    // the result's will be makes that impossible to tell.
    void narrowTo(int item, const struct stat& status);

    // The mode of a result whose owner and group are the given one's.
    mode_t modeFor(const struct stat& result) const;

private:
    mode_t mode_;
    std::optional<gid_t> group_; // what others' rights or the group's were taken for: nobody else's group gets any
};

class ResultFile {
public:
    // `folder`: absolute path of the destination; `name`: the result's, there. A file that is there is replaced in the
    // end, a link as a link; a folder, a device or the source itself (`source`) is refused: unusableDestination.
    ResultFile(const std::string& folder, const std::string& name, const struct stat& source);
    ~ResultFile(); // whatever wasn't published is gone
    ResultFile(const ResultFile&) = delete;
    ResultFile& operator=(const ResultFile&) = delete;

    int descriptor() const { return item_.open.get(); }
    // The folder that holds it, open; for whoever must not pack the result itself.
    int folder() const { return folder_.get(); }

    // Appends. Failures: notWritten.
    void write(std::span<const std::byte> bytes);

    // Overwrites what is there already. Failures: notWritten.
    void writeAt(std::uint64_t offset, std::span<const std::byte> bytes);

    // How many bytes have been appended.
    std::uint64_t size() const { return size_; }

    // Sets the mode (no access list that the destination hands down stays), flushes, and gives it its name, flushed
    // too. What it replaces narrows its mode as a source does.
    void publish(const Privacy& privacy);

private:
    void make();
    void narrowToReplaced(Privacy& privacy) const;
    void giveName();
    void copyIntoNamed();
    void takeBack();

    platform::posix::Descriptor folder_;
    std::string name_;
    WorkItem item_; // its name is empty while the file has none
    std::uint64_t size_ = 0;
    bool isExchanged_ = false; // the item's name is that of what was replaced
    bool hasReplaced_ = false; // and of that nothing is left
};

} // namespace archiver
