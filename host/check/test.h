// The tests of "fmxhost check", and what one works with in the process of its own that it runs in.
#pragma once

#include "host/base/plugin.h"
#include "host/base/unicode.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace fmxhost::check {

constexpr std::int16_t oldestApiVersion = 50; // that a host can have
constexpr std::int16_t newestApiVersion = 255;

// How far a plug-in has got. What fails at a stage keeps every test from running that needs the next one.
enum class Stage {
    file,    // nothing of it has run
    loaded,  // loaded, and its options string asked for
    started, // the start-up message answered
    ended,   // the shut-down message answered
};

// What a test tells the process that started it.
enum class Event : char {
    step = 's',    // what is being done now; "" when the plug-in's turn is over
    reached = 'r', // a stage, as its number
    failure = 'f',
    note = 'n',
    skipped = 'k',
    done = 'd', // the test came to its end
};

struct Settings {
    std::filesystem::path plugin;
    std::int16_t apiVersion = defaultApiVersion;
    std::filesystem::path libraries;         // the list of what a server has; empty: there is none
    std::chrono::duration<double> timeLimit; // for one process
};

// A test that can't be made here; what() is the reason, for the user.
class Skipped : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Thread rule: one thread at a time.
class Examination {
public:
    // Events go to the descriptor at once, so that what was found, and what was being done, is known however the
    // process ends.
    Examination(Settings settings, int events);

    const Settings& settings() const { return settings_; }

    // Ends the process where the plug-in has closed the descriptor, and in a copy of the process: a plug-in that forks
    // and returns twice mustn't have the test made twice.
    void tell(Event event, std::string_view text = "") const;

    // What is going to be done; names the place where the process crashes or hangs.
    void step(std::string_view text) const { tell(Event::step, text); }
    void fail(std::string_view text) const { tell(Event::failure, text); }
    void note(std::string_view text) const { tell(Event::note, text); }
    void reach(Stage stage) const { tell(Event::reached, std::to_string(static_cast<int>(stage))); }

    // The plug-in, loaded or started when first asked for. It is never unloaded unless a test does so: what unloading
    // goes wrong with belongs to the tests of unloading.
    // Errors: PluginError.
    Plugin& loaded();
    Plugin& started();

    // What the start-up message was answered with; after started().
    std::int64_t startUpAnswer() const { return startUpAnswer_; }

private:
    Settings settings_;
    int events_;
    int process_;
    std::unique_ptr<Plugin> plugin_;
    bool started_ = false;
    std::int64_t startUpAnswer_ = 0;
};

// How a process ends whose plug-in has closed the descriptor of the events, and everything else with it.
constexpr int eventsLostStatus = 97;

struct Test {
    const char* name; // stable: scripts name tests by it
    Stage needs;      // what it takes the plug-in to before anything else
    // Reports what it finds; nothing reported is a pass.
    // Errors: Skipped; any other std::exception is a failure.
    void (*examine)(Examination& examination);
    const char* summary;
    // The host API versions that it is repeated for, each in a process of its own; none: the one that is played.
    std::span<const std::int16_t> apiVersions = {};
};

// In the order in which they run.
std::span<const Test> allTests();

// Null when there is none of that name.
const Test* findTest(std::string_view name);

// file.cpp: what the dynamic loader, or another plug-in, makes of it.
void examineLoading(Examination& examination);
void examineExports(Examination& examination);
void examineLibraries(Examination& examination);

// strings.cpp: what it says about itself.
void examineStrings(Examination& examination);
void examineOptions(Examination& examination);

// messages.cpp
void examineStartUp(Examination& examination);
void examineVersionRange(Examination& examination);
void examineMessages(Examination& examination);
void examineUnknownMessages(Examination& examination);
void examineShutDown(Examination& examination);
void examineReloading(Examination& examination);

// registered.cpp, steps.cpp: what it registers.
void examineFunctionNames(Examination& examination);
void examinePrototypes(Examination& examination);
void examineDescriptions(Examination& examination);
void examineIds(Examination& examination);
void examineScriptSteps(Examination& examination);

// How results name what a plug-in has registered: "function 3 Smpl_Fail", "script step 3 Smpl_Fail"; without the name
// where there is none. UTF-8.
template <typename Entry>
std::string nameOf(const Entry& entry)
{
    const std::string kind = std::is_same_v<Entry, fmxkit::ScriptStep> ? "script step " : "function ";
    return kind + std::to_string(entry.id) + (entry.name.empty() ? "" : " " + toUtf8(entry.name));
}

// All that it tries to register, what the host refuses included.
template <typename Entry>
std::vector<Entry> attempted(std::vector<Entry> registered, const std::vector<Entry>& refused)
{
    registered.insert(registered.end(), refused.begin(), refused.end());
    return registered;
}

// The text in quotes, as UTF-8; of a long one its beginning.
std::string inQuotes(std::u16string_view text);

// Ascending numbers as people write them: "2, 3, 10 to 255".
std::string numbersText(const std::vector<unsigned>& numbers);

} // namespace fmxhost::check
