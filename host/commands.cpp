#include "host/commands.h"

#include "host/base/unicode.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <system_error>
#include <utility>

namespace fmxhost {
namespace {

constexpr std::size_t helpWidth = 96;
constexpr std::size_t helpIndent = 2;
constexpr std::string_view blanks = " \t";

constexpr std::string_view languageText =
    R"(A calculation is what FileMaker calls one:

  "text"  12.5  ¶          texts (\" and \\ stand for " and \; ¶ is the end of a line), numbers
  f ( a ; b )              a call; a function without parameters needs no parentheses
  not  * /  + -  &         operators, the strongest first, then
  = ≠ <> < > ≤ <= ≥ >=     comparisons, which don't mind letter case, then
  and  or xor              both leave out what can't change the result
  $name = calculation      sets a variable for the calculations that follow and is its value; in parentheses it compares
  Let ( [ a = 1 ; $b = 2 ] ; a + $b )
  // to the end of the line, /* or between */ comments

In a file and at the prompt a calculation goes on over several lines while a bracket or a text is open. Names may be
written in any letter case. help FUNCTION says more about one function, help WORD finds functions; at the prompt list,
steps and quit are commands too.
)";

// Pads to a width in terminal columns.
std::string padded(std::string text, std::size_t width)
{
    const std::size_t columns = displayWidth(toUtf16(text));
    return text.append(width > columns ? width - columns : 0, ' ');
}

std::string idColumn(int id)
{
    constexpr std::size_t idWidth = 5;
    const std::string digits = std::to_string(id);
    return std::string(idWidth - std::min(idWidth, digits.size()), ' ') + digits;
}

std::string describe(const fmxkit::ExternalFunction& function)
{
    return jsonObject({{"id", function.id},
                       {"name", toUtf8(function.name)},
                       {"prototype", toUtf8(function.prototype)},
                       {"description", toUtf8(function.description)},
                       {"min", function.minimumArguments},
                       {"max", function.maximumArguments},
                       {"flags", function.flags}}) +
           "\n";
}

std::string describe(const fmxkit::ScriptStep& step)
{
    return jsonObject({{"id", step.id},
                       {"name", toUtf8(step.name)},
                       {"definition", toUtf8(step.definition)},
                       {"description", toUtf8(step.description)},
                       {"flags", step.flags}}) +
           "\n";
}

// "none", "1", "0 to 1", "2 or more".
std::string argumentCounts(const Function& function)
{
    const std::string minimum = std::to_string(minimumArguments(function));
    const int maximum = maximumArguments(function);
    if (maximum == anyNumberOfArguments) {
        return minimum + " or more";
    }
    if (maximum == 0) {
        return "none";
    }
    return minimum == std::to_string(maximum) ? minimum : minimum + " to " + std::to_string(maximum);
}

// The text broken into lines where blanks allow, each one indented, with a line end.
std::string wrapped(std::u16string_view text)
{
    std::string result;
    std::size_t columns = 0;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(u' '), text.size());
        const std::u16string_view word = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (word.empty()) {
            continue;
        }
        const bool first = result.empty();
        if (first || columns + 1 + displayWidth(word) > helpWidth) {
            result.append(first ? "" : "\n").append(helpIndent, ' ');
            columns = helpIndent;
        } else {
            result += ' ';
            ++columns;
        }
        result += toUtf8(word);
        columns += displayWidth(word);
    }
    return result + "\n";
}

std::string functionHelp(const Function& function)
{
    const auto* external = std::get_if<const fmxkit::ExternalFunction*>(&function);
    std::string text = toUtf8(prototypeOf(function)) + "\n\n";
    if (!descriptionOf(function).empty()) {
        text += wrapped(descriptionOf(function)) + "\n";
    }
    return text + "  Arguments: " + argumentCounts(function) + "\n" +
           (external != nullptr ? "  Function ID: " + std::to_string((*external)->id) + "\n"
                                : "  Built into fmxhost, as in FileMaker\n");
}

