// The bytes of one file into another: as a clone that shares them, by the kernel's own copy, or through a buffer.
#pragma once

#include "platform/posix/failure.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <optional>

namespace platform::linux_os {

// Remembers from file to file what the file systems can't do, and keeps the buffer.
class DataCopier {
public:
    // Fills the empty file `target` with the content of the regular file `source`, holes as holes. `status`: the
    // source's, taken after it was opened. A source that grows meanwhile is copied up to the size in `status`; one
    // whose content ends earlier, to its end; one of size 0 (as files of proc(5) say), to wherever its end is.
    // `copied`: how far it came, if `status` gives a size.
    posix::Failure copy(int source, int target, const struct stat& status, off_t& copied);

private:
    bool cloned(int source, int target, const struct stat& status);
    posix::Failure copyUnsized(int source, int target);
    posix::Failure copySparse(int source, int target, off_t& reached, off_t size);
    posix::Failure copyRange(int source, int target, off_t& position, off_t end);
    posix::Failure copyThroughBuffer(int source, int target, off_t& position, off_t end);
    bool copyInKernel(int source, int target, off_t& position, off_t end, posix::Failure& failed);
    std::byte* buffer();

    std::unique_ptr<std::byte[]> buffer_;
    std::optional<dev_t> deviceWithoutClones_; // of the source last tried in vain
};

} // namespace platform::linux_os
