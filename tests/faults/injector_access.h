// The way to the preloaded fault injector from a program that drives it.
#pragma once

#include "faults/fault_injector.h"
#include "support/plugin_under_test.h"

namespace folidex::test {

// For the beginning of main(): starts the program anew behind the injector, and returns when that is so already.
// Errors: std::runtime_error when it can't be loaded.
void loadInjector(char** arguments);

struct Injector {
    Injector(); // after loadInjector
    ArmFaults arm;
    DisarmFaults disarm;
};

// A plan that names the plug-in's code and lets everything pass.
FaultPlan planFor(const PluginUnderTest& plugin);

} // namespace folidex::test
