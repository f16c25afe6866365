#include "host/command_line.h"

#include "host/calculation/functions.h"
#include "host/calculation_runner.h"
#include "host/terminal/prompt.h"
#include "host/unicode.h"

#include <CLI/CLI.hpp>

#include <langinfo.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace fmxhost {
namespace {

constexpr const char* footer = R"(The plug-in is --plugin, else $FMXHOST_PLUGIN, else )" FMXHOST_PLUGIN_NAME
                               R"( beside fmxhost, else the installed one.
With neither -e nor a command, at a terminal: a prompt.

Results are printed as FileMaker shows them, one a line; line ends within a text start a new line, so use --json where
that matters. The first calculation with an error ends the run.

Exit status: 0; 1 a calculation can't be parsed or evaluated, or a test of check fails; 2 wrong use; 3 the plug-in
can't be loaded or refuses to start; 4 an exception left the plug-in; 5 the output can't be written.)";

ExitStatus evaluateAll(Context& context, const std::vector<std::string>& calculations)
{
    context.plugin();
    for (std::size_t index = 0; index < calculations.size(); ++index) {
        const std::string name = calculations.size() > 1 ? "-e " + std::to_string(index + 1) : "";
        const ExitStatus status = runCalculation(context, calculations[index], {name, std::nullopt});
        if (status != ExitStatus::success) {
            return status;
        }
    }
    return ExitStatus::success;
}

// The calls that the rest of this file makes of what a command throws; one line each on standard error.
ExitStatus guarded(Context& context, const CommandBody& body)
{
    try {
        const ExitStatus status = body(context);
        context.output().flush();
        context.close();
        return status;
    } catch (const PluginError& error) {
        context.reportError(error.what());
        return error.kind() == PluginError::Kind::exception ? ExitStatus::pluginThrew : ExitStatus::pluginUnusable;
    } catch (const std::bad_alloc&) {
        context.reportError("There isn't enough memory.");
        return ExitStatus::calculationError;
    }
}

// " Did you mean x?" with the nearest of the candidates, or nothing when none is near.
std::string suggestion(const std::string& word, const std::vector<std::string>& candidates)
{
    constexpr std::size_t longestWord = 40;
    std::size_t bestDistance = std::max<std::size_t>(1, word.size() / 3) + 1;
    std::string best;
    for (const std::string& candidate : candidates) {
        const std::size_t distance =
            word.size() > longestWord ? bestDistance : editDistance(foldCase(toUtf16(word)), toUtf16(candidate));
        if (distance < bestDistance) {
            best = candidate;
            bestDistance = distance;
        }
    }
    return best.empty() ? best : " Did you mean " + best + "?";
}

class CommandLine {
public:
    explicit CommandLine(std::span<const Command> commands)
    {
        app_.footer(footer);
        app_.set_version_flag("--version", "fmxhost " FMXHOST_VERSION);
        app_.add_option("--plugin", plugin_, "The plug-in file")->type_name("FILE");
        app_.add_option("--api", options_.apiVersion, "API version of the host that is played")
            ->type_name("N")
            ->capture_default_str();
        app_.add_flag("--json", options_.json, "Print JSON, one object a line");
        app_.add_flag("--no-arity-check", noArityCheck_, "Let any number of arguments through to the plug-in");
        app_.add_flag("--time", options_.time, "Show how long each calculation takes, on standard error");
        // Without a variable: CLI11 would take a calculation such as "[…]" for a list.
        expressions_ = app_.add_option("-e", "A calculation; may be given several times")
                           ->type_name("CALC")
                           ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
                           ->allow_extra_args(false);
        app_.fallthrough();
        app_.require_subcommand(0, 1);
        for (const Command& command : commands) {
            CLI::App* arguments = app_.add_subcommand(command.name, command.summary);
            bodies_.emplace_back(arguments, command.declare(*arguments));
        }
    }

    int run(int argumentCount, const char* const* arguments, Output& output)
    {
        try {
            app_.parse(argumentCount, arguments);
        } catch (const CLI::ExtrasError&) {
            return refuse(unknownWordText(argumentCount, arguments), output);
        } catch (const CLI::ParseError& error) {
            return finishEarly(error, output);
        }
        options_.pluginFile = plugin_;
        options_.checkArgumentCounts = !noArityCheck_;
        Context context(options_, output);
        return static_cast<int>(dispatch(context));
    }

private:
    // Help, version, and wrong use.
    int finishEarly(const CLI::ParseError& error, Output& output)
    {
        std::ostringstream text;
        std::ostringstream complaint;
        const bool wanted = app_.exit(error, text, complaint) == 0;
        if (wanted) {
            output.write(text.str());
            output.flush();
            return static_cast<int>(ExitStatus::success);
        }
        return refuse(error.what(), output);
    }

