// What fmxhost can be asked to do. Answers of exit status; errors go to standard error.
// Errors, of each: PluginError when an exception leaves the plug-in; OutputError.
#pragma once

#include "host/session.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fmxhost {

// What the plug-in registers and answers to string requests. As JSON one object a line.
ExitStatus listFunctions(Session& session);
ExitStatus listSteps(Session& session);
ExitStatus showStrings(Session& session);

// Explains a function; of a word that is none, the functions that it finds; of nothing, how calculations are written.
ExitStatus help(Session& session, std::string_view word);

// The calculations of -e; of a file, where "-" is standard input. The first one with an error is the last.
ExitStatus evaluateAll(Session& session, const std::vector<std::string>& calculations);
ExitStatus runFile(Session& session, const std::string& file);

// Standard input, which isn't a terminal, as if it were typed at the prompt: an error in a calculation doesn't end it.
// Answers the status of the first one that failed; without a line there is nothing to do.
ExitStatus runPiped(Session& session);

// prompt.cpp: reads calculations and commands at a terminal with editing, history and completion, and evaluates them
// until Ctrl-D or "quit". An error in a calculation doesn't end it. Ctrl-C gives up what is being typed; while a
// calculation is evaluated it goes to what the plug-in has started, and fmxhost stays. Call it once in the process.
ExitStatus runPrompt(Session& session);

constexpr const char* nothingToDo =
    "There is nothing to do: give -e, a command, or calculations on standard input, or start it at a terminal.\n"
    "fmxhost --help says how it is used.";

// Calculations from lines: one goes on over the following lines while brackets, a text or a comment are open. Between
// them blank lines and those that begin with "#" are left out.
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
