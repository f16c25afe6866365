// Results as text: what FileMaker shows, with its line ends (¶, line feed, or both in this order) as line feeds, so
// that a list is one item a line. As JSON: one object on one line (RFC 8259) with these members:
//   calculation  the text as it was given
//   type         "text", "number", "timestamp", "empty"; of other plug-ins also "date", "time", "container"; "error"
//   value        always a string: a text as it is, a number in decimal digits, a timestamp as YYYY-MM-DDTHH:MM:SS, a
//                date or a time as the part of that; "" for the other types
//   error        the code that a function returned; 1200 with the type "error", as FileMaker's EvaluationError has it
//   seconds      how long the evaluation took
//   message, line, column   with the type "error": what is wrong with the calculation, and where in it
// Lone surrogates become U+FFFD. Long texts are written piece by piece, so that they are never there twice.
#include "host/session.h"

#include "host/base/system.h"
#include "host/base/unicode.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace fmxhost {
namespace fs = std::filesystem;
namespace {

constexpr std::uint32_t pieceSize = 32 * 1024;
constexpr int calculationErrorCode = 1200;

// Hands the text over in pieces that cut no character.
template <typename Consumer>
void forEachPiece(const fmx::Text& text, Consumer consume)
{
    const std::uint32_t total = text.GetSize();
    for (std::uint32_t position = 0; position < total;) {
        std::u16string piece = unitsOf(text, position, pieceSize);
        const bool endsWithLead = piece.back() >> 10 == 0x36;
        if (endsWithLead && position + piece.size() < total && piece.size() > 1) {
            piece.pop_back();
        }
        position += static_cast<std::uint32_t>(piece.size());
        consume(piece);
    }
}

bool isHiddenControl(char16_t unit)
{
    return (unit < 0x20 && unit != u'\t' && unit != u'\n') || (unit >= 0x7F && unit < 0xA0);
}

// A short text as plug-ins answer it for a failure, such as "ERROR" or "$$ERROR", or FileMaker's own "?".
bool looksLikeError(const Value& value)
{
    constexpr std::uint32_t longest = 20;
    if (value.type() != ValueType::text || value.data().GetAsText().GetSize() > longest) {
        return false;
    }
    const std::u16string text = value.text();
    return text == u"?" || text.find(u"ERROR") != std::u16string::npos;
}

void writePlain(Output& output, const Value& value)
{
    if (wantsColour(output.descriptor()) && looksLikeError(value)) {
        output.write(styled(value.utf8(), Style::error, true) + "\n");
        return;
    }
    const bool hidesControls = isatty(output.descriptor()) != 0;
    bool afterReturn = false;
    forEachPiece(value.data().GetAsText(), [&](const std::u16string& piece) {
        std::u16string shown;
        for (const char16_t unit : piece) {
            if (unit != u'\n' || !afterReturn) {
                shown.push_back(unit == u'\r' ? u'\n' : unit);
            }
            afterReturn = unit == u'\r';
        }
        if (hidesControls) {
            std::replace_if(shown.begin(), shown.end(), isHiddenControl, u'\uFFFD');
        }
        output.write(toUtf8(shown));
    });
    output.write("\n");
}

void writeJsonValue(Output& output, const Value& value)
{
    constexpr std::size_t dateLength = 10;
    switch (value.type()) {
    case ValueType::text:
    case ValueType::number:
        forEachPiece(value.data().GetAsText(), [&output](const std::u16string& piece) {
            const std::string quoted = jsonString(toUtf8(piece));
            output.write(std::string_view(quoted).substr(1, quoted.size() - 2));
        });
        break;
    case ValueType::timestamp:
        output.write(isoText(value.timestamp()));
        break;
    case ValueType::date:
        output.write(isoText(value.timestamp()).substr(0, dateLength));
        break;
    case ValueType::time:
        output.write(value.utf8());
        break;
    default:
        break;
    }
}

void writeJson(Output& output, std::string_view calculation, const Evaluation& evaluation)
{
    static constexpr std::array<const char*, 7> types{"empty", "text",      "number",   "date",
                                                      "time",  "timestamp", "container"};
    const auto type = static_cast<std::size_t>(evaluation.value.type());
    output.write("{\"calculation\":" + jsonString(calculation) + ",\"type\":\"" + types.at(type) + "\",\"value\":\"");
    writeJsonValue(output, evaluation.value);
    char rest[80];
    std::snprintf(rest, sizeof rest, "\",\"error\":%d,\"seconds\":%.6f}\n", evaluation.error, evaluation.seconds);
    output.write(rest);
}

// In a unit that suits it, such as "12.3 ms".
std::string timeText(double seconds)
{
    constexpr double millisecond = 1e-3;
    constexpr double microsecond = 1e-6;
    char text[40];
    if (seconds >= 1) {
        std::snprintf(text, sizeof text, "%.2f s", seconds);
    } else if (seconds >= millisecond) {
        std::snprintf(text, sizeof text, "%.1f ms", seconds / millisecond);
    } else {
        std::snprintf(text, sizeof text, "%.0f µs", seconds / microsecond);
    }
    return text;
}

// "FILE:LINE:COLUMN: ", "-e 2: " or nothing.
std::string originText(const Origin& origin, const Place& place)
{
    if (origin.name.empty() || !origin.line) {
        return origin.name + (origin.name.empty() ? "" : ": ");
    }
    return origin.name + ":" + std::to_string(*origin.line + place.line - 1) + ":" + std::to_string(place.column) +
           ": ";
}

} // namespace

