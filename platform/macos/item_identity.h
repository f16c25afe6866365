// Which item an item is, whatever path led to it.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

namespace platform::macos {

// Whether the item that `path` (file-system bytes) names or would name is `folder` or lies in it, at any depth, links
// in the path followed up to its last component. Nothing when a folder above it can't be examined.
std::optional<bool> liesInside(const std::string& path, const struct stat& folder);

} // namespace platform::macos
