#include "platform/file_manager.h"

#include "platform/linux/staged_copy.h"

namespace platform {

using linux_os::Location;

Outcome copyItem(PathView source, PathView target)
{
    Location from;
    Location to;
    if (Outcome outcome = linux_os::locate("copy", source, from); !outcome.ok()) {
        return outcome;
    }
    if (Outcome outcome = linux_os::locate("write", target, to); !outcome.ok()) {
        return outcome;
    }
    linux_os::StagedCopy copy(from, to, linux_os::CopyPurpose::copy);
    if (Outcome outcome = copy.build(); !outcome.ok()) {
        return outcome;
    }
    return copy.publish();
}

} // namespace platform
