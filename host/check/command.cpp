#include "host/check/command.h"

#include "host/check/report.h"
#include "host/check/suite.h"
#include "host/check/system.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>
#include <system_error>

namespace fmxhost {
namespace {

constexpr std::int16_t oldestApiVersion = 50;
constexpr std::int16_t newestApiVersion = 255;

constexpr const char* footer =
    R"(Without TEST: all of them. Each runs in a process of its own, so that a crash is a result. Functions aren't called.

Verdicts: pass; note, passed with something to know; skipped; fail; crash; timeout.

Exit status: 0 no test failed; 1 one did; 2 wrong use; 3 there is no such plug-in file; 5 the output can't be written.)";

struct Arguments {
    std::vector<std::string> tests;
    bool onlyFailed = false;
    double timeLimit = 60;
    std::string isolated;
};

// Null with the name of the first one that isn't known; in the order in which tests run, each once.
std::optional<std::vector<const check::Test*>> chosenTests(const std::vector<std::string>& names, std::string& unknown)
{
    for (const std::string& name : names) {
        if (check::findTest(name) == nullptr) {
            unknown = name;
            return std::nullopt;
        }
    }
    std::vector<const check::Test*> tests;
    for (const check::Test& test : check::allTests()) {
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

ExitStatus runTests(Context& context, const std::vector<const check::Test*>& tests, const Arguments& arguments)
{
    const std::filesystem::path plugin = std::filesystem::absolute(context.pluginFile());
    const std::int16_t apiVersion = context.options().apiVersion;
    if (!mayBePlugin(plugin)) {
        context.reportError("There is no plug-in file " + plugin.string());
        return ExitStatus::pluginUnusable;
    }
    check::measureHeapsExactly();
    check::Report report(context.output(), {context.options().json, arguments.onlyFailed});
    check::runSuite(tests, {plugin, apiVersion, std::chrono::duration<double>(arguments.timeLimit)},
                    [&report](const check::TestResult& result) { report.add(result); });
    report.finish(plugin, apiVersion);
    return report.passed() ? ExitStatus::success : ExitStatus::checkFailed;
}

ExitStatus runCheck(Context& context, const Arguments& arguments)
{
    if (!arguments.isolated.empty()) {
        if (const check::Test* test = check::findTest(arguments.isolated)) {
            check::runHere(*test, context.pluginFile(), context.options().apiVersion);
        }
    }
    const std::int16_t apiVersion = context.options().apiVersion;
    if (apiVersion < oldestApiVersion || apiVersion > newestApiVersion) {
        context.reportError("check needs an API version from 50 to 255.");
        return ExitStatus::wrongUse;
    }
    std::string unknown;
    const auto tests = chosenTests(arguments.tests, unknown);
    if (!tests) {
        context.reportError("There is no test called " + unknown + ". fmxhost check list-tests shows them.");
        return ExitStatus::wrongUse;
    }
    try {
        return runTests(context, *tests, arguments);
    } catch (const std::system_error& error) {
        if (dynamic_cast<const OutputError*>(&error) != nullptr) {
            throw;
        }
        context.reportError(std::string("A test can't be run: ") + error.what());
        return ExitStatus::checkFailed;
    }
}

} // namespace

CommandBody declareCheck(CLI::App& arguments)
{
    const auto values = std::make_shared<Arguments>();
    arguments.footer(footer);
    arguments.add_option("TEST", values->tests, "Names of tests")->type_name("");
    arguments.add_flag("--only-failed", values->onlyFailed, "Show only the tests that fail");
    arguments.add_option("--timeout", values->timeLimit, "How long a test may take")
        ->type_name("SECONDS")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    arguments.add_option("--isolated", values->isolated)->group(""); // how it starts itself for one test
    const CLI::App* list = arguments.add_subcommand("list-tests", "List the tests");
    return [values, list](Context& context) {
        if (list->parsed()) {
            context.output().write(check::testList(context.options().json));
            return ExitStatus::success;
        }
        return runCheck(context, *values);
    };
}

} // namespace fmxhost
