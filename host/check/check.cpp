// fmxhost check makes its tests one after the other and reports what came of each, for people or as JSON.
//
// A test that is repeated for several API versions has one result, in which a finding says for which one it was made,
// unless for the one that is played. What keeps a plug-in from loading or starting is reported once: tests that need a
// stage at which an earlier one has failed are skipped.
#include "host/check/check.h"

#include "host/base/system.h"
#include "host/check/sandbox.h"

#include <nlohmann/json.hpp>

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <system_error>
#include <utility>

namespace fmxhost::check {

const char* const footer =
    R"(Without TEST: all of them. Each runs in a process of its own, so that a crash is a result. Functions aren't called.

A line of --allow's file is "TEST: FINDING", with "*" for any text: what the plug-in keeps on purpose.

Verdicts: pass; note, passed with something to know; skipped; fail; crash; timeout.

Exit status: 0 no test failed; 1 one did; 2 wrong use; 3 there is no such plug-in file; 5 the output can't be written.)";

namespace {

using Json = nlohmann::ordered_json;

// What a plug-in keeps on purpose: findings that are no failures of it but notes.
class Allowances {
public:
    // A line is "TEST: FINDING", with "*" for any text (fnmatch(3)); blank lines and those with "#" first say nothing.
    explicit Allowances(const std::filesystem::path& file)
    {
        std::ifstream stream(file);
        for (std::string line; std::getline(stream, line);) {
            if (!line.empty() && line.front() != '#') {
                patterns_.push_back(line);
            }
        }
    }

    void apply(const Test& test, Result& result) const
    {
        const auto isAllowed = [&](const std::string& reason) {
            const std::string finding = std::string(test.name) + ": " + reason;
            return std::any_of(patterns_.begin(), patterns_.end(), [&finding](const std::string& pattern) {
                return fnmatch(pattern.c_str(), finding.c_str(), FNM_NOESCAPE) == 0;
            });
        };
        if (result.verdict == Verdict::fail) {
            const auto allowed =
                std::stable_partition(result.reasons.begin(), result.reasons.end(), std::not_fn(isAllowed));
            std::transform(allowed, result.reasons.end(), std::back_inserter(result.notes),
                           [](const std::string& reason) { return reason + " (allowed)"; });
            result.reasons.erase(allowed, result.reasons.end());
            result.verdict = result.reasons.empty() ? Verdict::note : Verdict::fail;
        }
    }

private:
    std::vector<std::string> patterns_;
};

class Suite {
public:
    Suite(Settings settings, Allowances allowances) : settings_(std::move(settings)), allowances_(std::move(allowances))
    {
    }

    // Errors: std::system_error when a process can't be started.
    Result run(const Test& test)
    {
        Result all;
        if (obstacleFoundBy_ != nullptr && test.needs >= notReached_) {
            const std::string what = notReached_ == Stage::loaded    ? "it doesn't load"
                                     : notReached_ == Stage::started ? "it doesn't start"
                                                                     : "it doesn't shut down";
            all.verdict = Verdict::skipped;
            all.reasons.push_back(what + ": see " + obstacleFoundBy_->name);
            return all;
        }
        for (const std::int16_t version : versionsFor(test)) {
            Settings settings = settings_;
            settings.apiVersion = version;
            Result result = runIsolated(test, settings);
            allowances_.apply(test, result);
            noteObstacle(test, result, version);
            all.verdict = std::max(all.verdict, result.verdict);
            add(all.reasons, result.reasons, version);
            add(all.notes, result.notes, version);
            all.output = isFailure(result.verdict) ? result.output : all.output;
            if (result.verdict == Verdict::timeOut) {
                break; // the others would take as long
            }
        }
        return all;
    }

private:
    // The one that is played comes first: it decides whether other tests can be made. Those on which the plug-in is
    // known not to start are left out.
    std::vector<std::int16_t> versionsFor(const Test& test) const
    {
        if (test.apiVersions.empty()) {
            return {settings_.apiVersion};
        }
        std::vector<std::int16_t> versions(test.apiVersions.begin(), test.apiVersions.end());
        std::erase_if(versions, [this](std::int16_t version) { return doesNotStartOn_.contains(version); });
        std::stable_partition(versions.begin(), versions.end(),
                              [this](std::int16_t version) { return version == settings_.apiVersion; });
        return versions;
    }

