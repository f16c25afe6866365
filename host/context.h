// What the commands of fmxhost work with: options, output, the plug-in.
#pragma once

#include "host/calculation/evaluator.h"
#include "host/exit_status.h"
#include "host/output.h"
#include "host/plugin.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace fmxhost {

struct Options {
    std::filesystem::path pluginFile; // empty: defaultPluginFile()
    std::int16_t apiVersion = defaultApiVersion;
    bool json = false;
    bool checkArgumentCounts = true;
    bool time = false;
};

class Context {
public:
    Context(Options options, Output& output) : options_(std::move(options)), output_(output) {}

    const Options& options() const { return options_; }
    Output& output() { return output_; }
    std::filesystem::path pluginFile() const;

    // Loaded and started when it is first asked for; it stays to the end.
    // Errors: PluginError.
    Plugin& plugin();
    const FunctionTable& functions();
    Evaluator& evaluator();

    // Shuts the plug-in down and unloads it, if it was ever loaded.
    // Errors: PluginError.
    void close();

    // One line on standard error, after what was written to the output so far.
    void reportError(std::string_view message);
    void report(std::string_view line);

private:
    Options options_;
    Output& output_;
    std::unique_ptr<Plugin> plugin_;
    std::optional<FunctionTable> functions_;
    std::optional<Evaluator> evaluator_;
};

} // namespace fmxhost
