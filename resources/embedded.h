// The resources that are part of the binary, where the plug-in is a single file.
//
// Thread rule: constant data.
#pragma once

#include <string_view>

namespace resources {

extern const std::string_view stringsTable; // en.lproj/KORBFolidex.strings
extern const std::string_view zipFuncs;     // ZipFuncs.sh

} // namespace resources
