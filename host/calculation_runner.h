// Evaluates one calculation after the other for the command line: results to the output, errors to standard error.
#pragma once

#include "host/context.h"

#include <optional>
#include <string>
#include <string_view>

namespace fmxhost {

// Where a calculation comes from, for error messages.
struct Origin {
    std::string name;                // the file, or "-e 2"; may be empty
    std::optional<std::size_t> line; // of the file, from 1
};

// Evaluates and writes the result, as plain text or JSON as the options say; with --time the time to standard error.
// While it takes longer than a second, a spinner shows at a terminal. An error in the calculation goes to standard
// error with the place pointed at; the status says which kind it was.
// Errors: PluginError when the plug-in isn't loaded yet and can't be; OutputError.
ExitStatus runCalculation(Context& context, std::string_view calculation, const Origin& origin);

// The time in a unit that suits it, such as "12.3 ms".
std::string timeText(double seconds);

} // namespace fmxhost