fs::path Session::pluginFile() const
{
    if (!options_.pluginFile.empty()) {
        return options_.pluginFile;
    }
    const char* named = std::getenv("FMXHOST_PLUGIN");
    if (named != nullptr && *named != '\0') {
        return named;
    }
    const fs::path installed = FMXHOST_DEFAULT_PLUGIN;
    std::error_code error;
    const fs::path executable = fs::canonical(executableFile(), error);
    fs::path beside = executable.parent_path() / installed.filename();
    return !error && fs::exists(beside, error) ? beside : installed;
}

Plugin& Session::plugin()
{
    if (!plugin_) {
        const fs::path file = pluginFile();
        std::error_code error;
        if (options_.pluginFile.empty() && !fs::exists(file, error)) {
            throw PluginError(PluginError::Kind::notLoaded,
                              "No plug-in was found: there is no file " + file.string() +
                                  ". Name one with --plugin or in the variable FMXHOST_PLUGIN.");
        }
        auto plugin = std::make_unique<Plugin>(file, options_.apiVersion);
        plugin->start();
        plugin_ = std::move(plugin);
    }
    return *plugin_;
}

const FunctionTable& Session::functions()
{
    if (!functions_) {
        functions_.emplace(plugin().functions());
    }
    return *functions_;
}

Evaluator& Session::evaluator()
{
    if (!evaluator_) {
        evaluator_.emplace(functions(), options_.parser);
    }
    return *evaluator_;
}

void Session::close()
{
    evaluator_.reset();
    functions_.reset();
    if (const auto plugin = std::move(plugin_)) {
        plugin->unload();
    }
}

ExitStatus Session::run(std::string_view calculation, const Origin& origin)
{
    Evaluator& calculations = evaluator();
    try {
        if (!isValidUtf8(calculation)) {
            throw CalculationError({}, "The calculation isn't valid UTF-8.");
        }
        const Evaluation evaluation = calculations.evaluate(toUtf16(calculation));
        if (options_.json) {
            writeJson(output_, calculation, evaluation);
        } else {
            writePlain(output_, evaluation.value);
        }
        output_.flush();
        if (options_.time) {
            output_.report(styled(timeText(evaluation.seconds), Style::faint, wantsColour(STDERR_FILENO)));
        }
        return ExitStatus::success;
    } catch (const CalculationError& error) {
        fail(calculation, origin, error, error.span());
        return ExitStatus::calculationError;
    } catch (const PluginThrew& error) {
        fail(calculation, origin, error, error.span());
        return ExitStatus::pluginThrew;
    }
}

void Session::fail(std::string_view calculation, const Origin& origin, const std::exception& error, Span span)
{
    const std::u16string source = toUtf16(calculation);
    const Place place = placeOf(source, span.offset);
    if (options_.json) {
        output_.write(jsonObject({{"calculation", std::string(calculation)},
                                  {"type", "error"},
                                  {"value", ""},
                                  {"error", calculationErrorCode},
                                  {"seconds", 0},
                                  {"message", error.what()},
                                  {"line", static_cast<std::int64_t>(place.line)},
                                  {"column", static_cast<std::int64_t>(place.column)}}) +
                      "\n");
    }
    output_.reportError(originText(origin, place) + error.what());
    if (isValidUtf8(calculation)) {
        const std::string lines = pointAt(source, span);
        const std::size_t end = lines.find('\n');
        output_.report("  " + lines.substr(0, end) + "\n  " +
                       styled(lines.substr(end + 1), Style::pointer, wantsColour(STDERR_FILENO)));
    }
}

} // namespace fmxhost
