// fmxhost: a host for FileMaker plug-ins without FileMaker.
//
//   plugin, value, unicode       loading a plug-in and calling it
//   calculation/                 the language of calculations
//   calculation_runner, result_writer, output, context
//   commands/                    one file a command
//   check/                       examining whether a plug-in keeps the interface's rules
//   reference/                   the function reference of this repository's plug-in
//   terminal/                    prompt, spinner, colours
#include "host/check/check.h"
#include "host/command_line.h"
#include "host/reference/command.h"

int main(int argumentCount, char** arguments)
{
    using namespace fmxhost;
    static constexpr Command commands[] = {
        {"run", "Evaluate the calculations of a file, one a line", declareRun},
        {"list", "List the functions that the plug-in registers", declareList},
        {"steps", "List the script steps that the plug-in registers", declareSteps},
        {"strings", "Show what the plug-in answers to string requests", declareStrings},
        {"help", "Explain a function, or how calculations are written", declareHelp},
        {"check", "Examine whether the plug-in keeps the rules of FileMaker's interface", declareCheck},
        {"reference", "Write the reference of the functions", declareReference},
    };
    return runCommandLine(argumentCount, arguments, commands);
}
