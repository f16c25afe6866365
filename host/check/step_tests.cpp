// script-steps: what it registers for scripts.
#include "host/check/deviations.h"
#include "host/check/naming.h"
#include "host/check/step_definition.h"
#include "host/check/tests.h"

#include "host/base/unicode.h"

#include <vector>

namespace fmxhost::check {
namespace {

constexpr std::int16_t scriptStepsSince = 57;

void examineStep(const Examination& examination, const fmxkit::ScriptStep& step)
{
    const std::string shown = nameOf(step);
    if (step.name.empty()) {
        examination.fail(shown + " has no name");
    }
    if (step.handler == nullptr) {
        examination.fail(shown + " is registered without a function to call");
    }
    if (step.definition.empty()) {
        reportDeviation(examination, "script-steps", step.pluginId, EntryKind::scriptStep, step.id,
                        shown + " has an empty definition; one without parameters is <PluginStep/>");
        return;
    }
    for (const std::string& fault : faultsOfDefinition(toUtf8(step.definition))) {
        examination.fail(std::string(shown).append(": ").append(fault));
    }
}

} // namespace

void examineScriptSteps(Examination& examination)
{
    if (examination.apiVersion() < scriptStepsSince) {
        throw Skipped("there are script steps from API version 57 on");
    }
    examination.started();
    std::vector<fmxkit::ScriptStep> steps = fmxkit::scriptSteps();
    const std::vector<fmxkit::ScriptStep> refused = fmxkit::refusals().scriptSteps;
    steps.insert(steps.end(), refused.begin(), refused.end());
    for (const fmxkit::ScriptStep& step : steps) {
        examineStep(examination, step);
    }
}

} // namespace fmxhost::check
