// fmxhost check makes its tests one after the other and reports what came of each, for people or as JSON.
//
// A test that is repeated for several API versions has one result, in which a finding says for which one it was made,
// unless for the one that is played. What keeps a plug-in from loading or starting is reported once: tests that need a
// stage at which an earlier one has failed are skipped.
#include "host/check/check.h"

#include "host/base/system.h"
#include "host/base/unicode.h"
#include "host/check/test.h"

#include <nlohmann/json.hpp>

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace fmxhost::check {

const char* const footer =
    R"(Without TEST: all of them. Each runs in a process of its own, so that a crash is a result. Functions aren't called.

A line of --allow's file is "TEST: FINDING", with "*" for any text: what the plug-in keeps on purpose.

Verdicts: pass; note, passed with something to know; skipped; fail; crash; timeout.

Exit status: 0 no test failed; 1 one did; 2 wrong use; 3 there is no such plug-in file; 5 the output can't be written.)";

namespace {

// 50 is FileMaker 7, 55 is 14, 56 is 15, 57 is 16, 59 is 17, 60 is 18, 62 is 19; a number between them may be that of
// an update. 255 stands for those to come.
constexpr std::array<std::int16_t, 14> knownVersions{50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 255};
constexpr std::array<std::int16_t, 6> impossibleVersions{49, 0, -1, 256, 32767, -32768};
// Before descriptions, before script steps, with both, and the latest.
constexpr std::array<std::int16_t, 4> registeringVersions{50, 56, 57, defaultApiVersion};

// In the order in which they run.
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

// Null when there is none of that name.
const Test* findTest(std::string_view name)
{
    const auto* found =
        std::find_if(std::begin(tests), std::end(tests), [name](const Test& test) { return test.name == name; });
    return found != std::end(tests) ? found : nullptr;
}

// The lines of a file of findings that a plug-in keeps on purpose, each "TEST: FINDING" with "*" for any text; blank
// lines and those with "#" first say nothing. Errors: std::invalid_argument with a text for the user.
std::vector<std::string> readAllowances(const std::filesystem::path& file)
{
    std::vector<std::string> lines;
    std::ifstream stream(file);
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        if (line.empty() || line.starts_with('#')) {
            continue;
        }
        const std::size_t end = line.find(": ");
        if (end == std::string::npos || findTest(line.substr(0, end)) == nullptr) {
            throw std::invalid_argument(file.string() + ":" + std::to_string(number) +
                                        ": \"TEST: FINDING\" is expected, with a test's name.");
        }
        lines.push_back(line);
    }
    return lines;
}

// What is allowed becomes a note (fnmatch(3)).
void allow(const std::vector<std::string>& allowances, const Test& test, Result& result)
{
    if (result.verdict != Verdict::fail) {
        return;
    }
    for (const std::string& reason : std::exchange(result.reasons, {})) {
        const std::string finding = std::string(test.name) + ": " + reason;
        const bool isAllowed = std::any_of(allowances.begin(), allowances.end(), [&](const std::string& line) {
            return fnmatch(line.c_str(), finding.c_str(), FNM_NOESCAPE) == 0;
        });
        (isAllowed ? result.notes : result.reasons).push_back(reason + (isAllowed ? " (allowed)" : ""));
    }
    result.verdict = result.reasons.empty() ? Verdict::note : Verdict::fail;
}

class Suite {
public:
    // Errors: std::invalid_argument with a text for the user.
    explicit Suite(const Options& options) : options_(options), allowances_(readAllowances(options.allowances)) {}

    // Errors: std::system_error when a process can't be started.
    Result run(const Test& test)
    {
        Result all;
        if (const Obstacle* obstacle = obstacleFor(test, options_.apiVersion)) {
            static constexpr std::array stages{"be read", "load", "start", "shut down"};
            all.verdict = Verdict::skipped;
            all.reasons.push_back(std::string("it doesn't ") + stages.at(static_cast<std::size_t>(obstacle->stage)) +
                                  ": see " + obstacle->foundBy->name);
            return all;
        }
        for (const std::int16_t version : versionsFor(test)) {
            Options options = options_;
            options.apiVersion = version;
            Result result = runIsolated(test, options);
            allow(allowances_, test, result);
            if (result.verdict >= Verdict::fail && result.reached < test.needs) {
                obstacles_.try_emplace(version, Obstacle{Stage(static_cast<int>(result.reached) + 1), &test});
            }
            all.verdict = std::max(all.verdict, result.verdict);
            add(all.reasons, result.reasons, version);
            add(all.notes, result.notes, version);
            all.output = result.verdict >= Verdict::fail ? result.output : all.output;
            if (result.verdict == Verdict::timeOut) {
                break; // the others would take as long
            }
        }
        return all;
    }

private:
    // What keeps the plug-in from being where tests need it.
    struct Obstacle {
        Stage stage; // that it doesn't reach
        const Test* foundBy;
    };

    const Obstacle* obstacleFor(const Test& test, std::int16_t version) const
    {
        const auto found = obstacles_.find(version);
        return found != obstacles_.end() && test.needs >= found->second.stage ? &found->second : nullptr;
    }

    // The one that is played comes first: it decides whether other tests can be made. Those that it is known not to get
    // far enough on are left out.
    std::vector<std::int16_t> versionsFor(const Test& test) const
    {
        std::vector<std::int16_t> versions(test.apiVersions.begin(), test.apiVersions.end());
        std::erase_if(versions, [&](std::int16_t version) { return obstacleFor(test, version) != nullptr; });
        std::stable_partition(versions.begin(), versions.end(),
                              [this](std::int16_t version) { return version == options_.apiVersion; });
        return test.apiVersions.empty() ? std::vector{options_.apiVersion} : versions;
    }

    // What was found for the version that is played isn't said again for others.
    void add(std::vector<std::string>& all, const std::vector<std::string>& found, std::int16_t version) const
    {
        for (const std::string& text : found) {
            if (std::find(all.begin(), all.end(), text) == all.end()) {
                const bool isPlayed = version == options_.apiVersion;
                all.push_back(isPlayed ? text : text + " (API version " + std::to_string(version) + ")");
            }
        }
    }

    const Options& options_;
    std::vector<std::string> allowances_;
    std::map<std::int16_t, Obstacle> obstacles_; // by API version, the first of each
};

constexpr std::array verdictNames{"pass", "note", "skipped", "fail", "crash", "timeout"};

Json described(const Test& test, const Result& result, double seconds)
{
    Json object{{"name", test.name},
                {"verdict", verdictNames.at(std::size_t(result.verdict))},
                {"reasons", result.reasons},
                {"notes", result.notes},
                {"seconds", seconds}};
    if (result.verdict >= Verdict::fail) {
        object["output"] = result.output;
    }
    return object;
}

std::string lineOf(const std::string& text)
{
    return toUtf8(withoutControls(toUtf16(text), u' ')) + "\n";
}

// For people. Errors: OutputError.
void show(const Test& test, const Result& result)
{
    const std::string indent(10, ' ');
    const std::string verdict = verdictNames.at(std::size_t(result.verdict));
    const bool failed = result.verdict >= Verdict::fail;
    const Style style = failed ? Style::error : result.verdict == Verdict::pass ? Style::good : Style::faint;
    print(styled(verdict, style, STDOUT_FILENO) + indent.substr(verdict.size()) + test.name + "\n");
    for (const auto* texts : {&result.reasons, &result.notes}) {
        for (const std::string& text : *texts) {
            print(indent + lineOf(text));
        }
    }
    std::istringstream lines(failed ? result.output : "");
    for (std::string line; std::getline(lines, line);) {
        print(indent + "| " + lineOf(line));
    }
    flush();
}

// Beside the program, or where it is installed to share/fmxhost; empty when it is in neither.
std::filesystem::path listOfServerLibraries()
{
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::canonical(executableFile(), error).parent_path();
    for (const char* place : {"server-libraries", "../share/fmxhost/server-libraries"}) {
        if (std::filesystem::is_regular_file(folder / place, error)) {
            return folder / place;
        }
    }
    return {};
}

// Whether no test fails. For people results are written one after the other, as JSON in the end, as one line:
//   {"plugin": FILE, "api": N, "passed": BOOL, "counts": {VERDICT: N, …}, "tests": [{"name": NAME, "verdict": VERDICT,
//    "reasons": [TEXT…], "notes": [TEXT…], "seconds": NUMBER, "output": what it wrote, of tests that failed}…]}
// Errors: std::system_error when a test can't be run or the output be written, std::invalid_argument as Suite has it.
bool runTests(const Options& options)
{
    Suite suite(options);
    bool passed = true;
    std::array<int, verdictNames.size()> counts{};
    Json all = Json::array();
    for (const Test& test : tests) {
        if (!options.tests.empty() &&
            std::find(options.tests.begin(), options.tests.end(), test.name) == options.tests.end()) {
            continue;
        }
        const auto begin = std::chrono::steady_clock::now();
        const Result result = suite.run(test);
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        const bool failed = result.verdict >= Verdict::fail;
        passed = passed && !failed;
        ++counts.at(std::size_t(result.verdict));
        if (options.json && (failed || !options.onlyFailed)) {
            all.push_back(described(test, result, time.count()));
        } else if (failed || !options.onlyFailed) {
            show(test, result);
        }
    }
    Json namedCounts;
    std::string summary;
    int number = 0;
    for (std::size_t index = 0; index < counts.size(); ++index) {
        const int count = counts.at(index);
        number += count;
        namedCounts[verdictNames.at(index)] = count;
        summary +=
            count == 0 ? "" : (summary.empty() ? "" : ", ") + std::to_string(count) + " " + verdictNames.at(index);
    }
    const Json report{{"plugin", options.plugin.string()},
                      {"api", options.apiVersion},
                      {"passed", passed},
                      {"counts", namedCounts},
                      {"tests", all}};
    print(
        (options.json ? jsonText(report) : std::to_string(number) + (number == 1 ? " test: " : " tests: ") + summary) +
        "\n");
    return passed;
}

} // namespace

