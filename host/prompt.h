// The prompt at a terminal.
#pragma once

#include "host/session.h"

namespace fmxhost {

// Reads calculations and commands with editing, history and completion, and evaluates them until Ctrl-D or "quit". An
// error in a calculation doesn't end it. Ctrl-C gives up what is being typed; while a calculation is evaluated it goes
// to what the plug-in has started, and fmxhost stays. Call it once in the process.
// Errors: PluginError when the plug-in can't be loaded; OutputError.
ExitStatus runPrompt(Session& session);

} // namespace fmxhost
