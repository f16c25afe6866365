// Mounted volumes and their sizes.
#pragma once

#include "platform/path_text.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

// Display names (UTF-16) of the local volumes that are mounted and respond, in the order of mounting. Network file
// systems are left out before anything is asked of them, so that a dead server can't hold the caller. Empty when
// the list of mounts can't be had.
std::optional<std::vector<std::u16string>> mountedLocalVolumeNames();

struct VolumeSpace {
    std::int64_t total = 0; // bytes
    std::int64_t free = 0;  // bytes that an ordinary user can still write
};

// Of the volume that holds `path`; empty when it can't be asked.
std::optional<VolumeSpace> volumeSpace(PathView path);

} // namespace platform
