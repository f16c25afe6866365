// How functions, script steps and strings of a plug-in are described to the user.
#pragma once

#include "host/calculation/functions.h"

#include <fmxkit/registry.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>

namespace fmxhost {

using Json = nlohmann::ordered_json;

Json describe(const fmxkit::ExternalFunction& function);
Json describe(const fmxkit::ScriptStep& step);

// JSON as fmxhost prints it: UTF-8, with U+FFFD for what isn't valid.
std::string jsonText(const Json& json);

// An array with one element a line.
std::string jsonLines(const Json& array);

// "none", "1", "0 to 1", "2 or more".
std::string argumentCounts(const Function& function);

// A description without the type-ahead words before its "|".
std::u16string_view descriptionText(std::u16string_view description);

// The text broken into lines of at most `width` columns where blanks allow, each one after `indent` blanks.
std::string wrapped(std::u16string_view text, std::size_t indent, std::size_t width);

} // namespace fmxhost
