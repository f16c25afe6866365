// fmxhost check: examines a plug-in as its users' FileMaker would.
#pragma once

#include "host/commands/command.h"

namespace fmxhost {

CommandBody declareCheck(CLI::App& arguments);

} // namespace fmxhost
