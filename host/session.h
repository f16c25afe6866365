// One run of fmxhost: its options, its plug-in, the calculations that are evaluated with it, and the other commands.
#pragma once

#include "host/base/output.h"
#include "host/base/plugin.h"
#include "host/calculation/evaluate.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fmxhost {

struct Options {
    std::filesystem::path pluginFile; // empty: the variable FMXHOST_PLUGIN, else the default
    std::int16_t apiVersion = defaultApiVersion;
    bool json = false;
    bool time = false;
    ParserOptions parser;
};

// The one that the options name, else that of the variable FMXHOST_PLUGIN, else the default: by its file name beside
// fmxhost, where there is one, else where an installation puts it.
// Errors: PluginError when that isn't there.
std::filesystem::path pluginFile(const Options& options);

class Session {
public:
    // Loads and starts the plug-in; it stays to the end. The options must outlive the session.
    // Errors: PluginError.
    explicit Session(const Options& options);

    Plugin& plugin() { return plugin_; }
    const FunctionTable& functions() const { return functions_; }
    const Variables& variables() const { return variables_; }
    bool json() const { return options_.json; }

    // Evaluates a calculation and writes the result, as plain text or JSON as the options say, at once; with the option
    // `time` the time to standard error. An error in the calculation goes to standard error with the place pointed at,
    // as JSON into the output too; the status says which kind it was. `origin` is where the calculation comes from: a
    // file, "-e 2" or nothing, and its line in the file, from 1, or 0.
    // Errors: OutputError.
    ExitStatus run(std::string_view calculation, const std::string& origin, std::size_t line = 0);

private:
    void fail(std::string_view calculation, const std::string& origin, std::size_t line, const CalculationError& error);

    const Options& options_;
    Plugin plugin_;
    FunctionTable functions_;
    Variables variables_;
};

// ---- What fmxhost can be asked to do. Errors, of each: PluginError when an exception leaves the plug-in; OutputError.

// commands.cpp: what the plug-in registers and returns for string requests. As JSON one object a line.
ExitStatus listFunctions(Session& session);
ExitStatus listSteps(Session& session);
ExitStatus showStrings(Session& session);

// Explains a function; of a word that is none, the functions that it finds; of nothing, how calculations are written.
ExitStatus help(Session& session, std::string_view word);

// session.cpp: the calculations of -e; of a file, where "-" is standard input. The first one with an error is the last.
ExitStatus evaluateAll(Session& session, const std::vector<std::string>& calculations);
ExitStatus runFile(Session& session, const std::string& file);

// Standard input, which isn't a terminal, as if it were typed at the prompt: an error in a calculation doesn't end it.
// Returns the status of the first one that failed; without a line there is nothing to do.
ExitStatus runPiped(Session& session);

// prompt.cpp: reads calculations and commands at a terminal with editing, history and completion, and evaluates them
// until Ctrl-D or "quit". An error in a calculation doesn't end it. Ctrl-C gives up what is being typed; while a
// calculation is evaluated it goes to what the plug-in has started, and fmxhost stays. Call it once in the process.
ExitStatus runPrompt(Session& session);

constexpr const char* nothingToDo =
    "There is nothing to do: give -e, a command, or calculations on standard input, or start it at a terminal.\n"
    "fmxhost --help says how it is used.";

// Calculations from lines: one goes on over the following lines while brackets, a text or a comment are open. Between
// them blank lines, comments and lines that begin with "#" are left out.
class Lines {
public:
    // `name`: of the file, for messages. `takesCommands`: "help", "list", "steps", "quit" are none of the calculations.
    Lines(Session& session, std::string name, bool takesCommands)
        : session_(session), name_(std::move(name)), takesCommands_(takesCommands)
    {
    }

    // Runs what the line completes; success where there is nothing to run yet.
    ExitStatus take(std::string line);

    // The last line was taken: what is still open is an error.
    ExitStatus finish();

    // Whether a calculation goes on: its text so far; empty where none does.
    const std::string& begun() const { return calculation_; }
    void giveUp() { calculation_.clear(); }

    bool hasQuit() const { return hasQuit_; }

private:
    bool isCommand(std::string_view line, ExitStatus& status);

    Session& session_;
    std::string name_;
    bool takesCommands_;
    std::string calculation_;
    std::size_t lines_ = 0;
    std::size_t firstLine_ = 0;
    bool hasQuit_ = false;
};

} // namespace fmxhost
