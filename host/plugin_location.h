// Which plug-in file the host takes when none is named.
#pragma once

#include <filesystem>

namespace fmxhost {

// The variable FMXHOST_PLUGIN, else Folidex.fmx (on macOS Folidex.fmplugin) beside the host's executable where there is
// one, else where an installation puts it, whether or not it is there.
std::filesystem::path defaultPluginFile();

} // namespace fmxhost
