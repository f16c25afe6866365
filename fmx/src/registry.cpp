#include <fmxkit/registry.h>

#include "entry.h"
#include "error_codes.h"
#include "quad_char.h"
#include "text.h"

#include <FMXCalcEngine.h>

#include <algorithm>
#include <mutex>
#include <utility>

using fmx::errcode;
using fmx::ExprEnv;
using fmx::QuadChar;
using fmx::Text;
using fmxkit::inside;

namespace fmxkit {

// What a handler is called in. It offers nothing that a plug-in could ask for.
struct Environment {};

template <>
struct Behind<ExprEnv> {
    using Type = Environment;
};

namespace {

struct Registry {
    std::mutex mutex;
    std::vector<ExternalFunction> functions;
    std::vector<ScriptStep> steps;
    Refusals refused;
};

// Nobody reads more, and a plug-in may try again and again.
constexpr std::size_t rememberedRefusals = 1000;

template <typename Entry>
errcode refuse(std::vector<Entry>& refused, Entry entry, errcode reason)
{
    if (refused.size() < rememberedRefusals) {
        refused.push_back(std::move(entry));
    }
    return reason;
}

// Never destroyed: a plug-in may unregister while the process ends.
Registry& registry()
{
    static auto& instance = *new Registry;
    return instance;
}

template <typename Entry>
auto findEntry(std::vector<Entry>& entries, std::uint32_t pluginId, short id)
{
    return std::find_if(entries.begin(), entries.end(),
                        [&](const Entry& entry) { return entry.pluginId == pluginId && entry.id == id; });
}

errcode add(ExternalFunction function)
{
    const bool wrongCounts = function.minimumArguments < 0 || function.maximumArguments < -1 ||
                             (function.maximumArguments != -1 && function.minimumArguments > function.maximumArguments);
    auto& all = registry();
    const std::lock_guard lock(all.mutex);
    if (wrongCounts || function.name.empty() || function.handler == nullptr) {
        return refuse(all.refused.functions, std::move(function), genericCalculationError);
    }
    if (findEntry(all.functions, function.pluginId, function.id) != all.functions.end()) {
        return refuse(all.refused.functions, std::move(function), alreadyRegistered);
    }
    all.functions.push_back(std::move(function));
    return noError;
}

errcode add(ScriptStep step)
{
    auto& all = registry();
    const std::lock_guard lock(all.mutex);
    if (step.name.empty() || step.handler == nullptr) {
        return refuse(all.refused.scriptSteps, std::move(step), genericCalculationError);
    }
    if (findEntry(all.steps, step.pluginId, step.id) != all.steps.end()) {
        return refuse(all.refused.scriptSteps, std::move(step), alreadyRegistered);
    }
    all.steps.push_back(std::move(step));
    return noError;
}

template <typename Entry>
errcode remove(std::vector<Entry> Registry::*entries, const QuadChar& pluginId, short id)
{
    auto& all = registry();
    const std::lock_guard lock(all.mutex);
    const auto place = findEntry(all.*entries, inside(&pluginId).code, id);
    if (place == (all.*entries).end()) {
        return doesNotExist;
    }
    (all.*entries).erase(place);
    return noError;
}

std::u16string units(const Text& text)
{
    return std::u16string(inside(&text).view());
}

} // namespace

std::vector<ExternalFunction> externalFunctions()
{
    const std::lock_guard lock(registry().mutex);
    return registry().functions;
}

std::vector<ScriptStep> scriptSteps()
{
    const std::lock_guard lock(registry().mutex);
    return registry().steps;
}

Refusals refusals()
{
    const std::lock_guard lock(registry().mutex);
    return registry().refused;
}

std::size_t purge()
{
    auto& all = registry();
    const std::lock_guard lock(all.mutex);
    all.refused = {};
    return std::exchange(all.functions, {}).size() + std::exchange(all.steps, {}).size();
}

} // namespace fmxkit

namespace fmx {
extern "C" {

ExprEnv* FM_ExprEnv_Constructor1(_fmxcpt& x)
{
    return fmxkit::create<ExprEnv>(x);
}

void FM_ExprEnv_Delete(ExprEnv* self, _fmxcpt& x)
{
    fmxkit::destroy(self, x);
}

errcode FM_ExprEnv_RegisterExternalFunction(const QuadChar& pluginId, short functionId, const Text& name,
                                            const Text& prototype, short minimum, short maximum, uint32 flags,
                                            ExtPluginType handler, _fmxcpt& x)
{
    return fmxkit::entry(x, [&] {
        return fmxkit::add(fmxkit::ExternalFunction{inside(&pluginId).code, functionId, fmxkit::units(name),
                                                    fmxkit::units(prototype), std::u16string(), minimum, maximum, flags,
                                                    handler});
    });
}

errcode FM_ExprEnv_RegisterExternalFunctionEx(const QuadChar& pluginId, short functionId, const Text& name,
                                              const Text& prototype, const Text& description, short minimum,
                                              short maximum, uint32 flags, ExtPluginType handler, _fmxcpt& x)
{
    return fmxkit::entry(x, [&] {
        return fmxkit::add(fmxkit::ExternalFunction{inside(&pluginId).code, functionId, fmxkit::units(name),
                                                    fmxkit::units(prototype), fmxkit::units(description), minimum,
                                                    maximum, flags, handler});
    });
}

errcode FM_ExprEnv_RegisterScriptStep(const QuadChar& pluginId, short stepId, const Text& name, const Text& definition,
                                      const Text& description, uint32 flags, ExtPluginType handler, _fmxcpt& x)
{
    return fmxkit::entry(x, [&] {
        return fmxkit::add(fmxkit::ScriptStep{inside(&pluginId).code, stepId, fmxkit::units(name),
                                              fmxkit::units(definition), fmxkit::units(description), flags, handler});
    });
}

errcode FM_ExprEnv_UnRegisterExternalFunction(const QuadChar& pluginId, short functionId, _fmxcpt& x)
{
    return fmxkit::entry(x, [&] { return fmxkit::remove(&fmxkit::Registry::functions, pluginId, functionId); });
}

errcode FM_ExprEnv_UnRegisterScriptStep(const QuadChar& pluginId, short stepId, _fmxcpt& x)
{
    return fmxkit::entry(x, [&] { return fmxkit::remove(&fmxkit::Registry::steps, pluginId, stepId); });
}

} // extern "C"
} // namespace fmx