ExitStatus run(Options options)
{
    options.plugin = std::filesystem::absolute(options.plugin);
    options.libraries = options.libraries.empty() ? listOfServerLibraries() : options.libraries;
    if (const Test* test = findTest(options.isolated)) {
        runHere(*test, options);
    }
    if (options.apiVersion < oldestApiVersion || options.apiVersion > newestApiVersion) {
        reportError("check needs an API version from 50 to 255.");
        return ExitStatus::wrongUse;
    }
    for (const std::string& name : options.tests) {
        if (findTest(name) == nullptr) {
            reportError("There is no test called " + name + ". fmxhost check list-tests shows them.");
            return ExitStatus::wrongUse;
        }
    }
    if (std::error_code error; !std::filesystem::exists(options.plugin, error)) {
        reportError("There is no plug-in file " + options.plugin.string());
        return ExitStatus::pluginUnusable;
    }
    try {
        return runTests(options) ? ExitStatus::success : ExitStatus::checkFailed;
    } catch (const OutputError&) {
        throw;
    } catch (const std::invalid_argument& error) {
        reportError(error.what());
        return ExitStatus::wrongUse;
    } catch (const std::system_error& error) {
        reportError(std::string("A test can't be run: ") + error.what());
        return ExitStatus::checkFailed;
    }
}

ExitStatus listTests(bool json)
{
    for (const Test& test : tests) {
        constexpr std::size_t width = 18; // of the longest name, and two blanks
        std::string name = test.name;
        name.resize(width, ' ');
        print((json ? jsonText({{"name", test.name}, {"summary", test.summary}}) : name + test.summary) + "\n");
    }
    return ExitStatus::success;
}

} // namespace fmxhost::check
