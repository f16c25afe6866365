// A command of fmxhost, and the ones there are.
#pragma once

#include "host/context.h"
#include "host/exit_status.h"

#include <functional>

namespace CLI {
class App;
}

namespace fmxhost {

using CommandBody = std::function<ExitStatus(Context&)>;

struct Command {
    const char* name;
    const char* summary;
    // Adds the command's own arguments to its part of the command line and answers what runs it once they are read.
    CommandBody (*declare)(CLI::App& arguments);
};

CommandBody declareRun(CLI::App& arguments);
CommandBody declareList(CLI::App& arguments);
CommandBody declareSteps(CLI::App& arguments);
CommandBody declareStrings(CLI::App& arguments);
CommandBody declareHelp(CLI::App& arguments);

} // namespace fmxhost
