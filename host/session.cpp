// Results as text: what FileMaker shows, with its line ends (¶, line feed, or both in this order) as line feeds, so
// that a list is one item a line. As JSON: the object that fmxhost(1) describes, in which a value is always a string,
// and a date or a time the part of YYYY-MM-DDTHH:MM:SS.
#include "host/session.h"

#include "host/base/system.h"
#include "host/base/unicode.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <system_error>
#include <utility>

namespace fmxhost {
namespace fs = std::filesystem;
namespace {

constexpr std::string_view blanks = " \t";

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

// `asTyped`: with commands, and on behind an error. Returns the status of the first one.
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
    : options_(options), plugin_(pluginFile(options), options.apiVersion),
      functions_((plugin_.start(), plugin_.functions()))
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
    } catch (const CalculationError& error) {
        fail(calculation, origin, line, error);
        const bool hasThrown = dynamic_cast<const PluginThrew*>(&error) != nullptr;
        return hasThrown ? ExitStatus::pluginThrew : ExitStatus::calculationError;
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
    return isBlank(toUtf16(calculation)) ? ExitStatus::success : session_.run(calculation, name_, firstLine_);
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
