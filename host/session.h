// One run of fmxhost: its options, its plug-in, and the calculations that are evaluated with it.
#pragma once

#include "host/base/output.h"
#include "host/base/plugin.h"
#include "host/calculation/evaluate.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace fmxhost {

struct Options {
    std::filesystem::path pluginFile; // empty: the variable FMXHOST_PLUGIN, else the default
    std::int16_t apiVersion = defaultApiVersion;
    bool json = false;
    bool time = false;
    ParserOptions parser;
};

// The one that the options name, else that of the variable FMXHOST_PLUGIN, else the default: by its file name beside
// fmxhost, where there is one, else where an installation puts it.
// Errors: PluginError when that isn't there.
std::filesystem::path pluginFile(const Options& options);

class Session {
public:
    // Loads and starts the plug-in; it stays to the end. The options must outlive the session.
    // Errors: PluginError.
    explicit Session(const Options& options);

    Plugin& plugin() { return plugin_; }
    const FunctionTable& functions() const { return functions_; }
    const Variables& variables() const { return variables_; }
    bool json() const { return options_.json; }

    // Evaluates a calculation and writes the result, as plain text or JSON as the options say, at once; with the option
    // `time` the time to standard error. An error in the calculation goes to standard error with the place pointed at,
    // as JSON into the output too; the status says which kind it was. `origin` is where the calculation comes from: a
    // file, "-e 2" or nothing, and its line in the file, from 1, or 0.
    // Errors: OutputError.
    ExitStatus run(std::string_view calculation, const std::string& origin, std::size_t line = 0);

private:
    void fail(std::string_view calculation, const std::string& origin, std::size_t line, const CalculationError& error);

    const Options& options_;
    Plugin plugin_;
    FunctionTable functions_;
    Variables variables_;
};

} // namespace fmxhost
