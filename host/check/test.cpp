#include "host/check/test.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <utility>

namespace fmxhost::check {
namespace {

// 50 is FileMaker 7, 55 is 14, 56 is 15, 57 is 16, 59 is 17, 60 is 18, 62 is 19; a number between them may be that of
// an update. 255 stands for those to come.
constexpr std::array<std::int16_t, 14> knownVersions{50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 255};
constexpr std::array<std::int16_t, 6> impossibleVersions{49, 0, -1, 256, 32767, -32768};
// Before descriptions, before script steps, with both, and the latest.
constexpr std::array<std::int16_t, 4> registeringVersions{50, 56, 57, defaultApiVersion};

constexpr Test tests[] = {
    {"load", Stage::loaded, examineLoading, "It is a library that loads, with the entry point FMExternCallProc"},
    {"exports", Stage::file, examineExports, "It exports the entry point and nothing else"},
    {"libraries", Stage::file, examineLibraries, "It needs no library, and no version of one, that a server lacks"},
    {"strings", Stage::loaded, examineStrings, "It answers string requests, within the buffer it is given"},
    {"start-up", Stage::started, examineStartUp, "It starts on every API version", knownVersions},
    {"version-range", Stage::loaded, examineVersionRange, "It refuses API versions that can't be", impossibleVersions},
    {"options", Stage::started, examineOptions, "Its options string is well formed; it registers under the ID there"},
    {"function-names", Stage::started, examineFunctionNames, "Each function has a name of its own that can be called"},
    {"prototypes", Stage::started, examinePrototypes,
     "Each prototype begins with the name and has as many parameters as registered"},
    {"descriptions", Stage::started, examineDescriptions, "Each function has a description"},
    {"unique-ids", Stage::started, examineIds, "No ID is used twice"},
    {"script-steps", Stage::started, examineScriptSteps,
     "Each script step's definition is well formed, of known elements"},
    {"messages", Stage::started, examineMessages, "It takes the idle, session and file messages that it asks for"},
    {"unknown-messages", Stage::started, examineUnknownMessages,
     "Messages that it doesn't know or ask for leave the call record untouched"},
    {"shut-down", Stage::ended, examineShutDown, "Shut-down unregisters everything", registeringVersions},
    {"reload", Stage::ended, examineReloading, "It can be loaded and unloaded 100 times, and leaves no file open"},
};

} // namespace

std::span<const Test> allTests()
{
    return tests;
}

const Test* findTest(std::string_view name)
{
    const auto* found =
        std::find_if(std::begin(tests), std::end(tests), [name](const Test& test) { return test.name == name; });
    return found != std::end(tests) ? found : nullptr;
}

Examination::Examination(Settings settings, int events)
    : settings_(std::move(settings)), events_(events), process_(getpid())
{
}

void Examination::tell(Event event, std::string_view text) const
{
    if (getpid() != process_) {
        _exit(0);
    }
    // One event is a line that begins with a record separator, as in JSON text sequences (RFC 7464), and may follow
    // whatever the plug-in has written to its standard output.
    std::string line{'\x1E', static_cast<char>(event)};
    line.append(text);
    std::replace(line.begin(), line.end(), '\n', ' ');
    line.push_back('\n');
    std::string_view rest = line;
    while (!rest.empty()) {
        const ssize_t written = write(events_, rest.data(), rest.size());
        if (written < 0 && errno != EINTR) {
            _exit(eventsLostStatus);
        }
        rest.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

Plugin& Examination::loaded()
{
    if (!plugin_) {
        step("loading it and asking for its options string");
        plugin_ = std::make_unique<Plugin>(settings_.plugin, settings_.apiVersion);
        plugin_->options();
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

std::string inQuotes(std::u16string_view text)
{
    constexpr std::size_t shown = 200;
    return "\"" + toUtf8(text.substr(0, shown)) + (text.size() > shown ? "…\"" : "\"");
}

std::string numbersText(const std::vector<unsigned>& numbers)
{
    std::string text;
    for (auto first = numbers.begin(); first != numbers.end();) {
        auto last = first;
        while (std::next(last) != numbers.end() && *std::next(last) == *last + 1) {
            ++last;
        }
        last = last - first < 2 ? first : last;
        text +=
            (text.empty() ? "" : ", ") + std::to_string(*first) + (last != first ? " to " + std::to_string(*last) : "");
        first = std::next(last);
    }
    return text;
}

} // namespace fmxhost::check
