// Script-step definitions: the XML text that tells FileMaker which parameters a step has.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace frame {

// One <parameter> element. Attributes with an empty value are left out.
struct StepParameter {
    std::string_view type; // "calc", "bool", "list"
    std::string_view label;
    std::string_view dataType;
    bool showInline;
    std::string_view defaultValue;
    std::span<const std::string_view> values; // of a list; a value's ID is its index
};

// The parameters of a step after its target, their IDs their index.
struct StepParameters {
    bool defined = true; // false: the step is registered with an empty definition
    std::span<const StepParameter> list;
};

// The definitions that the table of functions chooses from.
namespace steps {
extern const StepParameters versionType;
extern const StepParameters sourceDestinationOverwriteName;
extern const StepParameters sourceAndFileName;
extern const StepParameters sourceAndFolderName;
extern const StepParameters source;
extern const StepParameters none;
extern const StepParameters sourceDestination;
extern const StepParameters startingPath;
extern const StepParameters sourceDestinationPassword;
extern const StepParameters errorType;
extern const StepParameters undefined;
} // namespace steps

// The definition as XML in UTF-8: a target parameter "Results", then the list. Empty for steps::undefined.
std::string stepDefinition(const StepParameters& parameters);

} // namespace frame
