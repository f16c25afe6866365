// Reads the command line and does what it asks for.
#pragma once

#include "host/commands/command.h"

#include <span>

namespace fmxhost {

// Runs fmxhost with these commands; answers the exit status.
int runCommandLine(int argumentCount, const char* const* arguments, std::span<const Command> commands);

} // namespace fmxhost
