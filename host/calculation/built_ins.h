// How FileMaker's own functions are written: a row in the table of a subject, with a function that takes as many
// arguments as the prototype shows, in the types that it needs.
#pragma once

#include "host/calculation/functions.h"
#include "host/calculation/moment.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace fmxhost {

// One argument, from 0 on, or, for a parameter of the type Arguments, all of them. A std::size_t is a count: 0 for a
// negative number.
// Errors: NoResult where it can't be converted.
template <typename Parameter>
Parameter argumentAs(const Arguments& arguments, std::size_t index)
{
    if constexpr (std::is_same_v<Parameter, Arguments>) {
        return arguments;
    } else if constexpr (std::is_same_v<Parameter, Value>) {
        return arguments[index];
    } else if constexpr (std::is_same_v<Parameter, std::u16string>) {
        return arguments[index].text();
    } else if constexpr (std::is_same_v<Parameter, std::size_t>) {
        return static_cast<std::size_t>(std::max<std::int64_t>(0, arguments[index].integer()));
    } else if constexpr (std::is_same_v<Parameter, std::int64_t>) {
        return arguments[index].integer();
    } else {
        return Parameter(arguments[index]);
    }
}

template <typename Result, typename... Parameters, std::size_t... index>
BuiltIn builtIn(std::function<Result(Parameters...)> function, std::index_sequence<index...>)
{
    return [function = std::move(function)]([[maybe_unused]] const Arguments& arguments) -> Value {
        try {
            return function(argumentAs<std::decay_t<Parameters>>(arguments, index)...);
        } catch (const NoResult& none) {
            return none.value;
        }
    };
}

template <typename Result, typename... Parameters>
BuiltIn builtIn(std::function<Result(Parameters...)> function)
{
    return builtIn(std::move(function), std::index_sequence_for<Parameters...>());
}

template <typename Callable>
Function row(std::u16string_view prototype, std::u16string_view description, Callable function)
{
    return {prototype, description, builtIn(std::function(std::move(function)))};
}

// One that is a constant.
inline Function row(std::u16string_view name, std::u16string_view description, const char16_t* value)
{
    return row(name, description, [value] { return Value(value); });
}

// With which FileMaker begins a path of macOS; empty: of Linux.
constexpr std::string_view bootVolume = "/Macintosh HD";
#ifdef __APPLE__
constexpr std::string_view ownVolume = bootVolume;
#else
constexpr std::string_view ownVolume;
#endif

// The tables.
std::vector<Function> dateFunctions();
std::vector<Function> jsonFunctions();
std::vector<Function> listFunctions();
std::vector<Function> numberFunctions();
std::vector<Function> pathFunctions();
std::vector<Function> textFunctions();

} // namespace fmxhost
