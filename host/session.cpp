// Results as text: what FileMaker shows, with its line ends (¶, line feed, or both in this order) as line feeds, so
// that a list is one item a line. As JSON: the object that fmxhost(1) describes, in which a value is always a string,
// and a date or a time the part of YYYY-MM-DDTHH:MM:SS.
#include "host/session.h"

#include "host/base/system.h"
#include "host/base/unicode.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace fmxhost {
namespace fs = std::filesystem;
namespace {

// Errors: PluginError.
Plugin& started(Plugin& plugin)
{
    plugin.start();
    return plugin;
}

std::string plainText(const Value& value)
{
    std::u16string text;
    char16_t before = u'\0';
    for (const char16_t unit : value.text()) {
        if (unit != u'\n' || before != u'\r') {
            text.push_back(unit == u'\r' ? u'\n' : unit);
        }
        before = unit;
    }
    return toUtf8(isatty(STDOUT_FILENO) != 0 ? withoutControls(text, u'\uFFFD', u"\t\n") : text);
}

Json described(std::string_view calculation, const Evaluation& evaluation)
{
    static constexpr std::array names{"empty", "text", "number", "date", "time", "timestamp", "container"};
    const Value& value = evaluation.value;
    const ValueType type = value.type();
    const std::string text = type == ValueType::date        ? value.isoText().substr(0, 10)
                             : type == ValueType::timestamp ? value.isoText()
                             : type == ValueType::container ? ""
                                                            : value.utf8();
    return {{"calculation", calculation},
            {"type", names.at(static_cast<std::size_t>(type))},
            {"value", text},
            {"error", evaluation.error},
            {"seconds", evaluation.seconds}};
}

} // namespace

fs::path pluginFile(const Options& options)
{
    if (!options.pluginFile.empty()) {
        return options.pluginFile;
    }
    const char* named = std::getenv("FMXHOST_PLUGIN");
    if (named != nullptr && *named != '\0') {
        return named;
    }
    const fs::path installed = FMXHOST_DEFAULT_PLUGIN;
    std::error_code error;
    const fs::path executable = fs::canonical(executableFile(), error);
    const fs::path beside = executable.parent_path() / installed.filename();
    fs::path file = !error && fs::exists(beside, error) ? beside : installed;
    if (!fs::exists(file, error)) {
        throw PluginError(PluginError::Kind::notLoaded,
                          "No plug-in was found: there is no file " + file.string() +
                              ". Name one with --plugin or in the variable FMXHOST_PLUGIN.");
    }
    return file;
}

Session::Session(const Options& options)
    : options_(options), plugin_(pluginFile(options), options.apiVersion), functions_(started(plugin_).functions())
{
}

ExitStatus Session::run(std::string_view calculation, const std::string& origin, std::size_t line)
{
    try {
        if (!isValidUtf8(calculation)) {
            throw CalculationError({}, "The calculation isn't valid UTF-8.");
        }
        const Evaluation evaluation = evaluate(toUtf16(calculation), functions_, options_.parser, variables_);
        print((options_.json ? jsonText(described(calculation, evaluation)) : plainText(evaluation.value)) + "\n");
        flush();
        if (options_.time) {
            char text[40];
            std::snprintf(text, sizeof text, "%.3f ms", evaluation.seconds * 1000);
            report(styled(text, Style::faint, STDERR_FILENO));
        }
        return ExitStatus::success;
    } catch (const PluginThrew& error) {
        fail(calculation, origin, line, error);
        return ExitStatus::pluginThrew;
    } catch (const CalculationError& error) {
        fail(calculation, origin, line, error);
        return ExitStatus::calculationError;
    }
}

void Session::fail(std::string_view calculation, const std::string& origin, std::size_t line,
                   const CalculationError& error)
{
    constexpr int errorCode = 1200;
    const std::u16string source = toUtf16(calculation);
    const Place place = placeOf(source, error.span().offset);
    if (options_.json) {
        print(jsonText({{"calculation", calculation},
                        {"type", "error"},
                        {"value", ""},
                        {"error", errorCode},
                        {"seconds", 0},
                        {"message", error.what()},
                        {"line", place.line},
                        {"column", place.column}}) +
              "\n");
    }
    const bool inFile = !origin.empty() && line > 0;
    reportError(origin +
                (inFile ? ":" + std::to_string(line + place.line - 1) + ":" + std::to_string(place.column) : "") +
                (origin.empty() ? "" : ": ") + error.what());
    if (isValidUtf8(calculation)) {
        const std::string lines = pointAt(source, error.span());
        const std::size_t end = lines.find('\n');
        report("  " + lines.substr(0, end) + "\n  " + styled(lines.substr(end + 1), Style::good, STDERR_FILENO));
    }
}

} // namespace fmxhost
