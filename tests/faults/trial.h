// One scenario with its faults, each in a process of its own.
#pragma once

#include "faults/scenarios.h"
#include "support/plugin_under_test.h"

#include <array>
#include <string>

namespace folidex::test {

struct Tally {
    unsigned injections = 0;
    unsigned held = 0;
    unsigned missed = 0;                      // the call wasn't made this time, or moved too few bytes to be cut short
    std::array<unsigned, callCount> byCall{}; // the injections, by the kind of call that failed
    std::string faults;                       // what didn't hold, several lines for each
};

// As a summary names them: "copy_file_range".
const char* nameOf(Call call);

enum class Extent { exhaustive, sampled };

// Counts the calls of the undisturbed scenario, then makes each of them fail in each way that suits it. Changes the
// process (environment, root folder): for a child. Errors: std::exception.
Tally tryScenario(const Scenario& scenario, const PluginUnderTest& plugin, const Places& places, Extent extent);

} // namespace folidex::test
