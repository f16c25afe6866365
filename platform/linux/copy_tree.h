// Copies everything below one open folder into another.
//
// Thread rule: any thread.
#pragma once

#include "platform/linux/copy_entry.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/folder_identity.h"
#include "platform/outcome.h"

#include <string_view>

namespace platform::linux_os {

// A copy that is half of a move refuses at once what couldn't be removed afterwards.
enum class CopyPurpose { copy, move };

inline const char* actionOf(CopyPurpose purpose)
{
    return purpose == CopyPurpose::copy ? "copy" : "move";
}

// `source`: open for reading; `target`: empty, and so that nobody else can get into it until the copy is whole. Both
// stay the caller's, and are paths in file-system bytes where texts, for messages. `forbidden`: the folder that the
// copy will end up in; meeting it in the source is a failure, as the copy would then hold itself. Files with several
// hard links become files of their own. The target gets the source's metadata last.
Outcome copyTree(CopyPurpose purpose, int source, int target, std::string_view sourcePath, std::string_view targetPath,
                 Identity forbidden);

} // namespace platform::linux_os
