// The tests of "fmxhost check", in the order in which they run.
#pragma once

#include "host/check/examination.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace fmxhost::check {

struct Test {
    const char* name; // stable: scripts name tests by it
    const char* summary;
    Stage needs; // what it takes the plug-in to before anything else
    // The host API versions that it is repeated for, each in a process of its own; none: the one that is played.
    std::span<const std::int16_t> apiVersions;
    // Reports what it finds; nothing reported is a pass.
    // Errors: PluginError (a failure), Skipped.
    void (*examine)(Examination& examination);
};

std::span<const Test> allTests();

// Null when there is none of that name.
const Test* findTest(std::string_view name);

// The file: what the dynamic loader, or another plug-in, makes of it.
void examineLoading(Examination& examination);
void examineExports(Examination& examination);
void examineLibraries(Examination& examination);

// Messages.
void examineStrings(Examination& examination);
void examineOptions(Examination& examination);
void examineStartUp(Examination& examination);
void examineVersionRange(Examination& examination);
void examineMessages(Examination& examination);
void examineUnknownMessages(Examination& examination);
void examineShutDown(Examination& examination);
void examineReloading(Examination& examination);

// What it registers.
void examineFunctionNames(Examination& examination);
void examinePrototypes(Examination& examination);
void examineDescriptions(Examination& examination);
void examineIds(Examination& examination);
void examineScriptSteps(Examination& examination);

} // namespace fmxhost::check
