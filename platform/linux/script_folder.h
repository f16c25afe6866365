// Where the archive script and its program are when they are started: both are embedded in the plug-in, but a shell and
// the system want files.
#pragma once

#include "platform/resources.h"

#include <optional>

namespace platform::linux_os {

// The first of these that will do:
//   - the package's folder, if both files are byte by byte the embedded ones, and nobody but root can change them
//   - a folder of this user's alone, where programs may run and nobody else can put another in its place: in his home
//     folder .cache/folidex or else /var/tmp/folidex-UID, and there one for each version; what isn't there or differs
//     from the embedded files is written anew
//   - memory, where children of this process can reach its descriptors
std::optional<ResourceFile> archiveScript();

} // namespace platform::linux_os
