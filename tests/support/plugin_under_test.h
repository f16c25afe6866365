// The plug-in as the tests drive it: loaded through its one entry point, called through what it registered.
#pragma once

#include "host/base/plugin.h"
#include "host/base/unicode.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace folidex::test {

// What one call brought.
class Result {
public:
    explicit Result(fmxhost::CallOutcome outcome) : outcome_(std::move(outcome)) {}

    // "!!ERROR!!", by which every function reports failure.
    bool isError() const { return utf8() == "!!ERROR!!"; }

    std::string utf8() const { return outcome_.value.utf8(); }
    double number() const { return outcome_.value.number(); }

    fmx::errcode errorCode() const { return outcome_.error; } // what the handler returned
    bool threw() const { return outcome_.exception.has_value(); }
    std::string exception() const { return outcome_.exception.value_or(std::string()); }

private:
    fmxhost::CallOutcome outcome_;
};

// A loaded and started plug-in. Only one may exist at a time in a process. `function`: with "KORB_".
//
// Thread rule: call() and what builds on it from any thread, the rest as fmxhost::Plugin.
// Errors: fmxhost::PluginError from the constructor; std::out_of_range for a function that isn't registered.
class PluginUnderTest {
public:
    PluginUnderTest() { plugin_.start(); }

    // Argument counts aren't checked: the plug-in gets what is given.
    Result call(std::string_view function, const std::vector<fmxhost::Value>& arguments = {}) const
    {
        return Result(fmxhost::Plugin::call(this->function(function), arguments));
    }

    // KORB_GetLastError in its two forms.
    std::string lastErrorText() const { return call("KORB_GetLastError").utf8(); }
    int lastErrorNumber() const { return std::stoi(call("KORB_GetLastError", {u"number"}).utf8()); }

    const fmxkit::ExternalFunction& function(std::string_view name) const
    {
        return plugin_.function(fmxhost::toUtf16(name));
    }

private:
    fmxhost::Plugin plugin_{FOLIDEX_PLUGIN_FILE};
};

} // namespace folidex::test
