// The file that a call reads: opened once, and only that descriptor is read, whatever its path leads to by then.
#pragma once

#include "platform/posix/descriptor.h"

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace archiver {

// Opens an item for reading, of whatever kind it may be by now, without what opening can bring with it: a FIFO isn't
// waited for, a terminal doesn't become the process's. Somebody's lease on a file (fcntl(2)) is waited for, which the
// system limits. `flags`: O_NOFOLLOW or none. Empty with errno on failure.
platform::posix::Descriptor openForReading(int folder, const char* name, int flags = 0);

// Thread rule: read() may be called by several threads at once.
class SourceFile {
public:
    // Opens a regular file; a link is followed. Failures: unusableSource.
    explicit SourceFile(const std::string& path);

    // As it was when it was opened, in bytes.
    std::uint64_t size() const { return static_cast<std::uint64_t>(status_.st_size); }
    const struct stat& status() const { return status_; }
    int descriptor() const { return file_.get(); }

    // Fills the buffer from `offset` on. A read error and an end before the buffer is full are failures:
    // unusableSource.
    void read(std::uint64_t offset, std::span<std::byte> buffer) const;

    // Fails (unusableSource) when size, time of modification or time of last change aren't what they were when it was
    // opened.
    void requireUnchanged() const;

private:
    platform::posix::Descriptor file_;
    struct stat status_ {};
};

} // namespace archiver
