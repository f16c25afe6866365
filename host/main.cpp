// fmxhost: a host for FileMaker plug-ins without FileMaker.
//
//   base/         plugin, value: loading a plug-in and calling it; unicode, output, system
//   calculation/  the language of calculations: parse, evaluate, functions
//   check/        examining whether a plug-in keeps the interface's rules
//   session       one run: options, plug-in, calculations from anywhere, results and errors
//   commands      what says something about functions and script steps
//   prompt        the same at a terminal
#include "host/check/check.h"
#include "host/session.h"

#include "host/base/unicode.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <functional>
#include <iostream>
#include <iterator>
#include <new>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace fmxhost {
namespace {

constexpr const char* footer = R"(The plug-in is --plugin, else $FMXHOST_PLUGIN, else the one beside fmxhost, else
)" FMXHOST_DEFAULT_PLUGIN R"(.
With neither -e nor a command: a prompt at a terminal; else standard input, line by line as at the prompt.

Results are printed as FileMaker shows them, one a line; line ends within a text start a new line, so use --json where
that matters. The first calculation of -e or run with an error ends the run.

Exit status: 0; 1 a calculation can't be parsed or evaluated, or a test of check fails; 2 wrong use; 3 the plug-in
can't be loaded or refuses to start; 4 an exception left the plug-in; 5 the output can't be written.)";

class CommandLine {
public:
    CommandLine()
    {
        app_.footer(footer);
        app_.set_version_flag("--version", "fmxhost " FMXHOST_VERSION);
        app_.add_option("--plugin", options_.pluginFile, "The plug-in file")->type_name("FILE");
        app_.add_option("--api", options_.apiVersion, "API version of the host that is played")
            ->type_name("N")
            ->capture_default_str();
        app_.add_flag("--json", options_.json, "Print JSON, one object a line");
        app_.add_flag_callback(
            "--no-arity-check", [this] { options_.parser.checkArgumentCounts = false; },
            "Let any number of arguments through to the plug-in");
        app_.add_flag("--time", options_.time, "Show how long each calculation takes, on standard error");
        app_.add_option_function<std::vector<std::string>>(
                "--get", [this](const auto& answers) { takeAnswers(answers); },
                "What Get ( NAME ) returns, such as ScriptParameter; may be given several times")
            ->type_name("NAME=TEXT")
            ->allow_extra_args(false);
        // Without a variable: CLI11 would take a calculation such as "[…]" for a list.
        expressions_ = app_.add_option("-e", "A calculation; may be given several times")
                           ->type_name("CALC")
                           ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
                           ->allow_extra_args(false);
        app_.fallthrough();
        app_.require_subcommand(0, 1);
        CLI::App* run = add("run", "Evaluate the calculations of a file",
                            [this](Session& session) { return runFile(session, file_); });
        run->add_option("FILE", file_, "Calculations, each on a line or more; - is standard input")->required();
        run->footer("A calculation goes on over several lines while a bracket or a text is open. Blank lines and lines "
                    "that begin with # are skipped. The first calculation with an error ends the run.");
        add("list", "List the functions that the plug-in registers", listFunctions);
        add("steps", "List the script steps that the plug-in registers", listSteps);
        add("strings", "Show what the plug-in returns for string requests", showStrings);
        add("help", "Explain a function, find one by a word, or say how calculations are written",
            [this](Session& session) { return help(session, word_); })
            ->add_option("FUNCTION", word_, "In any letter case; or a word; nothing: how calculations are written");
        addCheck();
    }

    // Help, version, and wrong use end as exceptions; what a command throws becomes one line on standard error.
    ExitStatus run(int argumentCount, const char* const* arguments)
    {
        try {
            app_.parse(argumentCount, arguments);
            const ExitStatus status = runGiven();
            flush();
            return status;
        } catch (const CLI::ExtrasError&) {
            return refuse(unknownWordText());
        } catch (const CLI::ParseError& error) {
            return finishEarly(error);
        } catch (const PluginError& error) {
            reportError(error.what());
            return error.kind() == PluginError::Kind::exception ? ExitStatus::pluginThrew : ExitStatus::pluginUnusable;
        } catch (const std::bad_alloc&) {
            reportError("There isn't enough memory.");
            return ExitStatus::calculationError;
        }
    }

private:
    using Command = std::function<ExitStatus(Session&)>;

    CLI::App* add(const char* name, const char* summary, Command command)
    {
        CLI::App* arguments = app_.add_subcommand(name, summary);
        arguments->callback([this, command = std::move(command)] { command_ = command; });
        return arguments;
    }

    void addCheck()
    {
        checkCommand_ =
            app_.add_subcommand("check", "Examine whether the plug-in keeps the rules of FileMaker's interface");
        listTests_ = checkCommand_->add_subcommand("list-tests", "List the tests");
        checkCommand_->footer(check::footer);
        checkCommand_->add_option("TEST", check_.tests, "Names of tests")->type_name("");
        checkCommand_->add_flag("--only-failed", check_.onlyFailed, "Show only the tests that fail");
        checkCommand_->add_option("--timeout", check_.timeLimit, "How long a test may take")
            ->type_name("SECONDS")
            ->check(CLI::PositiveNumber)
            ->capture_default_str();
        checkCommand_->add_option("--allow", check_.allowances, "What the plug-in keeps on purpose")
            ->type_name("FILE")
            ->check(CLI::ExistingFile.description(""));
        checkCommand_->add_option("--libraries", check_.libraries, "What a server has, in place of the installed list")
            ->type_name("FILE")
            ->check(CLI::ExistingFile.description(""));
        checkCommand_->add_option("--isolated", check_.isolated)->group(""); // how it starts itself for one test
    }

