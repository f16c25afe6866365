#include "host/session.h"

#include "host/base/unicode.h"

#include <nlohmann/json.hpp>

#include <iomanip>
#include <ios>
#include <sstream>
#include <utility>

namespace fmxhost {
namespace {

constexpr std::size_t helpWidth = 96;
constexpr std::string_view helpIndent = "  ";

constexpr std::string_view languageText =
    R"(A calculation is what FileMaker calls one:

  "text"  12.5  ¶          texts (\" and \\ stand for " and \; ¶ is the end of a line), numbers
  f ( a ; b )              a call; a function without parameters needs no parentheses
  not  ^  * /  + -  &      operators, the strongest first, then
  = ≠ <> < > ≤ <= ≥ >=     comparisons, of texts where one is a text, without letter case, then
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

// FileMaker's own have neither an ID nor flags.
Json described(const Function& function)
{
    Json object;
    if (function.external != nullptr) {
        object["id"] = function.external->id;
    }
    object["name"] = toUtf8(function.name);
    object["prototype"] = toUtf8(function.prototype);
    object["description"] = toUtf8(function.description);
    object["min"] = function.minimumArguments;
    object["max"] = function.maximumArguments;
    if (function.external != nullptr) {
        object["flags"] = function.external->flags;
    }
    return object;
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

} // namespace

ExitStatus listFunctions(Session& session)
{
    print(session.json() ? "" : "   ID  ARGUMENTS   FUNCTION\n");
    for (const fmxkit::ExternalFunction& function : session.plugin().functions()) {
        std::ostringstream line;
        line << std::setw(5) << function.id << "  " << std::left << std::setw(10) << argumentCounts(Function(function))
             << "  " << toUtf8(function.prototype);
        show(session, described(Function(function)), line.str());
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
    auto found = named != nullptr ? std::vector{named} : functionsAbout(functions, name);
    const bool isUnknown = found.empty();
    if (isUnknown) {
        const std::string text = functions.unknownText(name);
        reportError(text);
        // Without a suggestion: what begins alike.
        for (auto size = isLacking(name) ? 0 : name.size(); text.ends_with('.') && found.empty() && size > 3; --size) {
            found = functionsAbout(functions, name.substr(0, size - 1));
        }
    }
    for (const Function* function : found) {
        show(session, described(*function), named != nullptr ? functionHelp(*function) : toUtf8(function->prototype));
    }
    return isUnknown ? ExitStatus::wrongUse : ExitStatus::success;
}

} // namespace fmxhost
