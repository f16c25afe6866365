// fmxhost check: a conformity check for any plug-in.
#pragma once

#include "host/commands/command.h"

namespace fmxhost {

CommandBody declareCheck(CLI::App& arguments);

} // namespace fmxhost