    // What was found for the version that is played isn't said again for others.
    void add(std::vector<std::string>& all, const std::vector<std::string>& found, std::int16_t version) const
    {
        for (const std::string& text : found) {
            if (std::find(all.begin(), all.end(), text) == all.end()) {
                const bool isPlayed = version == settings_.apiVersion;
                all.push_back(isPlayed ? text : text + " (API version " + std::to_string(version) + ")");
            }
        }
    }

    void noteObstacle(const Test& test, const Result& result, std::int16_t version)
    {
        if (!isFailure(result.verdict) || result.reached >= test.needs) {
            return;
        }
        doesNotStartOn_.insert(version);
        if (version == settings_.apiVersion && obstacleFoundBy_ == nullptr) {
            notReached_ = static_cast<Stage>(static_cast<int>(result.reached) + 1);
            obstacleFoundBy_ = &test;
        }
    }

    Settings settings_;
    Allowances allowances_;
    std::set<std::int16_t> doesNotStartOn_;
    Stage notReached_ = Stage::started;     // by the plug-in, if there is an obstacle
    const Test* obstacleFoundBy_ = nullptr; // the first test that found one
};

constexpr std::array verdicts{Verdict::pass, Verdict::note,  Verdict::skipped,
                              Verdict::fail, Verdict::crash, Verdict::timeOut};
constexpr std::array verdictNames{"pass", "note", "skipped", "fail", "crash", "timeout"};

std::string nameOf(Verdict verdict)
{
    return verdictNames.at(static_cast<std::size_t>(verdict));
}

// A line of the plug-in's with nothing in it that moves a terminal's cursor or changes its colours.
std::string shownLine(std::string text)
{
    const auto moves = [](char character) {
        return static_cast<unsigned char>(character) < ' ' || character == '\177';
    };
    std::replace_if(text.begin(), text.end(), moves, ' ');
    return text + "\n";
}

// UTF-8, with U+FFFD for what isn't valid.
std::string textOf(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// The JSON is one object on one line:
//   {"plugin": FILE, "api": N, "passed": BOOL, "counts": {VERDICT: N, …}, "tests": [{"name": NAME, "verdict": VERDICT,
//    "reasons": [TEXT…], "notes": [TEXT…], "seconds": NUMBER, "output": what it wrote, of tests that failed}…]}
class Report {
public:
    Report(Output& output, bool json, bool onlyFailed) : output_(output), json_(json), onlyFailed_(onlyFailed) {}

    // For people: written at once.
    // Errors: OutputError.
    void add(const Test& test, const Result& result, double seconds)
    {
        ++counts_.at(static_cast<std::size_t>(result.verdict));
        const bool failed = isFailure(result.verdict);
        passed_ = passed_ && !failed;
        if (onlyFailed_ && !failed) {
            return;
        }
        if (!json_) {
            write(test, result);
            return;
        }
        tests_.push_back({{"name", test.name},
                          {"verdict", nameOf(result.verdict)},
                          {"reasons", result.reasons},
                          {"notes", result.notes},
                          {"seconds", seconds}});
        if (failed) {
            tests_.back()["output"] = result.output;
        }
    }

    // The summary, or all of the JSON.
    // Errors: OutputError.
    void finish(const Settings& settings)
    {
        std::size_t all = 0;
        std::string summary;
        Json counts = Json::object();
        for (const Verdict verdict : verdicts) {
            const std::size_t count = counts_.at(static_cast<std::size_t>(verdict));
            all += count;
            summary += count == 0 ? "" : (summary.empty() ? "" : ", ") + std::to_string(count) + " " + nameOf(verdict);
            counts[nameOf(verdict)] = count;
        }
        output_.write(json_ ? textOf({{"plugin", settings.plugin.string()},
                                      {"api", settings.apiVersion},
                                      {"passed", passed_},
                                      {"counts", std::move(counts)},
                                      {"tests", std::move(tests_)}}) +
                                  "\n"
                            : std::to_string(all) + (all == 1 ? " test: " : " tests: ") + summary + "\n");
    }

    bool passed() const { return passed_; }

private:
    void write(const Test& test, const Result& result)
    {
        constexpr std::size_t width = 10;
        const std::string indent(width, ' ');
        const std::string verdict = nameOf(result.verdict);
        const bool failed = isFailure(result.verdict);
        const Style style = failed ? Style::error : result.verdict == Verdict::pass ? Style::pointer : Style::faint;
        output_.write(styled(verdict, style, wantsColour(output_.descriptor())));
        output_.write(std::string(width - verdict.size(), ' ') + test.name + "\n");
        for (const auto* texts : {&result.reasons, &result.notes}) {
            for (const std::string& text : *texts) {
                output_.write(indent + shownLine(text));
            }
        }
        std::istringstream lines(failed ? result.output : "");
        for (std::string line; std::getline(lines, line);) {
            output_.write(indent + "| " + shownLine(line));
        }
        output_.flush();
    }

    Output& output_;
    bool json_;
    bool onlyFailed_;
    bool passed_ = true;
    std::array<std::size_t, verdicts.size()> counts_{};
    Json tests_ = Json::array();
};

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

// Errors: std::system_error when a test can't be run or the output be written.
bool runTests(const Options& arguments, const Settings& settings, Output& output)
{
    Suite suite(settings, Allowances(arguments.allowances));
    Report report(output, arguments.json, arguments.onlyFailed);
    for (const Test& test : allTests()) {
        const auto& names = arguments.tests;
        if (names.empty() || std::find(names.begin(), names.end(), test.name) != names.end()) {
            const auto begin = std::chrono::steady_clock::now();
            const Result result = suite.run(test);
            report.add(test, result, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
        }
    }
    report.finish(settings);
    return report.passed();
}

} // namespace

ExitStatus run(const Options& arguments, Output& output)
{
    const Settings settings{std::filesystem::absolute(arguments.plugin), arguments.apiVersion,
                            arguments.libraries.empty() ? listOfServerLibraries() : arguments.libraries,
                            std::chrono::duration<double>(arguments.timeLimit)};
    if (const Test* test = findTest(arguments.isolated)) {
        runHere(*test, settings);
    }
    if (settings.apiVersion < oldestApiVersion || settings.apiVersion > newestApiVersion) {
        output.reportError("check needs an API version from 50 to 255.");
        return ExitStatus::wrongUse;
    }
    for (const std::string& name : arguments.tests) {
        if (findTest(name) == nullptr) {
            output.reportError("There is no test called " + name + ". fmxhost check list-tests shows them.");
            return ExitStatus::wrongUse;
        }
    }
    if (std::error_code error; !std::filesystem::exists(settings.plugin, error)) {
        output.reportError("There is no plug-in file " + settings.plugin.string());
        return ExitStatus::pluginUnusable;
    }
    try {
        return runTests(arguments, settings, output) ? ExitStatus::success : ExitStatus::checkFailed;
    } catch (const OutputError&) {
        throw;
    } catch (const std::system_error& error) {
        output.reportError(std::string("A test can't be run: ") + error.what());
        return ExitStatus::checkFailed;
    }
}

ExitStatus listTests(bool json, Output& output)
{
    for (const Test& test : allTests()) {
        constexpr std::size_t width = 18; // of the longest name, and two blanks
        std::string name = test.name;
        name.resize(width, ' ');
        output.write((json ? jsonObject({{"name", test.name}, {"summary", test.summary}}) : name + test.summary) +
                     "\n");
    }
    return ExitStatus::success;
}

} // namespace fmxhost::check
