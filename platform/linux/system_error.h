// Failures of system calls in words for a person.
//
// Thread rule: any thread.
#pragma once

#include "platform/outcome.h"

#include <string_view>

namespace platform::linux_os {

// "could not copy /a/b: No space left on device": `action` is a verb with its object's place left to `path` (file
// system bytes); bytes that aren't UTF-8 are replaced. `error`: an errno value, in the words of the process's locale.
Outcome systemFailure(std::string_view action, std::string_view path, int error);

// The same with a reason of our own.
Outcome failure(std::string_view action, std::string_view path, std::string_view reason);

} // namespace platform::linux_os
