#include "host/check/command.h"

#include "host/check/report.h"
#include "host/check/suite.h"
#include "host/check/system.h"

#include <algorithm>
#include <optional>
#include <system_error>

namespace fmxhost::check {
namespace {

constexpr std::int16_t oldestApiVersion = 50;
constexpr std::int16_t newestApiVersion = 255;

// Null with the name of the first one that isn't known; in the order in which tests run, each once.
std::optional<std::vector<const Test*>> chosenTests(const std::vector<std::string>& names, std::string& unknown)
{
    for (const std::string& name : names) {
        if (findTest(name) == nullptr) {
            unknown = name;
            return std::nullopt;
        }
    }
    std::vector<const Test*> tests;
    for (const Test& test : allTests()) {
        if (names.empty() || std::find(names.begin(), names.end(), test.name) != names.end()) {
            tests.push_back(&test);
        }
    }
    return tests;
}

// A file, or a bundle.
bool mayBePlugin(const std::filesystem::path& plugin)
{
    std::error_code error;
    return std::filesystem::is_regular_file(plugin, error) || std::filesystem::is_directory(plugin / "Contents", error);
}

ExitStatus runTests(Output& output, const std::vector<const Test*>& tests, const Arguments& arguments)
{
    const std::filesystem::path plugin = std::filesystem::absolute(arguments.plugin);
    const std::int16_t apiVersion = arguments.apiVersion;
    if (!mayBePlugin(plugin)) {
        output.reportError("There is no plug-in file " + plugin.string());
        return ExitStatus::pluginUnusable;
    }
    measureHeapsExactly();
    Report report(output, {arguments.json, arguments.onlyFailed});
    runSuite(tests, {plugin, apiVersion, std::chrono::duration<double>(arguments.timeLimit)},
                    [&report](const TestResult& result) { report.add(result); });
    report.finish(plugin, apiVersion);
    return report.passed() ? ExitStatus::success : ExitStatus::checkFailed;
}

} // namespace

const char* const footer =
    R"(Without TEST: all of them. Each runs in a process of its own, so that a crash is a result. Functions aren't called.

Verdicts: pass; note, passed with something to know; skipped; fail; crash; timeout.

Exit status: 0 no test failed; 1 one did; 2 wrong use; 3 there is no such plug-in file; 5 the output can't be written.)";

ExitStatus run(const Arguments& arguments, Output& output)
{
    if (arguments.list) {
        output.write(testList(arguments.json));
        return ExitStatus::success;
    }
    if (!arguments.isolated.empty()) {
        if (const Test* test = findTest(arguments.isolated)) {
            runHere(*test, arguments.plugin, arguments.apiVersion);
        }
    }
    const std::int16_t apiVersion = arguments.apiVersion;
    if (apiVersion < oldestApiVersion || apiVersion > newestApiVersion) {
        output.reportError("check needs an API version from 50 to 255.");
        return ExitStatus::wrongUse;
    }
    std::string unknown;
    const auto tests = chosenTests(arguments.tests, unknown);
    if (!tests) {
        output.reportError("There is no test called " + unknown + ". fmxhost check list-tests shows them.");
        return ExitStatus::wrongUse;
    }
    try {
        return runTests(output, *tests, arguments);
    } catch (const std::system_error& error) {
        if (dynamic_cast<const OutputError*>(&error) != nullptr) {
            throw;
        }
        output.reportError(std::string("A test can't be run: ") + error.what());
        return ExitStatus::checkFailed;
    }
}

} // namespace fmxhost::check
