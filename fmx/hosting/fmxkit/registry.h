// What a host reads of the kit: the functions and script steps that plug-ins have registered through fmx::ExprEnv.
//
// Plug-ins never see this header. A host copies the registry after start-up, calls handlers through it, and purges
// what a plug-in left behind when it unloads the plug-in.
#pragma once

#include <FMWrapper.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fmxkit {

// One calculation function. Texts are UTF-16.
struct ExternalFunction {
    std::uint32_t pluginId = 0; // the four characters of the plug-in's ID, first one in the highest byte
    short id = 0;
    std::u16string name;
    std::u16string prototype;
    std::u16string description; // empty when registered without one
    short minimumArguments = 0;
    short maximumArguments = 0; // -1: any number
    std::uint32_t flags = 0;
    fmx::ExtPluginType handler = nullptr;
};

// One script step. `definition` is the XML text that describes its parameters.
struct ScriptStep {
    std::uint32_t pluginId = 0;
    short id = 0;
    std::u16string name;
    std::u16string definition;
    std::u16string description;
    std::uint32_t flags = 0;
    fmx::ExtPluginType handler = nullptr;
};

// Copies of what is registered now, in the order of registration.
[[gnu::visibility("default")]] std::vector<ExternalFunction> externalFunctions();
[[gnu::visibility("default")]] std::vector<ScriptStep> scriptSteps();

// What plug-ins tried to register in vain since the last purge: an ID that was taken, no name, no handler,
// argument counts that can't be. In the order of the attempts; of very many, the first ones.
struct Refusals {
    std::vector<ExternalFunction> functions;
    std::vector<ScriptStep> scriptSteps;
};
[[gnu::visibility("default")]] Refusals refusals();

// Forgets everything that was registered; returns how many entries there were.
[[gnu::visibility("default")]] std::size_t purge();

} // namespace fmxkit
