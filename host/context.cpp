#include "host/context.h"

#include "host/plugin_location.h"
#include "host/terminal/terminal.h"

#include <unistd.h>

#include <system_error>

namespace fmxhost {

std::filesystem::path Context::pluginFile() const
{
    return options_.pluginFile.empty() ? defaultPluginFile() : options_.pluginFile;
}

Plugin& Context::plugin()
{
    if (!plugin_) {
        const std::filesystem::path file = pluginFile();
        std::error_code error;
        if (options_.pluginFile.empty() && !std::filesystem::exists(file, error)) {
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

const FunctionTable& Context::functions()
{
    if (!functions_) {
        functions_.emplace(plugin().functions());
    }
    return *functions_;
}

Evaluator& Context::evaluator()
{
    if (!evaluator_) {
        evaluator_.emplace(functions(), ParserOptions{options_.checkArgumentCounts});
    }
    return *evaluator_;
}

void Context::close()
{
    evaluator_.reset();
    functions_.reset();
    if (const auto plugin = std::move(plugin_)) {
        plugin->unload();
    }
}

void Context::report(std::string_view line)
{
    output_.flush();
    Output error(STDERR_FILENO);
    try {
        error.write(line);
        error.write("\n");
        error.flush();
    } catch (const OutputError&) {
        // There is nowhere left to say it; the exit status does.
    }
}

void Context::reportError(std::string_view message)
{
    report(styled("fmxhost:", Style::error, wantsColour(STDERR_FILENO)) + " " + std::string(message));
}

} // namespace fmxhost
