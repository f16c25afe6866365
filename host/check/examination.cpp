#include "host/check/examination.h"

#include "host/check/json.h"

#include <unistd.h>

#include <cerrno>

namespace fmxhost::check {

EventWriter::EventWriter(int descriptor) : descriptor_(descriptor), process_(getpid()) {}

void EventWriter::write(std::string_view kind, std::string_view text) const
{
    if (getpid() != process_) {
        _exit(0);
    }
    const std::string line = jsonText({{std::string(kind), text}}) + "\n";
    std::string_view rest = line;
    while (!rest.empty()) {
        const ssize_t written = ::write(descriptor_, rest.data(), rest.size());
        if (written < 0 && errno == EBADF) {
            _exit(eventsLostStatus);
        }
        if (written < 0 && errno != EINTR) {
            return;
        }
        rest.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

std::string_view stageName(Stage stage)
{
    switch (stage) {
    case Stage::file:
        return "file";
    case Stage::loaded:
        return "loaded";
    case Stage::started:
        return "started";
    default:
        return "ended";
    }
}

std::string apiVersionText(std::int16_t version)
{
    return "API version " + std::to_string(version);
}

Plugin& Examination::loaded()
{
    if (!plugin_) {
        step("loading it and asking for its options string");
        plugin_ = std::make_unique<Plugin>(file_, apiVersion_);
        step("");
        reach(Stage::loaded);
    }
    return *plugin_;
}

Plugin& Examination::started()
{
    Plugin& plugin = loaded();
    if (!started_) {
        if (!plugin.wantsStartUp()) {
            throw PluginError(PluginError::Kind::refused,
                              "character 8 of the options string is \"n\": FileMaker sends no start-up message, so "
                              "nothing gets registered");
        }
        step("the start-up message");
        startUpAnswer_ = plugin.start();
        step("");
        started_ = true;
        reach(Stage::started);
    }
    return plugin;
}

} // namespace fmxhost::check