    void takeAnswers(const std::vector<std::string>& answers)
    {
        for (const std::string& answer : answers) {
            const std::size_t equals = answer.find('=');
            if (equals == std::string::npos) {
                throw CLI::ValidationError("--get needs a name and a text: " + answer + "=…");
            }
            options_.parser.getAnswers.insert_or_assign(foldCase(toUtf16(answer.substr(0, equals))),
                                                        Value(answer.substr(equals + 1)));
        }
    }

    ExitStatus runCheck()
    {
        if (listTests_->parsed()) {
            return check::listTests(options_.json);
        }
        check_.plugin = pluginFile(options_);
        check_.apiVersion = options_.apiVersion;
        check_.json = options_.json;
        return check::run(check_);
    }

    ExitStatus finishEarly(const CLI::ParseError& error)
    {
        std::ostringstream text;
        std::ostringstream complaint;
        if (app_.exit(error, text, complaint) != 0) {
            return refuse(error.what());
        }
        print(text.str());
        flush();
        return ExitStatus::success;
    }

    static ExitStatus refuse(const std::string& message)
    {
        reportError(message + "\nfmxhost --help says how it is used.");
        return ExitStatus::wrongUse;
    }

    // About the first word that is no option, no command and no argument of one.
    std::string unknownWordText() const
    {
        const std::string word = app_.remaining(true).front();
        const bool isOption = word.starts_with('-');
        const bool isWord = std::all_of(word.begin(), word.end(), [](unsigned char character) {
            return std::isalpha(character) != 0 || character == '-';
        });
        if (!isOption && !app_.get_subcommands().empty()) {
            return "Unexpected argument " + word + ".";
        }
        std::vector<const CLI::App*> apps = app_.get_subcommands([](const CLI::App*) { return true; });
        std::vector<std::string> known; // of the same kind
        if (!isOption) {
            std::transform(apps.begin(), apps.end(), std::back_inserter(known), std::mem_fn(&CLI::App::get_name));
            return "There is no command " + word + "." +
                   (isWord ? suggestion(word, known) : " A calculation is given with -e.");
        }
        apps.push_back(&app_);
        for (const CLI::App* app : apps) {
            for (const CLI::Option* option : app->get_options()) {
                std::transform(option->get_lnames().begin(), option->get_lnames().end(), std::back_inserter(known),
                               [](const std::string& name) { return "--" + name; });
            }
        }
        return "There is no option " + word + "." + suggestion(word, known);
    }

    ExitStatus runGiven()
    {
        const std::vector<std::string> calculations = expressions_->results();
        const std::vector<CLI::App*> commands = app_.get_subcommands();
        if (!commands.empty() && !calculations.empty()) {
            reportError("-e can't be combined with the command " + commands.front()->get_name() + ".");
            return ExitStatus::wrongUse;
        }
        if (checkCommand_->parsed()) {
            return runCheck();
        }
        if (command_) {
            return inSession(command_);
        }
        if (!calculations.empty()) {
            return inSession([&](Session& session) { return evaluateAll(session, calculations); });
        }
        if (isatty(STDIN_FILENO) == 0) {
            return inSession(runPiped);
        }
        if (isatty(STDOUT_FILENO) != 0) {
            return inSession(runPrompt);
        }
        reportError(nothingToDo);
        return ExitStatus::wrongUse;
    }

    ExitStatus inSession(const Command& command)
    {
        Session session(options_);
        const ExitStatus status = command(session);
        flush();
        session.plugin().unload();
        return status;
    }

    CLI::App app_{"Loads a FileMaker plug-in without FileMaker and evaluates calculations with its functions.",
                  "fmxhost"};
    Options options_;
    std::string file_;
    std::string word_;
    check::Options check_;
    CLI::App* checkCommand_ = nullptr;
    CLI::App* listTests_ = nullptr;
    CLI::Option* expressions_ = nullptr;
    Command command_; // that is given
};

} // namespace
} // namespace fmxhost

int main(int argumentCount, char** arguments)
{
    using namespace fmxhost;
    reserveStandardDescriptors();
    // Line editing needs to know how the terminal's bytes make characters: what fmxhost writes is UTF-8 in any locale.
    if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
        std::setlocale(LC_CTYPE, "UTF-8"); // of macOS
    }
    try {
        return static_cast<int>(CommandLine().run(argumentCount, arguments));
    } catch (const OutputError& error) {
        // A reader that has seen enough, such as head(1), is no failure worth a message.
        if (error.code().value() != EPIPE) {
            std::cerr << "fmxhost: standard output: " << error.code().message() << '\n';
        }
        return static_cast<int>(ExitStatus::outputFailed);
    }
}
