// Removes what an entry of an open folder is: a file, a link, a folder with everything in it.
//
// Thread rule: any thread.
#pragma once

#include "platform/outcome.h"

#include <string_view>

namespace platform::linux_os {

// Never follows a link and never empties what is mounted inside: a mount's root answers "busy" before anything in it is
// touched. Stops at the first entry that can't be removed. `path`: of the entry, in file-system bytes, for messages.
Outcome removeEntry(int folder, const char* name, std::string_view path);

// Takes away what a call has made itself, folders without write permission included, where nobody listens for a
// failure. Keeps errno.
void discardEntry(int folder, const char* name) noexcept;

} // namespace platform::linux_os
