// Processes that a plug-in starts and leaves behind.
#pragma once

#include <cstddef>
#include <optional>

namespace fmxhost::check {

// From now on this process is the parent of whatever its descendants leave behind, so that a daemon can be found.
// Does nothing where the operating system has no such thing.
void adoptOrphans();

// How many children this process has, ended ones that nobody waited for included. Empty: not known.
std::optional<std::size_t> childProcesses();

// Kills and reaps all children of this process, and theirs in turn, as far as they are known.
void endChildProcesses();

} // namespace fmxhost::check
