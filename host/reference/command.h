// fmxhost reference: writes the function reference of the plug-in that this repository builds.
#pragma once

#include "host/commands/command.h"

namespace fmxhost {

CommandBody declareReference(CLI::App& arguments);

} // namespace fmxhost