std::string languageHelp(const FunctionTable& functions)
{
    std::array<std::u16string, 2> names; // of the plug-in, built in
    for (const Function& function : functions.withPrefix(u"")) {
        names.at(function.index() == 0 ? 1 : 0).append(nameOf(function)).append(u" ");
    }
    return std::string(languageText) + "\nFunctions of the plug-in:\n" + wrapped(names[0]) + "\nBuilt-in functions:\n" +
           wrapped(names[1]);
}

// The line after its first word, where that is the command's.
bool isWord(std::string_view line, std::string_view word, std::string_view& rest)
{
    const std::size_t end = std::min(line.find_first_of(blanks), line.size());
    if (foldCase(toUtf16(line.substr(0, end))) != toUtf16(word)) {
        return false;
    }
    rest = line.substr(std::min(line.find_first_not_of(blanks, end), line.size()));
    return true;
}

ExitStatus runLines(Session& session, std::istream& stream, const std::string& name)
{
    Lines lines(session, name, false);
    ExitStatus status = ExitStatus::success;
    for (std::string line; status == ExitStatus::success && std::getline(stream, line);) {
        status = lines.take(std::move(line));
    }
    if (status != ExitStatus::success) {
        return status;
    }
    // The stream over standard input keeps a read error to itself.
    if (stream.bad() || (&stream == &std::cin && std::ferror(stdin) != 0)) {
        session.output().reportError(name + ": " + std::strerror(errno));
        return ExitStatus::wrongUse;
    }
    return lines.finish();
}

} // namespace

ExitStatus listFunctions(Session& session)
{
    constexpr std::size_t countsWidth = 10;
    Output& output = session.output();
    const auto& functions = session.plugin().functions();
    output.write(session.options().json ? "" : "   ID  " + padded("ARGUMENTS", countsWidth) + "  FUNCTION\n");
    for (const fmxkit::ExternalFunction& function : functions) {
        output.write(session.options().json
                         ? describe(function)
                         : idColumn(function.id) + "  " + padded(argumentCounts(&function), countsWidth) + "  " +
                               toUtf8(function.prototype) + "\n");
    }
    return ExitStatus::success;
}

ExitStatus listSteps(Session& session)
{
    Output& output = session.output();
    const auto& steps = session.plugin().scriptSteps();
    output.write(session.options().json ? "" : "   ID  SCRIPT STEP, DEFINITION\n");
    for (const fmxkit::ScriptStep& step : steps) {
        output.write(session.options().json ? describe(step) : idColumn(step.id) + "  " + toUtf8(step.name) + "\n");
        if (!session.options().json && !step.definition.empty()) {
            output.write("       " + toUtf8(step.definition) + "\n");
        }
    }
    return ExitStatus::success;
}

ExitStatus showStrings(Session& session)
{
    constexpr std::size_t labelWidth = 11;
    Plugin& plugin = session.plugin();
    const std::string name = toUtf8(plugin.string(PluginString::name));
    const std::string preferences = toUtf8(plugin.string(PluginString::preferences));
    const std::string options = toUtf8(plugin.string(PluginString::options));
    const std::string address = toUtf8(plugin.string(PluginString::helpLocation));
    if (session.options().json) {
        session.output().write(jsonObject({{"128", name}, {"129", preferences}, {"131", options}, {"132", address}}) +
                               "\n");
        return ExitStatus::success;
    }
    session.output().write("128  " + padded("name", labelWidth) + "  " + name + "\n129  " +
                           padded("preferences", labelWidth) + "  " + preferences + "\n131  " +
                           padded("options", labelWidth) + "  " + options + "\n132  " + padded("help", labelWidth) +
                           "  " + address + "\n");
    return ExitStatus::success;
}

