// Reads the names in a folder.
//
// Each system has its own way of filling the buffer: linux/directory_reader.cpp, macos/directory_reader.cpp.
#pragma once

#include <dirent.h>

#include <cstddef>
#include <memory>

namespace platform::posix {

enum class Names {
    asTheyAreRead, // however many there are, in little memory; what comes meanwhile may be among them
    allFirst, // what comes after the reading has begun to show entries isn't among them; takes memory for all names
    sorted,   // the same; a walk takes them in the order of their bytes, too
};

// The name points into the reader's buffer: valid until the next entry is read.
struct DirectoryEntry {
    const char* name = nullptr;      // zero-terminated bytes
    unsigned char type = DT_UNKNOWN; // DT_DIR, DT_REG, DT_LNK, …; DT_UNKNOWN where the file system doesn't say
};

class DirectoryReader {
public:
    // Goes on with another folder, which must be open for reading, not read yet, and stays the caller's.
    void start(int folder, Names names = Names::asTheyAreRead);

    // The next entry, "." and ".." left out; nullptr at the end and after a failure, which error() tells apart.
    const DirectoryEntry* next();

    // errno of the failed read; 0 when the folder was read to its end.
    int error() const { return error_; }

private:
    void fill();                                     // reads on, or sets isAtEnd_
    DirectoryEntry entryAt(const std::byte* record); // and goes on to the next record
    void reserve(std::size_t capacity);

    int folder_ = -1;
    Names names_ = Names::asTheyAreRead;
    bool isAtEnd_ = false;
    std::unique_ptr<std::byte[]> buffer_; // records of the system's shape
    std::size_t capacity_ = 0;
    std::size_t position_ = 0;
    std::size_t filled_ = 0;
    DirectoryEntry entry_;
    int error_ = 0;
};

} // namespace platform::posix
