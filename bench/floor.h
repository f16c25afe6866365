// The fewest system calls that can do a function's work, on one thread: no checks, no texts, no promises. What a
// function takes beyond these is its own.
//
// Errors: std::system_error.
#pragma once

#include <cstdint>
#include <string>

namespace folidex::bench::floor {

// Entries of the folder that aren't folders, by the types in the directory.
std::uint64_t countFiles(const std::string& folder);

// Sizes of everything below the folder.
std::uint64_t sumSizes(const std::string& folder);

// Two stat(2) calls, of a path that exists and of one that doesn't; answers how many exist.
int statTwice(const char* first, const char* second);

// A file with its data, through copy_file_range(2).
void copyFile(const std::string& source, const std::string& target);

// A folder with all that is in it: data and modes, nothing else.
void copyTree(const std::string& source, const std::string& target);

void removeTree(const std::string& folder);

} // namespace folidex::bench::floor
