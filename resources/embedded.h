// The resources that are part of the binary, where the plug-in is a single file. Their source is made at build time.
#pragma once

#include <span>
#include <string_view>

namespace resources {

struct Text {
    std::string_view key;
    std::u16string_view value;
};

extern const std::span<const Text> strings; // en.lproj/KORBFolidex.strings
extern const std::string_view zipFuncs;     // ZipFuncs.sh
extern const std::string_view archiver;     // folidex-archive, the program that it starts
extern const char* const archiverVersion;   // a digest of both, 16 hexadecimal digits

// Where the package has put script and program, without a slash at its end.
extern const char* const packageFolder;

} // namespace resources
