// fmxhost list, steps, strings: what a plug-in offers.
#include "host/commands/command.h"
#include "host/commands/description.h"
#include "host/unicode.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <iterator>
#include <string>

namespace fmxhost {
namespace {

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

ExitStatus list(Context& context)
{
    const auto& functions = context.plugin().functions();
    Output& output = context.output();
    if (context.options().json) {
        Json array = Json::array();
        std::transform(functions.begin(), functions.end(), std::back_inserter(array),
                       [](const fmxkit::ExternalFunction& function) { return describe(function); });
        output.write(jsonLines(array));
        return ExitStatus::success;
    }
    constexpr std::size_t countsWidth = 10;
    output.write("   ID  " + padded("ARGUMENTS", countsWidth) + "  FUNCTION\n");
    for (const fmxkit::ExternalFunction& function : functions) {
        output.write(idColumn(function.id) + "  " + padded(argumentCounts(&function), countsWidth) + "  " +
                     toUtf8(function.prototype) + "\n");
    }
    return ExitStatus::success;
}

ExitStatus steps(Context& context)
{
    const auto& scriptSteps = context.plugin().scriptSteps();
    Output& output = context.output();
    if (context.options().json) {
        Json array = Json::array();
        std::transform(scriptSteps.begin(), scriptSteps.end(), std::back_inserter(array),
                       [](const fmxkit::ScriptStep& step) { return describe(step); });
        output.write(jsonLines(array));
        return ExitStatus::success;
    }
    output.write("   ID  SCRIPT STEP, DEFINITION\n");
    for (const fmxkit::ScriptStep& step : scriptSteps) {
        output.write(idColumn(step.id) + "  " + toUtf8(step.name) + "\n");
        if (!step.definition.empty()) {
            output.write("       " + toUtf8(step.definition) + "\n");
        }
    }
    return ExitStatus::success;
}

ExitStatus strings(Context& context)
{
    constexpr std::array<std::pair<PluginString, const char*>, 4> requests{{{PluginString::name, "name"},
                                                                            {PluginString::preferences, "preferences"},
                                                                            {PluginString::options, "options"},
                                                                            {PluginString::helpLocation, "help"}}};
    constexpr std::size_t labelWidth = 11;
    Json object = Json::object();
    std::string lines;
    for (const auto& [request, label] : requests) {
        const std::string number = std::to_string(static_cast<int>(request));
        const std::string text = toUtf8(context.plugin().string(request));
        object[number] = text;
        lines.append(number).append("  ").append(padded(label, labelWidth)).append("  ").append(text).append("\n");
    }
    context.output().write(context.options().json ? jsonText(object) + "\n" : lines);
    return ExitStatus::success;
}

} // namespace

CommandBody declareList(CLI::App&)
{
    return list;
}
CommandBody declareSteps(CLI::App&)
{
    return steps;
}
CommandBody declareStrings(CLI::App&)
{
    return strings;
}

} // namespace fmxhost
