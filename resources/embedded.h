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

} // namespace resources
