// fmxhost run FILE
#include "host/calculation_runner.h"
#include "host/commands/command.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>

namespace fmxhost {
namespace {

bool isCalculation(const std::string& line)
{
    const std::size_t first = line.find_first_not_of(" \t");
    return first != std::string::npos && line[first] != '#';
}

ExitStatus runLines(Context& context, std::istream& lines, const std::string& name)
{
    std::string line;
    for (std::size_t number = 1; std::getline(lines, line); ++number) {
        constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
        if (number == 1 && line.starts_with(byteOrderMark)) {
            line.erase(0, byteOrderMark.size());
        }
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        if (!isCalculation(line)) {
            continue;
        }
        const ExitStatus status = runCalculation(context, line, {name, number});
        if (status != ExitStatus::success) {
            return status;
        }
    }
    // The stream over standard input keeps a read error to itself.
    if (lines.bad() || (&lines == &std::cin && std::ferror(stdin) != 0)) {
        context.reportError(name + ": " + std::strerror(errno));
        return ExitStatus::wrongUse;
    }
    return ExitStatus::success;
}

ExitStatus runFile(Context& context, const std::string& file)
{
    if (file == "-") {
        context.plugin();
        return runLines(context, std::cin, "standard input");
    }
    std::error_code error;
    std::ifstream lines;
    if (std::filesystem::is_directory(file, error)) {
        errno = EISDIR;
    } else {
        errno = 0;
        lines.open(file, std::ios::binary);
    }
    if (!lines.is_open()) {
        context.reportError(file + ": " + std::strerror(errno));
        return ExitStatus::wrongUse;
    }
    context.plugin();
    return runLines(context, lines, file);
}

} // namespace

CommandBody declareRun(CLI::App& arguments)
{
    const auto file = std::make_shared<std::string>();
    arguments.add_option("FILE", *file, "Calculations, one a line; - is standard input")->required();
    arguments.footer(
        "Blank lines and lines that begin with # are skipped. The first calculation with an error ends the run.");
    return [file](Context& context) { return runFile(context, *file); };
}

} // namespace fmxhost
