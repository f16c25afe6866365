// The prompt at a terminal.
#pragma once

#include "host/context.h"
#include "host/exit_status.h"

namespace fmxhost {

// Reads calculations and evaluates them until Ctrl-D or "quit"; "help" and "help FUNCTION" explain. An error in a
// calculation doesn't end it. Ctrl-C gives up the line; while a calculation is evaluated it ends the host.
// Errors: PluginError when the plug-in can't be loaded; OutputError.
ExitStatus runPrompt(Context& context);

} // namespace fmxhost
