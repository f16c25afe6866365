// Help on functions and on the language of calculations, for the command and for the prompt.
#pragma once

#include "host/calculation/functions.h"

#include <optional>
#include <string>
#include <string_view>

namespace fmxhost {

// Prototype, what it does, argument counts, ID; lines of UTF-8. Nothing when there is no such function.
std::optional<std::string> functionHelp(const FunctionTable& functions, std::string_view name);

// How calculations are written, and the names of all functions.
std::string languageHelp(const FunctionTable& functions);

// "There is no function called …", with the one that was probably meant.
std::string unknownFunctionText(const FunctionTable& functions, std::string_view name);

} // namespace fmxhost
