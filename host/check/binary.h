// What the dynamic loader reads of a library file: its exports and what it needs.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace fmxhost::check {

struct NeededVersion {
    std::string library;
    std::string version; // of its symbols, such as "GLIBC_2.34"
};

struct Binary {
    std::vector<std::string> exports; // without the names that the linker itself makes
    std::vector<std::string> neededLibraries;
    std::vector<NeededVersion> neededVersions; // none on macOS
    std::vector<std::string> searchPaths;      // folders where it wants them to be looked for
};

// The file isn't what it should be; what() says how.
class BinaryError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Of the kind that this system loads, for this machine: ELF on Linux, Mach-O on macOS.
// Errors: BinaryError, also for a file that claims what it doesn't hold; std::system_error when it can't be read.
Binary readBinary(const std::filesystem::path& file);

} // namespace fmxhost::check
