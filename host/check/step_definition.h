// Reads the XML that describes a script step's parameters.
#pragma once

#include <string>
#include <vector>

namespace fmxhost::check {

// What is wrong with a definition (UTF-8), such as "parameter 2 has no label"; nothing when it is as it should be.
//
// A definition is a root element PluginStep with Parameter elements: Type (calc, bool, list, target), Label, DataType,
// ShowInline, Default and, for all but targets, ID, a number that no other parameter has. Lists hold Value elements,
// each with an ID of its own. One parameter at most is a target. Letter case doesn't matter.
std::vector<std::string> faultsOfDefinition(const std::string& definition);

} // namespace fmxhost::check
