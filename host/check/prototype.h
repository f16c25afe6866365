// Reads the parameters of a function's prototype, such as "Name( source ; target {; overwrite ; name } )".
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace fmxhost::check {

struct ParameterCounts {
    int required = 0;  // those outside of braces
    int named = 0;     // all of them
    bool more = false; // "..." or "…": any number of them
};

// The parameters can't be read; what() says why.
class PrototypeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// `parameters` is what follows the name: nothing, or a list in parentheses, separated by ";", optional ones in braces,
// which may be nested.
// Errors: PrototypeError.
ParameterCounts readParameters(std::u16string_view parameters);

// "1 parameter", "2 to 4 parameters", "1 or more parameters".
std::string countsText(const ParameterCounts& counts);

} // namespace fmxhost::check