ExitStatus help(Session& session, std::string_view word)
{
    Output& output = session.output();
    const FunctionTable& functions = session.functions();
    if (word.empty()) {
        output.write(languageHelp(functions));
        return ExitStatus::success;
    }
    const std::u16string name = toUtf16(word);
    const std::optional<Function> named = functions.find(name);
    std::vector<Function> found = named ? std::vector{*named} : functions.about(name);
    if (session.options().json) { // of the plug-in's functions
        std::erase_if(found, [](const Function& function) { return function.index() == 0; });
    }
    if (found.empty()) {
        output.reportError(isFileMakersFunction(name)
                               ? std::string(word) + " is a function of FileMaker that fmxhost lacks."
                               : "There is no function called " + std::string(word) + "." +
                                     didYouMean(functions.suggestionFor(name)));
        return ExitStatus::wrongUse;
    }
    for (const Function& function : found) {
        output.write(session.options().json ? describe(*std::get<const fmxkit::ExternalFunction*>(function))
                     : named                ? functionHelp(function)
                                            : toUtf8(prototypeOf(function)) + "\n");
    }
    return ExitStatus::success;
}

ExitStatus evaluateAll(Session& session, const std::vector<std::string>& calculations)
{
    session.plugin();
    ExitStatus status = ExitStatus::success;
    for (std::size_t index = 0; index < calculations.size() && status == ExitStatus::success; ++index) {
        const std::string name = calculations.size() > 1 ? "-e " + std::to_string(index + 1) : "";
        status = session.run(calculations[index], {name, std::nullopt});
    }
    return status;
}

ExitStatus runFile(Session& session, const std::string& file)
{
    if (file == "-") {
        session.plugin();
        return runLines(session, std::cin, "standard input");
    }
    std::error_code error;
    std::ifstream stream;
    errno = EISDIR;
    if (!std::filesystem::is_directory(file, error)) {
        errno = 0;
        stream.open(file, std::ios::binary);
    }
    if (!stream.is_open()) {
        session.output().reportError(file + ": " + std::strerror(errno));
        return ExitStatus::wrongUse;
    }
    session.plugin();
    return runLines(session, stream, file);
}

ExitStatus Lines::take(std::string line)
{
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (++lines_ == 1 && line.starts_with(byteOrderMark)) {
        line.erase(0, byteOrderMark.size());
    }
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    if (calculation_.empty()) {
        const std::size_t first = line.find_first_not_of(blanks);
        if (first == std::string::npos || line[first] == '#') {
            return ExitStatus::success;
        }
        ExitStatus status = ExitStatus::success;
        if (takesCommands_ &&
            isCommand(std::string_view(line).substr(first, line.find_last_not_of(blanks) + 1 - first), status)) {
            return status;
        }
        firstLine_ = lines_;
        calculation_ = std::move(line);
    } else {
        calculation_ += "\n" + line;
    }
    return openAtEnd(toUtf16(calculation_)).isOpen ? ExitStatus::success : runBegun();
}

ExitStatus Lines::finish()
{
    return calculation_.empty() ? ExitStatus::success : runBegun();
}

ExitStatus Lines::runBegun()
{
    const std::string calculation = std::exchange(calculation_, {});
    return session_.run(calculation, {name_, name_.empty() ? std::nullopt : std::optional(firstLine_)});
}

bool Lines::isCommand(std::string_view line, ExitStatus& status)
{
    std::string_view rest;
    if (isWord(line, "help", rest)) {
        status = help(session_, rest);
    } else if (isWord(line, "list", rest) && rest.empty()) {
        status = listFunctions(session_);
    } else if (isWord(line, "steps", rest) && rest.empty()) {
        status = listSteps(session_);
    } else if ((isWord(line, "quit", rest) || isWord(line, "exit", rest)) && rest.empty()) {
        hasQuit_ = true;
    } else {
        return false;
    }
    session_.output().flush();
    return true;
}

ExitStatus runPiped(Session& session)
{
    std::string line;
    if (!std::getline(std::cin, line)) {
        session.output().reportError(nothingToDo);
        return ExitStatus::wrongUse;
    }
    session.plugin();
    Lines lines(session, "standard input", true);
    ExitStatus first = ExitStatus::success;
    const auto note = [&first](ExitStatus status) { first = first == ExitStatus::success ? status : first; };
    do {
        note(lines.take(line));
    } while (!lines.hasQuit() && std::getline(std::cin, line));
    note(lines.finish());
    return first;
}

} // namespace fmxhost