    int refuse(const std::string& message, Output& output) const
    {
        Context(options_, output).reportError(message + "\nfmxhost --help says how it is used.");
        return static_cast<int>(ExitStatus::wrongUse);
    }

    // About the first word that is no option, no command and no argument of one.
    std::string unknownWordText(int argumentCount, const char* const* arguments) const
    {
        const std::vector<std::string> unknown = app_.remaining(true);
        const auto* const end = arguments + argumentCount;
        const auto* const first = std::find_first_of(arguments, end, unknown.begin(), unknown.end());
        const std::string word = first == end ? unknown.front() : *first;
        if (word.starts_with('-')) {
            return "There is no option " + word + "." + suggestion(word, optionNames());
        }
        if (!app_.get_subcommands().empty()) {
            return "The argument " + word + " is one too many.";
        }
        const bool isWord =
            word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-") == word.npos;
        return "There is no command " + word + "." +
               (isWord ? suggestion(word, commandNames()) : " A calculation is given with -e.");
    }

    std::vector<std::string> commandNames() const
    {
        std::vector<std::string> names;
        for (const auto& [arguments, body] : bodies_) {
            names.push_back(arguments->get_name());
        }
        return names;
    }

    // Of fmxhost itself and of the command that is given.
    std::vector<std::string> optionNames() const
    {
        std::vector<const CLI::Option*> options = app_.get_options();
        for (const CLI::App* command : app_.get_subcommands()) {
            const auto more = command->get_options();
            options.insert(options.end(), more.begin(), more.end());
        }
        std::vector<std::string> names;
        for (const CLI::Option* option : options) {
            for (const std::string& name : option->get_lnames()) {
                names.push_back("--" + name);
            }
        }
        return names;
    }

    ExitStatus dispatch(Context& context)
    {
        const std::vector<std::string> calculations = expressions_->results();
        for (const auto& [arguments, body] : bodies_) {
            if (!arguments->parsed()) {
                continue;
            }
            if (expressions_->count() > 0) {
                context.reportError("-e can't be combined with the command " + arguments->get_name() + ".");
                return ExitStatus::wrongUse;
            }
            return guarded(context, body);
        }
        if (expressions_->count() > 0) {
            return guarded(context, [&calculations](Context& own) { return evaluateAll(own, calculations); });
        }
        if (isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0) {
            return guarded(context, runPrompt);
        }
        context.reportError(
            "There is nothing to do: give -e or a command (\"run -\" reads standard input), or start it at "
            "a terminal.\n\n" +
            app_.help());
        return ExitStatus::wrongUse;
    }

    CLI::App app_{"Loads a FileMaker plug-in without FileMaker and evaluates calculations with its functions.",
                  "fmxhost"};
    std::string plugin_;
    bool noArityCheck_ = false;
    Options options_;
    CLI::Option* expressions_ = nullptr;
    std::vector<std::pair<CLI::App*, CommandBody>> bodies_;
};

// Line editing needs to know how the terminal's bytes make characters: what fmxhost writes is UTF-8 in any locale.
void useUtf8()
{
    const bool known = std::setlocale(LC_CTYPE, "") != nullptr;
    if (!known || std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) {
        for (const char* name : {"C.UTF-8", "UTF-8"}) { // macOS has the second
            if (std::setlocale(LC_CTYPE, name) != nullptr) {
                break;
            }
        }
    }
}

int reportOutputError(const OutputError& error)
{
    // A reader that has seen enough, such as head(1), is no failure worth a message.
    if (error.code().value() != EPIPE) {
        std::cerr << "fmxhost: standard output: " << error.code().message() << '\n';
    }
    return static_cast<int>(ExitStatus::outputFailed);
}

} // namespace

int runCommandLine(int argumentCount, const char* const* arguments, std::span<const Command> commands)
{
    reserveStandardDescriptors();
    useUtf8();
    Output output(STDOUT_FILENO);
    try {
        return CommandLine(commands).run(argumentCount, arguments, output);
    } catch (const OutputError& error) {
        return reportOutputError(error);
    }
}

} // namespace fmxhost
