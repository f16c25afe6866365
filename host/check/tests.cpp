#include "host/check/tests.h"

#include <algorithm>
#include <array>

namespace fmxhost::check {
namespace {

// 50 is FileMaker 7, 55 is 14, 56 is 15, 57 is 16, 59 is 17, 60 is 18, 62 is 19; a number between them may be that of
// an update. 255 stands for those to come.
constexpr std::array<std::int16_t, 14> knownVersions{50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 255};
constexpr std::array<std::int16_t, 6> impossibleVersions{49, 0, -1, 256, 32767, -32768};
// Before descriptions, before script steps, with both, and the latest.
constexpr std::array<std::int16_t, 4> registeringVersions{50, 56, 57, defaultApiVersion};

constexpr std::array<Test, 16> tests{{
    {"load", "It is a library that loads, with the entry point FMExternCallProc", Stage::loaded, {}, examineLoading},
    {"exports", "It exports the entry point and nothing else", Stage::file, {}, examineExports},
    {"libraries", "It needs no library, and no version of one, that a server lacks", Stage::file, {}, examineLibraries},
    {"strings", "It answers string requests, within the buffer it is given", Stage::loaded, {}, examineStrings},
    {"start-up", "It starts on every API version", Stage::started, knownVersions, examineStartUp},
    {"version-range", "It refuses API versions that can't be", Stage::loaded, impossibleVersions, examineVersionRange},
    {"options",
     "Its options string is well formed; it registers under the ID there",
     Stage::started,
     {},
     examineOptions},
    {"function-names",
     "Each function has a name of its own that can be called",
     Stage::started,
     {},
     examineFunctionNames},
    {"prototypes",
     "Each prototype begins with the name and has as many parameters as registered",
     Stage::started,
     {},
     examinePrototypes},
    {"descriptions", "Each function has a description", Stage::started, {}, examineDescriptions},
    {"unique-ids", "No ID is used twice", Stage::started, {}, examineIds},
    {"script-steps",
     "Each script step's definition is well formed, of known elements",
     Stage::started,
     {},
     examineScriptSteps},
    {"messages", "It takes the idle, session and file messages that it asks for", Stage::started, {}, examineMessages},
    {"unknown-messages",
     "Messages that it doesn't know or ask for leave the call record untouched",
     Stage::started,
     {},
     examineUnknownMessages},
    {"shut-down", "Shut-down unregisters everything", Stage::ended, registeringVersions, examineShutDown},
    {"reload", "Loaded and unloaded 100 times it leaks nothing", Stage::ended, {}, examineReloading},
}};

} // namespace

std::span<const Test> allTests()
{
    return tests;
}

const Test* findTest(std::string_view name)
{
    const auto* found =
        std::find_if(tests.begin(), tests.end(), [name](const Test& test) { return test.name == name; });
    return found != tests.end() ? &*found : nullptr;
}

} // namespace fmxhost::check
