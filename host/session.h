// One run of fmxhost: its options, its plug-in, and the calculations that are evaluated with it.
#pragma once

#include "host/base/output.h"
#include "host/base/plugin.h"
#include "host/calculation/evaluate.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
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

// Where a calculation comes from, for error messages.
struct Origin {
    std::string name;                // the file, or "-e 2"; may be empty
    std::optional<std::size_t> line; // of the file, from 1
};

class Session {
public:
    Session(Options options, Output& output) : options_(std::move(options)), output_(output) {}

    const Options& options() const { return options_; }
    Output& output() { return output_; }

    // The one that the options name, else that of the variable FMXHOST_PLUGIN, else the default: by its file name
    // beside fmxhost, where there is one, else where an installation puts it, whether or not it is there.
    std::filesystem::path pluginFile() const;

    // Loaded and started when it is first asked for; it stays to the end.
    // Errors: PluginError.
    Plugin& plugin();
    const FunctionTable& functions();
    Evaluator& evaluator();

    // Shuts the plug-in down and unloads it, if it was ever loaded.
    // Errors: PluginError.
    void close();

    // Evaluates a calculation and writes the result, as plain text or JSON as the options say, at once; with the option
    // `time` the time to standard error. An error in the calculation goes to standard error with the place pointed at,
    // as JSON into the output too; the status says which kind it was.
    // Errors: PluginError when the plug-in isn't loaded yet and can't be; OutputError.
    ExitStatus run(std::string_view calculation, const Origin& origin);

private:
    void fail(std::string_view calculation, const Origin& origin, const std::exception& error, Span span);

    Options options_;
    Output& output_;
    std::unique_ptr<Plugin> plugin_;
    std::optional<FunctionTable> functions_;
    std::optional<Evaluator> evaluator_;
};

} // namespace fmxhost
