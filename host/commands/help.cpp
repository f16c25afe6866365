// fmxhost help [FUNCTION]
#include "host/commands/help.h"

#include "host/commands/command.h"
#include "host/commands/description.h"
#include "host/unicode.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace fmxhost {
namespace {

constexpr std::size_t helpWidth = 96;
constexpr std::size_t helpIndent = 2;

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

Names may be written in any letter case. help FUNCTION says more about one function.
)";

std::u16string_view prototypeOf(const Function& function)
{
    return std::visit([](const auto* entry) { return std::u16string_view(entry->prototype); }, function);
}

std::string nameLines(const FunctionTable& functions, bool builtIn)
{
    std::u16string names;
    for (const std::u16string_view name : functions.namesWithPrefix(u"")) {
        const std::optional<Function> function = functions.find(name);
        if (function && std::holds_alternative<const BuiltIn*>(*function) == builtIn) {
            names.append(name).append(u" ");
        }
    }
    return wrapped(names, helpIndent, helpWidth) + "\n";
}

ExitStatus help(Context& context, const std::string& name)
{
    if (name.empty()) {
        context.output().write(languageHelp(context.functions()));
        return ExitStatus::success;
    }
    const auto* function = context.plugin().find(toUtf16(name));
    if (context.options().json && function != nullptr) {
        context.output().write(jsonText(describe(*function)) + "\n");
        return ExitStatus::success;
    }
    const std::optional<std::string> text = functionHelp(context.functions(), name);
    if (!text) {
        context.reportError(unknownFunctionText(context.functions(), name));
        return ExitStatus::wrongUse;
    }
    context.output().write(*text);
    return ExitStatus::success;
}

} // namespace

std::optional<std::string> functionHelp(const FunctionTable& functions, std::string_view name)
{
    const std::optional<Function> function = functions.find(toUtf16(name));
    if (!function) {
        return std::nullopt;
    }
    std::string text = toUtf8(prototypeOf(*function)) + "\n\n";
    const std::u16string_view description = std::visit(
        [](const auto* entry) { return descriptionText(std::u16string_view(entry->description)); }, *function);
    if (!description.empty()) {
        text += wrapped(description, helpIndent, helpWidth) + "\n\n";
    }
    text += "  Arguments: " + argumentCounts(*function) + "\n";
    const auto* external = std::get_if<const fmxkit::ExternalFunction*>(&*function);
    return text + (external != nullptr ? "  Function ID: " + std::to_string((*external)->id) + "\n"
                                       : "  Built into fmxhost, as in FileMaker\n");
}

std::string languageHelp(const FunctionTable& functions)
{
    return std::string(languageText) + "\nFunctions of the plug-in:\n" + nameLines(functions, false) +
           "\nBuilt-in functions:\n" + nameLines(functions, true);
}

std::string unknownFunctionText(const FunctionTable& functions, std::string_view name)
{
    const std::string suggestion = toUtf8(functions.suggestionFor(toUtf16(name)));
    return "There is no function called " + std::string(name) + "." +
           (suggestion.empty() ? "" : " Did you mean " + suggestion + "?");
}

CommandBody declareHelp(CLI::App& arguments)
{
    const auto name = std::make_shared<std::string>();
    arguments.add_option("FUNCTION", *name, "In any letter case; nothing: how calculations are written");
    return [name](Context& context) { return help(context, *name); };
}

} // namespace fmxhost
