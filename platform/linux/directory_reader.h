// Reads a folder's entries straight from the kernel (getdents64(2)), many to a call.
//
// Thread rule: a reader belongs to one thread at a time.
#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform::linux_os {

// The name points into the reader's buffer: valid until the next call of next().
struct DirectoryEntry {
    const char* name = nullptr; // zero-terminated bytes
    std::size_t nameLength = 0; // bytes
    ino64_t inode = 0;
    off64_t following = 0;           // where lseek(2) resumes behind this entry, also on a descriptor opened later
    unsigned char type = DT_UNKNOWN; // DT_DIR, DT_REG, DT_LNK, …; DT_UNKNOWN where the file system doesn't say
};

class DirectoryReader {
public:
    // 256 KiB hold some 8,000 entries of usual names. Deep walks, which keep many readers, take less.
    static constexpr std::size_t wideBuffer = std::size_t{256} * 1024;
    static constexpr std::size_t deepBuffer = std::size_t{32} * 1024;

    // Doesn't own the descriptor, which must be a folder open for reading.
    explicit DirectoryReader(int folder, std::size_t bufferSize = wideBuffer);

    // The next entry, "." and ".." left out; nullptr at the end and after a failure, which error() tells apart.
    const DirectoryEntry* next();

    // errno of the failed read; 0 when the folder was read to its end.
    int error() const { return m_error; }

private:
    bool fill();

    int m_folder;
    std::size_t m_bufferSize;
    std::unique_ptr<std::byte[]> m_buffer;
    std::size_t m_position = 0;
    std::size_t m_filled = 0;
    DirectoryEntry m_entry;
    int m_error = 0;
};

} // namespace platform::linux_os
