// The plug-in as the tests drive it: loaded through its one entry point, called through what it registered.
#pragma once

#include "host/base/plugin.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace folidex::test {

// The plug-in file to test: the variable FOLIDEX_PLUGIN, else the one of this build.
std::filesystem::path pluginFile();

// What one call brought.
class Result {
public:
    explicit Result(fmxhost::CallOutcome outcome) : outcome_(std::move(outcome)) {}

    // "!!ERROR!!", by which every function reports failure.
    bool isError() const { return type() == fmxhost::ValueType::text && outcome_.value.text() == u"!!ERROR!!"; }

    fmxhost::ValueType type() const { return outcome_.value.type(); }
    std::u16string text() const { return outcome_.value.text(); }
    std::string utf8() const { return outcome_.value.utf8(); }
    double number() const { return outcome_.value.number(); }
    std::int64_t integer() const { return outcome_.value.integer(); }
    const fmxhost::Value& value() const { return outcome_.value; }

    fmx::errcode errorCode() const { return outcome_.error; } // what the handler returned
    bool threw() const { return outcome_.exception.has_value(); }
    std::string exception() const { return outcome_.exception.value_or(std::string()); }

private:
    fmxhost::CallOutcome outcome_;
};

// A loaded and started plug-in. Only one may exist at a time in a process.
//
// Thread rule: call() and what builds on it from any thread, the rest as fmxhost::Plugin.
// Errors: fmxhost::PluginError from the constructor; std::out_of_range for a function that isn't registered.
class PluginUnderTest {
public:
    explicit PluginUnderTest(std::int16_t apiVersion = fmxhost::defaultApiVersion) : plugin_(pluginFile(), apiVersion)
    {
        startAnswer_ = plugin_.start();
    }

    // Argument counts aren't checked: the plug-in gets what is given.
    Result call(std::string_view function, const std::vector<fmxhost::Value>& arguments = {}) const;

    // KORB_GetLastError in its two forms.
    std::string lastErrorText() const { return call("KORB_GetLastError").utf8(); }
    int lastErrorNumber() const;

    bool hasFunction(std::string_view name) const;
    std::int64_t startAnswer() const { return startAnswer_; }
    fmxhost::Plugin& plugin() { return plugin_; }
    const fmxhost::Plugin& plugin() const { return plugin_; }

private:
    fmxhost::Plugin plugin_;
    std::int64_t startAnswer_ = 0;
};

// For EXPECT_TRUE. `failedWith` wants the error text as result and the code in the last-error record; what either
// prints when it fails is the result and the record.
testing::AssertionResult succeeded(const PluginUnderTest& plugin, const Result& result);
testing::AssertionResult failedWith(int code, const PluginUnderTest& plugin, const Result& result);

} // namespace folidex::test
