#include "host/calculation_runner.h"

#include "host/result_writer.h"
#include "host/terminal/spinner.h"
#include "host/terminal/terminal.h"
#include "host/unicode.h"

#include <unistd.h>

#include <cstdio>
#include <exception>

namespace fmxhost {
namespace {

// "FILE:LINE:COLUMN: ", "-e 2: " or nothing.
std::string originText(const Origin& origin, std::u16string_view source, Span span)
{
    if (origin.name.empty()) {
        return {};
    }
    if (!origin.line) {
        return origin.name + ": ";
    }
    const Place place = placeOf(source, span.offset);
    return origin.name + ":" + std::to_string(*origin.line + place.line - 1) + ":" + std::to_string(place.column) +
           ": ";
}

// The line that the error is in and the carets under it, indented.
std::string pointer(std::u16string_view source, Span span)
{
    const std::string lines = pointAt(source, span);
    const std::size_t end = lines.find('\n');
    return "  " + lines.substr(0, end) + "\n  " +
           styled(std::string_view(lines).substr(end + 1), Style::pointer, wantsColour(STDERR_FILENO));
}

void reportAt(Context& context, const Origin& origin, std::u16string_view source, Span span, const char* message)
{
    context.reportError(originText(origin, source, span) + message);
    context.report(pointer(source, span));
}

Evaluation evaluateWithSpinner(Evaluator& evaluator, std::u16string_view source)
{
    const Spinner spinner;
    return evaluator.evaluate(source);
}

void writeResult(Context& context, std::string_view calculation, const Evaluation& evaluation)
{
    Output& output = context.output();
    if (context.options().json) {
        writeJson(output, calculation, evaluation);
    } else {
        const int descriptor = output.descriptor();
        writePlain(output, evaluation.value, {isatty(descriptor) != 0, wantsColour(descriptor)});
    }
    output.flush();
    if (context.options().time) {
        context.report(styled(timeText(evaluation.seconds), Style::faint, wantsColour(STDERR_FILENO)));
    }
}

} // namespace

ExitStatus runCalculation(Context& context, std::string_view calculation, const Origin& origin)
{
    Evaluator& evaluator = context.evaluator();
    const std::u16string source = toUtf16(calculation);
    if (!isValidUtf8(calculation)) {
        context.reportError(originText(origin, source, {}) + "The calculation isn't valid UTF-8.");
        return ExitStatus::calculationError;
    }
    try {
        writeResult(context, calculation, evaluateWithSpinner(evaluator, source));
        return ExitStatus::success;
    } catch (const CalculationError& error) {
        reportAt(context, origin, source, error.span(), error.what());
        return ExitStatus::calculationError;
    } catch (const PluginThrew& error) {
        reportAt(context, origin, source, error.span(), error.what());
        return ExitStatus::pluginThrew;
    }
}

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

} // namespace fmxhost
