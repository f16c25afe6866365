// What a plain server has of libraries: the measure for "needs no library that a server lacks".
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fmxhost::check {

// Whether every server has the library of that name (DT_SONAME, on macOS its install name), FileMaker's own included.
bool isServerLibrary(std::string_view name);

// The newest version of the kind ("GLIBC_2.35" for "GLIBC_2.38") that every server's library has, when the version that
// is asked for is newer than that.
std::optional<std::string> newestVersionIfNewer(std::string_view version);

// Whether a folder of a library search path is the server's own rather than one of the machine that built the file.
bool isServerFolder(std::string_view folder);

} // namespace fmxhost::check
