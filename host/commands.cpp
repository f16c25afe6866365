#include "host/commands.h"

#include "host/base/unicode.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <system_error>
#include <utility>

namespace fmxhost {
namespace {

constexpr std::size_t helpWidth = 96;
constexpr std::string_view helpIndent = "  ";
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

// A line of output: the object or the text, as the options say.
void show(Session& session, const Json& object, const std::string& text)
{
    print((session.json() ? jsonText(object) : text) + "\n");
}

Json described(const fmxkit::ExternalFunction& function)
{
    return {{"id", function.id},
            {"name", toUtf8(function.name)},
            {"prototype", toUtf8(function.prototype)},
            {"description", toUtf8(function.description)},
            {"min", function.minimumArguments},
            {"max", function.maximumArguments},
            {"flags", function.flags}};
}

// "none", "1", "0 to 1", "2 or more".
std::string argumentCounts(const Function& function)
{
    return function.maximumArguments == 0 ? "none" : rangeText(function.minimumArguments, function.maximumArguments);
}

// The text broken into lines where blanks allow, each one indented, with a line end.
std::string wrapped(std::u16string_view text)
{
    std::istringstream words(toUtf8(text));
    std::string result;
    std::size_t columns = helpWidth;
    for (std::string word; words >> word;) {
        const std::size_t width = displayWidth(toUtf16(word));
        const bool fits = columns + 1 + width <= helpWidth;
        columns = (fits ? columns + 1 : helpIndent.size()) + width;
        result.append(fits || result.empty() ? "" : "\n").append(fits ? " " : helpIndent).append(word);
    }
    return result + "\n";
}

std::string functionHelp(const Function& function)
{
    const std::u16string_view description = function.description.substr(function.description.find(u'|') + 1);
    return toUtf8(function.prototype) + "\n\n" + (description.empty() ? "" : wrapped(description) + "\n") +
           "  Arguments: " + argumentCounts(function) + "\n" +
           (function.external != nullptr ? "  Function ID: " + std::to_string(function.external->id)
                                         : "  Built into fmxhost, as in FileMaker");
}

std::string languageHelp(const FunctionTable& functions)
{
    std::u16string external;
    std::u16string builtIn;
    for (const Function& function : functions.all()) {
        (function.external != nullptr ? external : builtIn).append(function.name).append(u" ");
    }
    return std::string(languageText) + "\nFunctions of the plug-in:\n" + wrapped(external) + "\nBuilt-in functions:\n" +
           wrapped(builtIn);
}

// Those that have the word in their names or descriptions, in any letter case.
std::vector<const Function*> functionsAbout(const FunctionTable& functions, std::u16string_view word)
{
    std::vector<const Function*> found;
    for (const Function& function : functions.all()) {
        const std::u16string text = std::u16string(function.name) + u'\n' + std::u16string(function.description);
        if (foldCase(text).find(foldCase(word)) != std::u16string::npos) {
            found.push_back(&function);
        }
    }
    return found;
}

// `asTyped`: with commands, and on behind an error. Answers the status of the first one.
ExitStatus runLines(Session& session, std::istream& stream, const std::string& name, bool asTyped)
{
    Lines lines(session, name, asTyped);
    ExitStatus first = ExitStatus::success;
    const auto goesOn = [&] { return !lines.hasQuit() && (asTyped || first == ExitStatus::success); };
    const auto note = [&](ExitStatus status) { first = first == ExitStatus::success ? status : first; };
    for (std::string line; goesOn() && std::getline(stream, line);) {
        note(lines.take(std::move(line)));
    }
    // The stream over standard input keeps a read error to itself.
    if (stream.bad() || (&stream == &std::cin && std::ferror(stdin) != 0)) {
        reportError(name + ": " + std::strerror(errno));
        note(ExitStatus::wrongUse);
    } else if (goesOn()) {
        note(lines.finish());
    }
    return first;
}

} // namespace

ExitStatus listFunctions(Session& session)
{
    print(session.json() ? "" : "   ID  ARGUMENTS   FUNCTION\n");
    for (const fmxkit::ExternalFunction& function : session.plugin().functions()) {
        std::ostringstream line;
        line << std::setw(5) << function.id << "  " << std::left << std::setw(10) << argumentCounts(Function(function))
             << "  " << toUtf8(function.prototype);
        show(session, described(function), line.str());
    }
    return ExitStatus::success;
}

ExitStatus listSteps(Session& session)
{
    print(session.json() ? "" : "   ID  SCRIPT STEP, DEFINITION\n");
    for (const fmxkit::ScriptStep& step : session.plugin().scriptSteps()) {
        std::ostringstream lines;
        lines << std::setw(5) << step.id << "  " << toUtf8(step.name)
              << (step.definition.empty() ? "" : "\n       " + toUtf8(step.definition));
        show(session,
             {{"id", step.id},
              {"name", toUtf8(step.name)},
              {"definition", toUtf8(step.definition)},
              {"description", toUtf8(step.description)},
              {"flags", step.flags}},
             lines.str());
    }
    return ExitStatus::success;
}

ExitStatus showStrings(Session& session)
{
    constexpr std::pair<PluginString, const char*> requests[] = {{PluginString::name, "name       "},
                                                                 {PluginString::preferences, "preferences"},
                                                                 {PluginString::options, "options    "},
                                                                 {PluginString::helpLocation, "help       "}};
    Json object;
    std::ostringstream text;
    for (const auto& [request, label] : requests) {
        const std::string number = std::to_string(static_cast<int>(request));
        const std::string answer = toUtf8(session.plugin().string(request));
        object[number] = answer;
        text << (object.size() > 1 ? "\n" : "") << number << "  " << label << "  " << answer;
    }
    show(session, object, text.str());
    return ExitStatus::success;
}

ExitStatus help(Session& session, std::string_view word)
{
    const FunctionTable& functions = session.functions();
    if (word.empty()) {
        print(languageHelp(functions));
        return ExitStatus::success;
    }
    const std::u16string name = toUtf16(word);
    const Function* named = functions.find(name);
    std::vector<const Function*> found = named != nullptr ? std::vector{named} : functionsAbout(functions, name);
    if (session.json()) { // of the plug-in's functions
        std::erase_if(found, [](const Function* function) { return function->external == nullptr; });
    }
    if (found.empty()) {
        reportError(functions.unknownText(name));
        return ExitStatus::wrongUse;
    }
    for (const Function* function : found) {
        show(session, function->external != nullptr ? described(*function->external) : Json(),
             named != nullptr ? functionHelp(*function) : toUtf8(function->prototype));
    }
    return ExitStatus::success;
}

ExitStatus evaluateAll(Session& session, const std::vector<std::string>& calculations)
{
    ExitStatus status = ExitStatus::success;
    for (std::size_t index = 0; index < calculations.size() && status == ExitStatus::success; ++index) {
        const std::string name = calculations.size() > 1 ? "-e " + std::to_string(index + 1) : "";
        status = session.run(calculations[index], name);
    }
    return status;
}

ExitStatus runFile(Session& session, const std::string& file)
{
    if (file == "-") {
        return runLines(session, std::cin, "standard input", false);
    }
    std::error_code error;
    std::ifstream stream;
    errno = EISDIR;
    if (!std::filesystem::is_directory(file, error)) {
        errno = 0;
        stream.open(file, std::ios::binary);
    }
    if (!stream.is_open()) {
        reportError(file + ": " + std::strerror(errno));
        return ExitStatus::wrongUse;
    }
    return runLines(session, stream, file, false);
}

ExitStatus runPiped(Session& session)
{
    if (std::cin.peek() == std::istream::traits_type::eof()) {
        reportError(nothingToDo);
        return ExitStatus::wrongUse;
    }
    return runLines(session, std::cin, "standard input", true);
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
    if (!calculation_.empty()) {
        calculation_ += "\n" + line;
    } else {
        const std::size_t first = line.find_first_not_of(blanks);
        if (first == std::string::npos || line[first] == '#') {
            return ExitStatus::success;
        }
        ExitStatus status = ExitStatus::success;
        if (takesCommands_ &&
            isCommand(std::string_view(line).substr(first, line.find_last_not_of(blanks) + 1 - first), status)) {
            flush();
            return status;
        }
        firstLine_ = lines_;
        calculation_ = std::move(line);
    }
    return openAtEnd(toUtf16(calculation_)) != Open::nothing ? ExitStatus::success : finish();
}

ExitStatus Lines::finish()
{
    const std::string calculation = std::exchange(calculation_, {});
    return calculation.empty() ? ExitStatus::success : session_.run(calculation, name_, firstLine_);
}

bool Lines::isCommand(std::string_view line, ExitStatus& status)
{
    const std::size_t end = std::min(line.find_first_of(blanks), line.size());
    const std::u16string word = foldCase(toUtf16(line.substr(0, end)));
    const std::string_view rest = line.substr(std::min(line.find_first_not_of(blanks, end), line.size()));
    if (word == u"help") {
        status = help(session_, rest);
    } else if (rest.empty() && word == u"list") {
        status = listFunctions(session_);
    } else if (rest.empty() && word == u"steps") {
        status = listSteps(session_);
    } else if (rest.empty() && (word == u"quit" || word == u"exit")) {
        hasQuit_ = true;
    } else {
        return false;
    }
    return true;
}

} // namespace fmxhost
