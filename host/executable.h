// This program's own file.
#pragma once

#include <filesystem>

namespace fmxhost {

// A path by which it can be started once more and examined; it may be a link. Empty where the system doesn't say.
std::filesystem::path executableFile();

} // namespace fmxhost
