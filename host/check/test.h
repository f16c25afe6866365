// The tests of "fmxhost check", and what one works with in the process of its own that it runs in.
#pragma once

#include "host/base/plugin.h"
#include "host/base/unicode.h"
#include "host/check/check.h"

#include <cstdint>
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

enum class Verdict {
    pass,
    note,    // passed, and there is something to know
    skipped, // can't be made here, or a test before it failed at what it needs
    fail,    // the first of the failures
    crash,   // the process ended before the test did
    timeOut, // it was ended because the test took too long
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
    // process ends. The options must outlive it.
    Examination(const Options& options, int events);

    const Options& options() const { return options_; }

    // What is going to be done; names the place where the process crashes or hangs.
    void step(std::string_view text) const { tell('s', text); }
    void reach(Stage stage) const { tell('r', std::to_string(static_cast<int>(stage))); }
    void done() const { tell('d', ""); }

    // A finding. Of several the worst verdict counts.
    void find(Verdict verdict, std::string_view text) const { tell(static_cast<char>(verdict), text); }
    void fail(std::string_view text) const { find(Verdict::fail, text); }
    // A failure unless the condition holds.
    void expect(bool condition, std::string_view fault) const
    {
        if (!condition) {
            fail(fault);
        }
    }

    // The plug-in, loaded or started when first asked for. It is never unloaded unless a test does so: what unloading
    // goes wrong with belongs to the tests of unloading.
    // Errors: PluginError.
    Plugin& loaded();
    Plugin& started();

    // After started(). Errors: PluginError.
    void shutDown() const;
    void unload(); // it can be loaded again

private:
    // Ends the process where the plug-in has closed the descriptor, and in a copy of the process: a plug-in that forks
    // and returns twice mustn't have the test made twice.
    void tell(char kind, std::string_view text) const;

    const Options& options_;
    int events_;
    int process_;
    std::unique_ptr<Plugin> plugin_;
    bool isStarted_ = false;
};

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

// ---- Making a test in a process of its own, and knowing what came of it however that process ended: sandbox.cpp

// What came of a test. Texts are UTF-8, where the plug-in's own are.
struct Result {
    Verdict verdict = Verdict::pass;
    std::vector<std::string> reasons; // why it failed or was skipped
    std::vector<std::string> notes;
    Stage reached = Stage::file;
    std::string output; // the end of what the process wrote to its standard output and standard error
};

// Starts this program once more for the test and waits for it. The processes of its group end with it.
// Errors: std::system_error when no process can be started.
Result runIsolated(const Test& test, const Options& options);

// The other side: makes the test in this process, which runIsolated() has started, and ends the process.
[[noreturn]] void runHere(const Test& test, const Options& options);

// ---- What tests share, and the tests themselves

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

// file.cpp: the plug-in as a file.
void examineExports(Examination& examination);
void examineLibraries(Examination& examination);

// strings.cpp: what it says about itself.
void examineStrings(Examination& examination);
void examineOptions(Examination& examination);

// messages.cpp
void examineLoading(Examination& examination);
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

} // namespace fmxhost::check
